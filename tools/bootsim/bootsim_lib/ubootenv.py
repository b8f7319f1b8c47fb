"""The boot environment of a board: a U-Boot environment image read and written with libubootenv.

The board's /etc/fw_env.config names one image of ENV_SIZE bytes, /boot/bootsim/uboot.env. The
platform driver keeps its variables there (startup_mode, homebak_path, ...); bootsim reads and
changes them with fw_printenv / fw_setenv run inside the board (Debian package libubootenv-tool).

Creating the first image goes without those tools: starting a sandbox for fw_setenv would cost
every `bootsim exec` a second sandbox. A single-copy image is

    bytes 0-3   CRC-32 (zlib's) of the data area, unsigned little-endian
    bytes 4-    the data area (ENV_SIZE - 4 bytes): "name=value\\0" entries, then "\\0",
                padded with 0x00

with the entries sorted by name, as fw_setenv writes them (the scenario tests compare the two;
fw_setenv leaves the bytes after the terminating NUL as its buffer holds them, bootsim writes
0x00). fw_setenv itself refuses a missing image and, unless given a default environment with -f,
one whose CRC does not match (a zero-filled one).
"""
import os
import shutil
import struct
import tempfile
import zlib

from .errors import BootsimError

CONFIG_PATH = "/etc/fw_env.config"
IMAGE_DIR = "/boot/bootsim"
IMAGE_PATH = IMAGE_DIR + "/uboot.env"
ENV_SIZE = 0x4000
CONFIG_LINE = f"{IMAGE_PATH} 0x0 0x{ENV_SIZE:x}\n"

# Variables of a new board's environment.
DEFAULT_VARIABLES = {
    "startup_mode": "0",
    "homebak_path": "/opt/kytv8/backup",
}

TOOLS_PACKAGE = "libubootenv-tool"


def check_name(name):
    if not name or any(c in name for c in "=\0\n") or any(c.isspace() for c in name):
        raise BootsimError(f"invalid environment variable name {name!r}", status=2)
    return name


def check_value(name, value):
    if "\0" in value or "\n" in value:
        raise BootsimError(f"value of {name} must be a single line without NUL bytes", status=2)
    return value


def image_bytes(variables, size=ENV_SIZE):
    """A valid single-copy environment image holding VARIABLES ({name: value})."""
    data = bytearray()
    for name in sorted(variables):
        entry = f"{check_name(name)}={check_value(name, str(variables[name]))}".encode()
        data += entry + b"\0"
    data += b"\0"
    area = size - 4
    if len(data) > area:
        raise BootsimError(f"environment of {len(data)} bytes does not fit in {area} bytes")
    data += bytes(area - len(data))
    return struct.pack("<I", zlib.crc32(data) & 0xFFFFFFFF) + bytes(data)


def write_files(board, variables=None):
    """Write the board's fw_env.config and a fresh image holding VARIABLES (default ones)."""
    if variables is None:
        variables = DEFAULT_VARIABLES
    config = board.host_path(CONFIG_PATH)
    _write_atomically(config, CONFIG_LINE.encode(), 0o644)
    image = board.host_path(IMAGE_PATH)
    os.makedirs(os.path.dirname(image), 0o755, exist_ok=True)
    _write_atomically(image, image_bytes(variables), 0o644)


def _write_atomically(path, data, mode):
    directory = os.path.dirname(path)
    fd, tmp = tempfile.mkstemp(prefix="." + os.path.basename(path) + ".", dir=directory)
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(data)
        os.chmod(tmp, mode)
        os.replace(tmp, path)
    except BaseException:
        try:
            os.unlink(tmp)
        except FileNotFoundError:
            pass
        raise


def tool(name):
    """Host path of fw_printenv / fw_setenv (the host's /usr is visible in the board)."""
    path = shutil.which(name) or f"/usr/bin/{name}"
    if not os.access(path, os.X_OK):
        raise BootsimError(f"{name} not found (Debian package {TOOLS_PACKAGE})")
    return path


def printenv_command():
    return [tool("fw_printenv"), "-c", CONFIG_PATH]


def setenv_commands(assignments, unset):
    """fw_setenv command lines: one per NAME=VALUE (value may be empty), one per unset NAME."""
    commands = []
    for text in assignments:
        name, sep, value = text.partition("=")
        if not sep:
            raise BootsimError(f"expected NAME=VALUE, got {text!r}", status=2)
        commands.append([tool("fw_setenv"), "-c", CONFIG_PATH, check_name(name),
                         check_value(name, value)])
    for name in unset:
        commands.append([tool("fw_setenv"), "-c", CONFIG_PATH, check_name(name)])
    return commands


def parse_listing(text):
    """{name: value} from fw_printenv's listing (one name=value line per variable)."""
    variables = {}
    for line in text.split("\n"):
        name, sep, value = line.partition("=")
        if sep and name:
            variables[name] = value
    return variables
