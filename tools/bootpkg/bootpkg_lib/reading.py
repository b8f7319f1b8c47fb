"""Reading a package back: its entries and file headers, the layout rules the library checks
(and a few consistency checks of this writer's own), and the digests of its records."""
import hashlib
import os

from . import container as ct
from .errors import BootpkgError

CHUNK = 1 << 20


class Record:
    """One used entry of a package and, when it lies in the file, its file header."""

    def __init__(self, entry, header):
        self.entry = entry
        self.header = header

    @property
    def index(self):
        return self.entry.index

    @property
    def end(self):
        return self.entry.offset + self.entry.length

    @property
    def bin_name(self):
        return None if self.header is None else self.header.bin_name


class Package:
    """A package file as read: size, fileCount, records and the layout faults found."""

    def __init__(self, path):
        self.path = path
        self.size = 0
        self.count = None
        self.records = []
        self.faults = []


def read_header(package, source):
    """The package header's records, or none when it is short or its count too large."""
    header = source.read(ct.HEADER_LEN)
    if package.size < ct.HEADER_LEN:
        package.faults.append(f"the file has {package.size} bytes, fewer than the "
                              f"{ct.HEADER_LEN}-byte package header")
        return
    package.count = ct.read_count(header)
    if package.count > ct.MAX_FILES:
        package.faults.append(f"fileCount {package.count} is above {ct.MAX_FILES}")
        return
    for index in range(package.count):
        entry = ct.read_entry(header, index)
        file_header = None
        if entry.length >= ct.FILE_HEADER_LEN and entry.offset + ct.FILE_HEADER_LEN <= package.size:
            source.seek(entry.offset)
            file_header = ct.FileHeader(source.read(ct.FILE_HEADER_LEN))
        package.records.append(Record(entry, file_header))


def check_record(package, record, previous_end):
    """Faults of one record; its end for the next record's check (None after a wrap)."""
    i, entry, faults = record.index, record.entry, package.faults
    if entry.length == 0:
        faults.append(f"record {i}: recordLength is 0")
    if record.end > ct.MAX_U32:
        faults.append(f"record {i}: recordOffset {entry.offset} + recordLength {entry.length} "
                      "wraps past 2^32")
    if i == 0 and entry.offset != ct.HEADER_LEN:
        faults.append(f"record 0 starts at {entry.offset}, not at {ct.HEADER_LEN}")
    elif previous_end is not None and entry.offset > previous_end:
        faults.append(f"record {i} starts at {entry.offset}, {entry.offset - previous_end} "
                      f"bytes after the end of record {i - 1}")
    elif previous_end is not None and entry.offset < previous_end:
        faults.append(f"record {i} starts at {entry.offset}, {previous_end - entry.offset} "
                      f"bytes before the end of record {i - 1}")
    if record.end > ct.MAX_U32:
        return None
    if 0 < entry.length < ct.FILE_HEADER_LEN:
        faults.append(f"record {i}: recordLength {entry.length} is shorter than a file header")
    elif entry.length and record.header is None:
        faults.append(f"record {i}: its file header runs past the end of the file")
    if record.header is not None:
        check_file_header(package, record)
    return record.end


def check_file_header(package, record):
    i, header = record.index, record.header
    if header.actual_length + ct.FILE_HEADER_LEN != record.entry.length:
        package.faults.append(f"record {i}: actualLength {header.actual_length} does not match "
                              f"recordLength {record.entry.length}")
    if not header.actual_terminated:
        package.faults.append(f"record {i}: actualName fills its {ct.ACTUAL_NAME_LEN} bytes "
                              "without a NUL")
    if not header.bin_terminated:
        package.faults.append(f"record {i}: binName fills its {ct.BIN_NAME_LEN} bytes "
                              "without a NUL")


def check_layout(package):
    end = ct.HEADER_LEN
    for record in package.records:
        end = check_record(package, record, end)
    seen = {}
    for record in package.records:
        if record.header is None:
            continue
        first = seen.setdefault(record.bin_name, record)
        if first is not record:
            package.faults.append(f"record {record.index} has the binName "
                                  f"{ct.shown(record.bin_name)} of record {first.index}")
    if end is None:
        return
    if end < package.size:
        package.faults.append(f"{package.size - end} bytes follow the end of the last record")
    elif end > package.size:
        package.faults.append(f"the last record ends at {end}, past the end of the file "
                              f"({package.size} bytes)")


def read(path):
    """The package at PATH with its layout checked (faults in .faults, none raised)."""
    try:
        with open(path, "rb") as source:
            package = Package(path)
            package.size = os.fstat(source.fileno()).st_size
            read_header(package, source)
    except OSError as error:
        raise BootpkgError(f"{path}: {error.strerror}") from error
    if package.count is not None and package.count <= ct.MAX_FILES:
        check_layout(package)
    return package


def digests(package, record):
    """(SHA-256 of the whole record, SHA-256 of the bytes after its file header) as hex; None
    for each that the file does not hold."""
    entry = record.entry
    if entry.length < ct.FILE_HEADER_LEN or record.end > package.size:
        return None, None
    whole, contents = hashlib.sha256(), hashlib.sha256()
    buffer = bytearray(min(CHUNK, entry.length))
    view = memoryview(buffer)
    with open(package.path, "rb") as source:
        source.seek(entry.offset)
        got = source.readinto(view[:ct.FILE_HEADER_LEN])
        whole.update(view[:got])
        left = entry.length - ct.FILE_HEADER_LEN
        while left:
            got = source.readinto(view[:min(left, len(buffer))])
            if not got:
                raise BootpkgError(f"{package.path} became shorter while it was read")
            whole.update(view[:got])
            contents.update(view[:got])
            left -= got
    return whole.hexdigest(), contents.hexdigest()


def copy_out(package, record, destination, whole):
    """Writes the record's file bytes (or, with WHOLE, the record) to the path DESTINATION."""
    start = record.entry.offset + (0 if whole else ct.FILE_HEADER_LEN)
    left = record.end - start
    with open(package.path, "rb") as source, open(destination, "wb") as out:
        source.seek(start)
        while left:
            piece = source.read(min(left, CHUNK))
            if not piece:
                raise BootpkgError(f"{package.path} became shorter while it was read")
            out.write(piece)
            left -= len(piece)
