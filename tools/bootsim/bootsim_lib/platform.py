"""The platform library directory of a board: /etc/bootsim/lib inside, ROOT/etc/bootsim/lib.

It holds symlinks to the platform libraries of the build that the board description chooses:

    libdrv.so            -> BUILD/lib/libdrv.so               ([platform] driver = full)
                         -> BUILD/lib/drv-minimal/libdrv.so   ([platform] driver = minimal)
    <each runtime lib>   -> BUILD/lib/runtime/<name>          (unless named in [platform] missing)

The runtime libraries are libsupport_linux.so and every other file found in BUILD/lib/runtime/.
Commands in the board get LD_LIBRARY_PATH=/etc/bootsim/lib (prepended to the caller's value),
so the library loads exactly those. A symlink to a library the build does not have dangles: the
board then behaves as one without it. The directory is brought up to date before every command.
"""
import os

from .errors import BootsimError

LIB_DIR = "/etc/bootsim/lib"
ENV_BUILD_DIR = "BOOTINIT_BUILD_DIR"

DRIVER_NAME = "libdrv.so"
DRIVERS = {
    "full": "lib/libdrv.so",
    "minimal": "lib/drv-minimal/libdrv.so",
}
DEFAULT_DRIVER = "full"
RUNTIME_DIR = "lib/runtime"
# Runtime libraries linked even when the build does not have them (yet).
KNOWN_RUNTIME_LIBS = ("libsupport_linux.so",)
# Name prefix of a symlink being put in place (renamed over the library's name at once).
TMP_PREFIX = ".bootsim-"

# The repository holding this tool: tools/bootsim/bootsim_lib/platform.py -> ../../..
REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.realpath(__file__)))))


def build_dir(option=None):
    """The build directory: --build-dir, else $BOOTINIT_BUILD_DIR, else the repository's build/."""
    chosen = option or os.environ.get(ENV_BUILD_DIR) or os.path.join(REPO, "build")
    return os.path.normpath(os.path.abspath(chosen))


def wanted_links(desc, build):
    """{name: target} of the board's library directory for description DESC and build BUILD."""
    driver = desc.get("platform", "driver", DEFAULT_DRIVER).strip() or DEFAULT_DRIVER
    if driver not in DRIVERS:
        raise BootsimError(f"[platform] driver must be one of {', '.join(DRIVERS)}, "
                           f"not {driver!r}")
    missing = set(desc.get("platform", "missing", "").split())
    links = {DRIVER_NAME: os.path.join(build, DRIVERS[driver])}
    runtime = os.path.join(build, RUNTIME_DIR)
    names = set(KNOWN_RUNTIME_LIBS)
    try:
        with os.scandir(runtime) as it:
            for entry in it:
                if not entry.is_dir():
                    names.add(entry.name)
    except OSError:
        pass  # no runtime libraries built: the known ones dangle
    for name in sorted(names):
        if name != DRIVER_NAME:
            links[name] = os.path.join(runtime, name)
    return {name: target for name, target in links.items() if name not in missing}


def refresh(board, desc, build):
    """Make ROOT/etc/bootsim/lib hold exactly the wanted symlinks.

    Entries that are not symlinks are the board's own and stay (and win over a library of the
    same name). Each symlink is replaced atomically, so a command running in the board at the
    same time never misses a library that stays.
    """
    directory = board.host_path(LIB_DIR)
    os.makedirs(directory, 0o755, exist_ok=True)
    links = wanted_links(desc, build)
    with os.scandir(directory) as it:
        present = {entry.name: entry for entry in it}
    for name, entry in present.items():
        if name.startswith(TMP_PREFIX):
            continue  # another command's link on its way in
        if entry.is_symlink() and name not in links:
            try:
                os.unlink(entry.path)
            except FileNotFoundError:
                pass
    for name, target in links.items():
        entry = present.get(name)
        if entry is not None and not entry.is_symlink():
            continue
        path = os.path.join(directory, name)
        try:
            if os.readlink(path) == target:
                continue
        except OSError:
            pass
        tmp = os.path.join(directory, f"{TMP_PREFIX}{os.getpid()}-{name}")
        try:
            os.unlink(tmp)
        except FileNotFoundError:
            pass
        os.symlink(target, tmp)
        os.replace(tmp, path)
    return links


def library_path(existing):
    """LD_LIBRARY_PATH inside the board: the library directory first, then EXISTING."""
    return f"{LIB_DIR}:{existing}" if existing else LIB_DIR
