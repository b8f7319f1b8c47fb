"""The board's CRL flash areas, as libdrv's host build keeps them.

Each area is an image file in the board, /etc/bootsim/flash/AREA (AREA: crl, pss_crl), exactly
131072 bytes: a 32-bit little-endian length, that many bytes of CRL, and erased flash (0xFF) up
to the end. No image means the area was never written; a length of 0 means it was erased.
"""
import os
import struct

from .boardfiles import write_file
from .errors import BootsimError

FLASH_DIR = "/etc/bootsim/flash"
AREAS = ("crl", "pss_crl")
AREA_SIZE = 131072
LENGTH = struct.Struct("<I")
MAX_CRL = AREA_SIZE - LENGTH.size
ERASED = b"\xff"
IMAGE_MODE = 0o644


def board_path(area):
    if area not in AREAS:
        raise BootsimError(f"AREA must be one of {', '.join(AREAS)}, not {area!r}", status=2)
    return f"{FLASH_DIR}/{area}"


def image(crl):
    """The image of an area holding CRL (bytes; empty for an erased area)."""
    return LENGTH.pack(len(crl)) + crl + ERASED * (MAX_CRL - len(crl))


def write(board, area, crl):
    """Store CRL (1 to MAX_CRL bytes) in AREA, replacing the image atomically."""
    if not 1 <= len(crl) <= MAX_CRL:
        raise BootsimError(f"a CRL for the flash holds 1 to {MAX_CRL} bytes, not {len(crl)}",
                           status=2)
    write_file(board.own_path(board_path(area), follow_last=True), image(crl), IMAGE_MODE)


def erase(board, area):
    """Leave AREA erased: an image holding a CRL of length 0."""
    write_file(board.own_path(board_path(area), follow_last=True), image(b""), IMAGE_MODE)


def remove(board, area):
    """Remove AREA's image: the area was never written."""
    try:
        os.unlink(board.own_path(board_path(area)))
    except FileNotFoundError:
        pass


def read(board, area):
    """The CRL stored in AREA: bytes (empty when erased), None when it has no image."""
    path = board_path(area)
    try:
        with open(board.own_path(path, follow_last=True), "rb") as f:
            data = f.read(AREA_SIZE + 1)
    except FileNotFoundError:
        return None
    except OSError as e:
        raise BootsimError(f"cannot read {path}: {e.strerror}") from e
    if len(data) != AREA_SIZE:
        raise BootsimError(f"{path} is damaged: {len(data)} bytes instead of {AREA_SIZE}")
    (length,) = LENGTH.unpack_from(data)
    if length > MAX_CRL:
        raise BootsimError(f"{path} is damaged: it claims {length} bytes of CRL, at most "
                           f"{MAX_CRL} fit")
    return data[LENGTH.size:LENGTH.size + length]
