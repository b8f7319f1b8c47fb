"""The boot package container: where each field lies, how names become binNames, and the
packing of the package header, the file entries and the file headers.

Every multi-byte number is an unsigned 32-bit big-endian integer, except the fileKind of a
file header, which the library copies as it stands into a host integer and which is therefore
written little-endian. docs/bootpkg.md describes every field.
"""
import struct
import zlib

from .errors import BootpkgError

PACKAGE_MAGIC = b"BPK1"
RECORD_MAGIC = b"BREC"
FORMAT_VERSION = 1

HEADER_LEN = 6180
COUNT_AT = 4
ENTRY_TABLE_AT = 32
ENTRY_LEN = 24
MAX_FILES = 256
HEADER_CRC_AT = ENTRY_TABLE_AT + MAX_FILES * ENTRY_LEN  # 6176

FILE_HEADER_LEN = 352
KIND_AT = 8
ACTUAL_NAME_AT = 116
ACTUAL_NAME_LEN = 128
BIN_NAME_AT = 244
BIN_NAME_LEN = 96
ACTUAL_LENGTH_AT = 340
FILE_HEADER_CRC_AT = 344

ADDRESS_LIMIT = 1 << 32  # a record's end must stay below this, or 32-bit arithmetic wraps
MAX_U32 = ADDRESS_LIMIT - 1
BIN_SUFFIX = b".bin"

_HEADER_FRONT = struct.Struct(">4sIII16x")  # magic, fileCount, version, creation time
_ENTRY = struct.Struct(">IIIII4x")  # index, recordOffset, recordLength, actualLength, kind
_FILE_HEADER_FRONT = struct.Struct(">4sI4sI100x")  # magic, index, kind (LE bytes), time


def bin_name(actual_name):
    """The binName of a file name (bytes): kept when it ends in ".bin"; otherwise cut at its
    first "." and given ".bin"."""
    if actual_name.endswith(BIN_SUFFIX):
        return actual_name
    return actual_name.split(b".", 1)[0] + BIN_SUFFIX


def shown(name):
    """A name (bytes) as text for messages and listings: printable ASCII and spaces as they
    are, a backslash doubled, every other byte as \\xHH."""
    out = []
    for byte in name:
        if byte == 0x5C:
            out.append("\\\\")
        elif 0x20 <= byte < 0x7F:
            out.append(chr(byte))
        else:
            out.append(f"\\x{byte:02x}")
    return "".join(out)


def name_field(name, size):
    """NAME padded with NULs to SIZE bytes; the name must leave room for one NUL."""
    if len(name) >= size:
        raise BootpkgError(f"name {shown(name)} does not fit a {size}-byte field")
    return name.ljust(size, b"\0")


def filled_field(name, size):
    """SIZE bytes without any NUL: NAME followed by "X" up to the end of the field."""
    return name.ljust(size, b"X")[:size]


def check_u32(value, what):
    if not 0 <= value <= MAX_U32:
        raise BootpkgError(f"{what} {value} does not fit 32 bits")
    return value


class Entry:
    """One used slot of the entry table, as written or as read."""

    def __init__(self, index, offset, length, actual_length, kind):
        self.index = index
        self.offset = offset
        self.length = length
        self.actual_length = actual_length
        self.kind = kind

    def pack(self):
        return _ENTRY.pack(self.index, self.offset, self.length, self.actual_length, self.kind)


def pack_header(count, created, entries):
    """The 6180-byte package header: the entries fill the first slots, the others stay zero,
    and the last four bytes carry the CRC-32 of everything before them."""
    table = b"".join(entry.pack() for entry in entries)
    if len(entries) > MAX_FILES:
        raise BootpkgError(f"{len(entries)} entries do not fit the {MAX_FILES}-slot table")
    front = _HEADER_FRONT.pack(PACKAGE_MAGIC, count, FORMAT_VERSION, created)
    body = front + table.ljust(MAX_FILES * ENTRY_LEN, b"\0")
    return body + struct.pack(">I", zlib.crc32(body))


def pack_file_header(index, kind, created, actual_field, bin_field, actual_length):
    """The 352-byte file header of a record. ACTUAL_FIELD and BIN_FIELD are the exact bytes of
    the two name fields (see name_field and filled_field)."""
    assert len(actual_field) == ACTUAL_NAME_LEN and len(bin_field) == BIN_NAME_LEN
    front = _FILE_HEADER_FRONT.pack(RECORD_MAGIC, index, struct.pack("<I", kind), created)
    body = front + actual_field + bin_field + struct.pack(">I", actual_length)
    assert len(body) == FILE_HEADER_CRC_AT
    return body + struct.pack(">I", zlib.crc32(body)) + bytes(4)


def read_count(header):
    return struct.unpack_from(">I", header, COUNT_AT)[0]


def read_entry(header, index):
    """The entry of slot INDEX of a package header; its own index field is not needed."""
    _, offset, length, actual_length, kind = _ENTRY.unpack_from(
        header, ENTRY_TABLE_AT + index * ENTRY_LEN)
    return Entry(index, offset, length, actual_length, kind)


def terminated(field):
    """The name in a name field up to its first NUL, and whether there was one."""
    end = field.find(b"\0")
    if end < 0:
        return field, False
    return field[:end], True


class FileHeader:
    """The fields of a file header that the library reads."""

    def __init__(self, data):
        self.kind = struct.unpack_from("<I", data, KIND_AT)[0]
        self.actual_name, self.actual_terminated = terminated(
            data[ACTUAL_NAME_AT:ACTUAL_NAME_AT + ACTUAL_NAME_LEN])
        self.bin_name, self.bin_terminated = terminated(
            data[BIN_NAME_AT:BIN_NAME_AT + BIN_NAME_LEN])
        self.actual_length = struct.unpack_from(">I", data, ACTUAL_LENGTH_AT)[0]
