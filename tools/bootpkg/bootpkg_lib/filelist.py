"""The signature file list: an INI-style text naming each record of a package by its binName,
with its FILETYPE and the SHA-256 digest of the whole record (file header and file bytes)."""
import re

from .container import MAX_FILES, shown
from .errors import BootpkgError

MAIN_SECTION = "MAIN FILE INFO"
CREATOR_KEY = "Create By"
CREATOR = "Velmor Technology Inc."
COUNT_KEY = "FILENUM"
NAME_KEY = "FILENAME"
TYPE_KEY = "FILETYPE"
DIGEST_KEY = "SHA256-DIGEST"

# What the library's line reader holds: a section line with its brackets, a key, a value.
MAX_SECTION_LINE = 71
MAX_KEY = 128
MAX_VALUE = 1030

_HEX_DIGEST = re.compile(rb"[0-9a-f]{64}")


class Listed:
    """One file section: the record's binName (bytes), FILETYPE and digest (64 hex digits)."""

    def __init__(self, name, kind, digest):
        self.name = name
        self.kind = kind
        self.digest = digest


def _section(name):
    line = b"[" + name + b"]"
    if len(line) > MAX_SECTION_LINE:
        raise BootpkgError(f"section line {shown(line)} is longer than {MAX_SECTION_LINE}")
    return line + b"\n"


def _pair(key, value):
    if len(key) > MAX_KEY or len(value) > MAX_VALUE:
        raise BootpkgError(f"list line {shown(key)}={shown(value)} is too long for the reader")
    if b"\n" in value or b"\r" in value:
        raise BootpkgError(f"list value {shown(value)} holds a line break")
    return key + b"=" + value + b"\n"


def render(files):
    """The list text (bytes) of FILES, a sequence of Listed, in their order."""
    if not 1 <= len(files) <= MAX_FILES:
        raise BootpkgError(f"a file list names 1 to {MAX_FILES} files, not {len(files)}")
    parts = [_section(MAIN_SECTION.encode()),
             _pair(CREATOR_KEY.encode(), CREATOR.encode()),
             _pair(COUNT_KEY.encode(), str(len(files)).encode())]
    for number, listed in enumerate(files, start=1):
        if listed.kind == 0:
            raise BootpkgError(f"{shown(listed.name)} has fileKind 0, but a listed FILETYPE "
                               "must not be 0")
        parts += [_section(f"FILE{number}".encode()),
                  _pair(NAME_KEY.encode(), listed.name),
                  _pair(TYPE_KEY.encode(), str(listed.kind).encode()),
                  _pair(DIGEST_KEY.encode(), listed.digest.encode())]
    return b"".join(parts)


def _sections(text):
    """[(section name, [(key, value)...])...] of a list text; a fault raises BootpkgError."""
    sections = []
    for number, raw in enumerate(text.split(b"\n"), start=1):
        line = raw.strip()
        if not line or line[:1] in (b"#", b";"):  # the reader skips these too
            continue
        if line.startswith(b"["):
            if not line.endswith(b"]") or len(line) > MAX_SECTION_LINE:
                raise BootpkgError(f"list line {number}: bad section line {shown(line)}")
            sections.append((line[1:-1], []))
            continue
        key, sep, value = line.partition(b"=")
        if not sep or not sections:
            raise BootpkgError(f"list line {number}: not key=value in a section: {shown(line)}")
        if len(key) > MAX_KEY or len(value) > MAX_VALUE:
            raise BootpkgError(f"list line {number}: key or value too long")
        sections[-1][1].append((key, value))
    return sections


def _file_section(name, pairs):
    values = {}
    for key, value in pairs:
        if key == DIGEST_KEY.encode() and not (NAME_KEY.encode() in values
                                              and TYPE_KEY.encode() in values):
            raise BootpkgError(f"[{shown(name)}]: {DIGEST_KEY} comes before {NAME_KEY} and "
                               f"{TYPE_KEY}")
        values.setdefault(key, value)
    missing = [k for k in (NAME_KEY, TYPE_KEY, DIGEST_KEY) if k.encode() not in values]
    if missing:
        raise BootpkgError(f"[{shown(name)}]: no {', '.join(missing)}")
    kind = values[TYPE_KEY.encode()]
    digest = values[DIGEST_KEY.encode()]
    if not kind.isdigit() or int(kind) == 0:
        raise BootpkgError(f"[{shown(name)}]: {TYPE_KEY} {shown(kind)} is not a non-zero number")
    if not _HEX_DIGEST.fullmatch(digest):
        raise BootpkgError(f"[{shown(name)}]: {DIGEST_KEY} is not 64 lowercase hex digits")
    return Listed(values[NAME_KEY.encode()], int(kind), digest.decode())


def parse(text):
    """The Listed files of a list text, checked against the rules of the format."""
    sections = _sections(text)
    if not sections or sections[0][0] != MAIN_SECTION.encode():
        raise BootpkgError(f"the list does not start with [{MAIN_SECTION}]")
    main = dict(sections[0][1])
    if main.get(CREATOR_KEY.encode()) != CREATOR.encode():
        raise BootpkgError(f"the list's {CREATOR_KEY} is not {CREATOR}")
    count_text = main.get(COUNT_KEY.encode(), b"")
    if not count_text.isdigit() or not 1 <= int(count_text) <= MAX_FILES:
        raise BootpkgError(f"the list's {COUNT_KEY} {shown(count_text)} is not 1 to {MAX_FILES}")
    files = sections[1:]
    if int(count_text) != len(files):
        raise BootpkgError(f"the list's {COUNT_KEY} is {int(count_text)}, but it has "
                           f"{len(files)} file sections")
    listed = []
    for number, (name, pairs) in enumerate(files, start=1):
        if name != f"FILE{number}".encode():
            raise BootpkgError(f"list section [{shown(name)}] where [FILE{number}] belongs")
        listed.append(_file_section(name, pairs))
    return listed
