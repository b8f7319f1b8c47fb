"""Decoding of the boot log files written by the library.

Every boot log is a fixed header followed by text. The header's curLen is the length of the
current text; after a wrap, older text beyond curLen may remain in the file.

  type 0  app_boot.log       in /var/lib/swm/workdir/var/log
          bytes 0-7   curLen, unsigned little-endian
          text from byte 8
  type 1  boot_security.log  in /var/lib/swm/workdir/var/log
          bytes 0-7   curLen, unsigned little-endian
          bytes 8-9   two bytes the writer leaves untouched
          text from byte 10
  type 2  boot_security.log  in /opt/kytv8/var/log
          bytes 0-3   curLen, u32 little-endian
          bytes 4-7   reserved, u32 little-endian
          bytes 8-11  wrap length, u32 little-endian (curLen at the last wrap, 0 if none)
          text from byte 12
"""
import struct
from dataclasses import dataclass

from .errors import BootsimError

DEFAULT_LOG_DIR = "/var/lib/swm/workdir/var/log"
KYTV8_LOG_DIR = "/opt/kytv8/var/log"


@dataclass(frozen=True)
class LogType:
    number: int
    default_path: str   # as seen inside the board
    header_size: int    # bytes before the text

    def pack_header(self, cur_len, reserved=0, wrap_len=0):
        """Header bytes (for type 1 RESERVED is the 16-bit value of the two untouched bytes)."""
        if self.number == 0:
            return struct.pack("<Q", cur_len)
        if self.number == 1:
            return struct.pack("<QH", cur_len, reserved)
        return struct.pack("<III", cur_len, reserved, wrap_len)


LOG_TYPES = {
    0: LogType(0, DEFAULT_LOG_DIR + "/app_boot.log", 8),
    1: LogType(1, DEFAULT_LOG_DIR + "/boot_security.log", 10),
    2: LogType(2, KYTV8_LOG_DIR + "/boot_security.log", 12),
}


@dataclass(frozen=True)
class BootLog:
    type: LogType
    cur_len: int
    reserved: int   # type 1: the two bytes after curLen (LE); type 0: 0
    wrap_len: int   # type 2 only; 0 otherwise
    data: bytes     # the whole file

    @property
    def text_start(self):
        return self.type.header_size

    @property
    def available(self):
        """Number of text bytes in the file after the header."""
        return max(0, len(self.data) - self.text_start)

    @property
    def truncated(self):
        return self.cur_len > self.available

    def current_text(self):
        """The curLen bytes of current text (fewer if the file is shorter)."""
        return self.data[self.text_start:self.text_start + self.cur_len]

    def all_text(self):
        """Everything after the header, including older text left beyond curLen by a wrap."""
        return self.data[self.text_start:]

    def header_line(self):
        return f"curLen={self.cur_len} reserved={self.reserved} wrapLen={self.wrap_len}"


def log_type(number):
    try:
        return LOG_TYPES[int(number)]
    except (KeyError, ValueError):
        raise BootsimError(f"unknown boot log type {number!r} (0, 1 or 2)", status=2) from None


def decode(data, number):
    """Decode the bytes of a boot log file of type NUMBER."""
    kind = log_type(number)
    if len(data) < kind.header_size:
        raise BootsimError(f"boot log of type {kind.number} is {len(data)} bytes long, "
                           f"shorter than its {kind.header_size}-byte header")
    if kind.number == 0:
        (cur_len,) = struct.unpack_from("<Q", data)
        return BootLog(kind, cur_len, 0, 0, data)
    if kind.number == 1:
        cur_len, gap = struct.unpack_from("<QH", data)
        return BootLog(kind, cur_len, gap, 0, data)
    cur_len, reserved, wrap_len = struct.unpack_from("<III", data)
    return BootLog(kind, cur_len, reserved, wrap_len, data)


def read(path, number):
    try:
        with open(path, "rb") as f:
            data = f.read()
    except FileNotFoundError:
        raise BootsimError(f"no boot log at {path}") from None
    except OSError as e:
        raise BootsimError(f"cannot read boot log {path}: {e.strerror}") from e
    return decode(data, number)


def encode(number, text, cur_len=None, reserved=0, wrap_len=0, tail=b""):
    """Bytes of a boot log file: header, TEXT, then TAIL (older text left after a wrap)."""
    if isinstance(text, str):
        text = text.encode()
    if isinstance(tail, str):
        tail = tail.encode()
    kind = log_type(number)
    return kind.pack_header(len(text) if cur_len is None else cur_len,
                            reserved, wrap_len) + text + tail
