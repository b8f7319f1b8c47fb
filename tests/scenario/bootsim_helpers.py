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

    def __init__(self, root):
        self.root = Path(root)

    def __repr__(self):
        return f"Board({str(self.root)!r})"

    @classmethod
    def create(cls, root, board_file=None, settings=None):
        """Create a board; SETTINGS is a {"section.key": value} mapping or "S.K=V" strings."""
        args = ["create", root]
        if board_file is not None:
            args += ["--board", board_file]
        for assignment in _assignments(settings):
            args += ["--set", assignment]
        bootsim(*args)
        return cls(root)

    # ------------------------------------------------------------------ running

    def run(self, *args, input=None, env=None, timeout=DEFAULT_TIMEOUT, check=False):
        """Run ARGS inside the board. stdin is empty unless INPUT (bytes or str) is given.

        A build directory kept in the host's /tmp is passed through into the board, so that
        its binaries can be started by scripts inside the board too."""
        if isinstance(input, str):
            input = input.encode()
        options = []
        build = os.path.abspath(build_dir())
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
