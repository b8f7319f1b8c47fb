"""Helpers of the scenario tests: board roots made with the bootsim CLI, and the bootinit binary.

Environment:
  BOOTINIT_BUILD_DIR  build directory (set by CTest); default: the repository's build/
  BOOTSIM             the bootsim script; default: the repository's tools/bootsim/bootsim
"""
import os
import subprocess
import sys
from collections.abc import Mapping
from pathlib import Path

import pytest

REPO = Path(__file__).resolve().parents[2]

# Time limit of one command run inside a board (a hung boot must not hang the test run).
DEFAULT_TIMEOUT = 300


def bootsim_path():
    return Path(os.environ.get("BOOTSIM") or REPO / "tools" / "bootsim" / "bootsim")


def build_dir():
    return Path(os.environ.get("BOOTINIT_BUILD_DIR") or REPO / "build")


def bootinit_path():
    """The bootinit front-end of the build; fails the test clearly when it is not built."""
    path = build_dir() / "bin" / "bootinit"
    if not os.access(path, os.X_OK):
        pytest.fail(f"bootinit front-end not found at {path}: build the project first or set "
                    f"BOOTINIT_BUILD_DIR to the build directory", pytrace=False)
    return path


def _bootsim_lib():
    """The bootsim_lib package next to the bootsim script (shares its path mapping)."""
    directory = str(bootsim_path().resolve().parent)
    if directory not in sys.path:
        sys.path.insert(0, directory)
    previous = sys.dont_write_bytecode
    sys.dont_write_bytecode = True  # no byte-code caches in the source tree
    try:
        import bootsim_lib.board  # noqa: E402  (imported once the path is known)
    finally:
        sys.dont_write_bytecode = previous
    return bootsim_lib


def bootsim(*args, input=None, check=True, timeout=DEFAULT_TIMEOUT, env=None):
    """Run `bootsim ARGS...`; returns the CompletedProcess (stdout/stderr as bytes)."""
    full_env = None
    if env:
        full_env = dict(os.environ)
        full_env.update(env)
    result = subprocess.run([str(bootsim_path())] + [str(a) for a in args],
                            input=input, stdin=None if input is not None else subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            timeout=timeout, env=full_env)
    if check and result.returncode != 0:
        raise AssertionError(f"bootsim {' '.join(map(str, args))} exited with "
                             f"{result.returncode}:\n{result.stderr.decode(errors='replace')}")
    return result


def _assignments(settings):
    if not settings:
        return []
    if isinstance(settings, Mapping):
        return [f"{name}={value}" for name, value in settings.items()]
    if isinstance(settings, str):
        return [settings]
    return list(settings)


class Board:
    """A board root on the host, driven through the bootsim CLI."""

    def __init__(self, root, build=None):
        self.root = Path(root)
        # build directory of the platform libraries; None: build_dir() at each run
        self.build = Path(build) if build is not None else None

    def __repr__(self):
        return f"Board({str(self.root)!r})"

    @classmethod
    def create(cls, root, board_file=None, settings=None, kind=None, build=None):
        """Create a board; SETTINGS is a {"section.key": value} mapping or "S.K=V" strings.

        KIND: "mmb-active" (bootsim's default), "mmb-standby" or "lc". BUILD: the build
        directory the board's platform libraries point to (default: build_dir())."""
        args = ["create", root, "--build-dir", build if build is not None else build_dir()]
        if kind is not None:
            args += ["--kind", kind]
        if board_file is not None:
            args += ["--board", board_file]
        for assignment in _assignments(settings):
            args += ["--set", assignment]
        bootsim(*args)
        return cls(root, build=build)

    # ------------------------------------------------------------------ running

    def run(self, *args, input=None, env=None, timeout=DEFAULT_TIMEOUT, check=False):
        """Run ARGS inside the board. stdin is empty unless INPUT (bytes or str) is given.

        A build directory kept in the host's /tmp is passed through into the board, so that
        its binaries can be started by scripts inside the board too."""
        if isinstance(input, str):
            input = input.encode()
        build = os.path.abspath(self.build if self.build is not None else build_dir())
        options = ["--build-dir", build]
        if build.startswith("/tmp/") and os.path.isdir(build):
            options += ["--host-path", build]
        return bootsim("run", *options, self.root, "--", *args, input=input, env=env,
                       timeout=timeout, check=check)

    def sh(self, script, **kwargs):
        """Run a shell script inside the board."""
        return self.run("/bin/sh", "-c", script, **kwargs)

    def bootinit(self, *args, **kwargs):
        """Run $BOOTINIT_BUILD_DIR/bin/bootinit ARGS... inside the board."""
        return self.run(bootinit_path(), *args, **kwargs)

    # ------------------------------------------------------------------ files

    def path(self, board_path):
        """Host path of BOARD_PATH (an absolute path as seen inside the board)."""
        lib = _bootsim_lib()
        return Path(lib.board.Board(str(self.root)).host_path(str(board_path)))

    def write(self, board_path, text, mode=None):
        """Create a file inside the board (parents included); TEXT is str or bytes.

        Only paths that lie in the board root are accepted (never the host's own files)."""
        path = self.path(board_path)
        if not str(path).startswith(str(self.root) + "/"):
            raise ValueError(f"{board_path} is not in the board's own directories")
        path.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(text, str):
            path.write_text(text)
        else:
            path.write_bytes(text)
        if mode is not None:
            path.chmod(mode)
        return path

    def read(self, board_path):
        return self.path(board_path).read_text()

    def read_bytes(self, board_path):
        return self.path(board_path).read_bytes()

    def exists(self, board_path):
        return os.path.lexists(self.path(board_path))

    def put(self, board_path, text=None, mode=None, from_file=None):
        """`bootsim put`: write a file inside the board (empty without TEXT and FROM_FILE).

        TEXT is str or bytes; MODE an int (0o600) or an octal string ("600")."""
        args = ["put", self.root, board_path]
        data = None
        if from_file is not None:
            args += ["--from", from_file]
        elif isinstance(text, bytes):
            args += ["--from", "/dev/stdin"]
            data = text
        elif text is not None:
            args.append(f"--text={text}")
        if mode is not None:
            args += ["--mode", mode if isinstance(mode, str) else f"{mode:o}"]
        bootsim(*args, input=data)
        return self.path(board_path)

    def rm(self, *board_paths, recursive=False, force=False):
        """`bootsim rm`: remove files (or with RECURSIVE directories) inside the board."""
        options = (["--recursive"] if recursive else []) + (["--force"] if force else [])
        bootsim("rm", self.root, *board_paths, *options)

    def ini(self, board_path, entries=None, unset=(), **settings):
        """`bootsim ini`: create or update an INI file inside the board.

        ENTRIES: {"section.key": value} or "section.key=value" strings; keyword arguments
        are taken as {"section.key": value} too (board.ini(p, **{"board.slot": 2}))."""
        items = _assignments(entries) + _assignments(settings)
        args = ["ini", self.root, board_path, *items]
        if unset:
            args += ["--unset", *([unset] if isinstance(unset, str) else unset)]
        bootsim(*args)
        return self.path(board_path)

    def package(self, host_file, backup=False, name=None):
        """`bootsim package`: copy HOST_FILE into /opt/kytv8/home (or the backup directory);
        returns its path inside the board."""
        args = ["package", self.root, host_file]
        if backup:
            args.append("--backup")
        if name is not None:
            args += ["--name", name]
        return bootsim(*args).stdout.decode().strip()

    # ------------------------------------------------------------------ boot environment

    def env(self, *names):
        """The boot environment as {name: value}: all variables, or those of NAMES that are set
        (through `bootsim env`, that is fw_printenv inside the board)."""
        text = bootsim("env", self.root).stdout.decode("utf-8", errors="surrogateescape")
        variables = {}
        for line in text.split("\n"):
            name, sep, value = line.partition("=")
            if sep and name:
                variables[name] = value
        if names:
            return {name: variables[name] for name in names if name in variables}
        return variables

    def set_env(self, *assignments, **variables):
        """`bootsim env --set`: "name=value" strings and/or name=value keywords."""
        items = list(assignments) + [f"{k}={v}" for k, v in variables.items()]
        if items:
            bootsim("env", self.root, "--set", *items)

    def unset_env(self, *names):
        if names:
            bootsim("env", self.root, "--unset", *names)

    # ------------------------------------------------------------------ boot logs

    def log_text(self, type=0, path=None, all=False):
        """Text bytes of a boot log as `bootsim log` prints them."""
        args = ["log", self.root, "--type", type]
        if path is not None:
            args += ["--path", path]
        if all:
            args.append("--all")
        return bootsim(*args).stdout

    def log_lines(self, type=0, path=None):
        """Lines of the current text of a boot log, without their newlines."""
        text = self.log_text(type=type, path=path).decode("utf-8", errors="replace")
        lines = text.split("\n")
        if lines and lines[-1] == "":
            lines.pop()
        return lines

    def log_header(self, type=0, path=None):
        """Header fields of a boot log: {"curLen": N, "reserved": N, "wrapLen": N}."""
        args = ["log", self.root, "--type", type, "--raw-header"]
        if path is not None:
            args += ["--path", path]
        out = bootsim(*args).stdout.decode()
        return {k: int(v) for k, v in (field.split("=") for field in out.split())}

    # ------------------------------------------------------------------ description

    def set(self, *assignments, **settings):
        """bootsim set: "section.key=value" strings and/or section__key=value keywords."""
        items = list(assignments) + [f"{k.replace('__', '.', 1)}={v}"
                                     for k, v in settings.items()]
        bootsim("set", self.root, *items)

    def show(self, name=None):
        args = ["show", self.root] + ([name] if name else [])
        return bootsim(*args).stdout.decode()

    def remove(self):
        bootsim("remove", self.root)
