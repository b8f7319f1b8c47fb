"""The board description: an INI file kept in the board at /etc/bootsim/board.ini.

The writer is generic: any section and key can be set. The keys known to bootsim itself are
listed in DEFAULTS and KINDS (and in docs/bootsim.md); the keys read by the platform libraries
are documented in docs/board-description.md.
"""
import configparser
import io
import os
import tempfile

from .errors import BootsimError

# Description of a board created without --board/--set.
DEFAULTS = {
    "board": {
        "name": "demo",
    },
}

# Entries a board of each kind starts with (written before --board and --set). Main boards
# (role 1) also get the marker file /opt/MMB; see board.Board.create. Every board knows the
# addresses of both main boards and has its own address in the board network (127.0.0.11 and
# 127.0.0.12 for main boards 1 and 2, 127.0.0.21 for a line card), and the FTP users.
_SUPPORT = {"backup_dir": "/opt/kytv8/backup"}
_MAIN_BOARD_ADDRESSES = {"mmb1_address": "127.0.0.11", "mmb2_address": "127.0.0.12"}
_FTP = {"users": "bootfile:/opt swmdata:/var/lib"}
KINDS = {
    "mmb-active": {
        "board": {"role": "1", "active_state": "0", "slot": "1", "logic_cpu_id": "0",
                  "hard_type": "0x1A2B"},
        "support": dict(_SUPPORT),
        "net": {"address": "127.0.0.11", **_MAIN_BOARD_ADDRESSES},
        "ftp": dict(_FTP),
    },
    "mmb-standby": {
        "board": {"role": "1", "active_state": "1", "slot": "2", "logic_cpu_id": "0",
                  "hard_type": "0x1A2B"},
        "support": dict(_SUPPORT),
        "net": {"address": "127.0.0.12", **_MAIN_BOARD_ADDRESSES},
        "ftp": dict(_FTP),
    },
    "lc": {
        "board": {"role": "3", "active_state": "1", "slot": "3", "logic_cpu_id": "0",
                  "hard_type": "0x2B3C"},
        "support": dict(_SUPPORT),
        "net": {"address": "127.0.0.21", **_MAIN_BOARD_ADDRESSES},
        "ftp": dict(_FTP),
    },
}
DEFAULT_KIND = "mmb-active"
MAIN_BOARD_KINDS = ("mmb-active", "mmb-standby")


def parse_assignment(text):
    """Split "SECTION.KEY=VALUE" into (section, key, value).

    The section ends at the first dot, so keys may contain dots but sections cannot.
    VALUE may be empty and may contain '=' characters.
    """
    name, sep, value = text.partition("=")
    if not sep:
        raise BootsimError(f"expected SECTION.KEY=VALUE, got {text!r}", status=2)
    section, key = parse_name(name)
    if "\n" in value or "\r" in value:
        raise BootsimError(f"value of {name} must be a single line", status=2)
    return section, key, value


def parse_name(name):
    """Split "SECTION.KEY" into (section, key)."""
    section, dot, key = name.strip().partition(".")
    section, key = section.strip(), key.strip()
    if not dot or not section or not key:
        raise BootsimError(f"expected SECTION.KEY, got {name!r}", status=2)
    if any(c in section for c in "[]\n\r"):
        raise BootsimError(f"invalid section name {section!r}", status=2)
    if any(c in key for c in "=:[]\n\r") or key.startswith((";", "#")):
        raise BootsimError(f"invalid key name {key!r}", status=2)
    return section, key


class Description:
    """An ordered set of [section] key=value entries; values are plain strings."""

    def __init__(self, data=None):
        self._parser = self._new_parser()
        if data:
            self.update(data)

    @staticmethod
    def _new_parser():
        parser = configparser.ConfigParser(interpolation=None, strict=False,
                                           default_section="\0no-defaults\0")
        parser.optionxform = str  # keys keep their case
        return parser

    @classmethod
    def default(cls, kind=None):
        """The description a new board starts with: DEFAULTS, then the entries of KIND."""
        desc = cls(DEFAULTS)
        if kind is not None:
            if kind not in KINDS:
                raise BootsimError(f"unknown board kind {kind!r} (one of {', '.join(KINDS)})",
                                   status=2)
            desc.update(KINDS[kind])
        return desc

    @classmethod
    def load(cls, path):
        desc = cls()
        desc.merge_file(path)
        return desc

    def merge_file(self, path):
        """Add the entries of the INI file PATH, replacing existing values."""
        other = self._new_parser()
        try:
            with open(path, encoding="utf-8") as f:
                other.read_file(f, source=str(path))
        except OSError as e:
            raise BootsimError(f"cannot read board description {path}: {e.strerror}") from e
        except configparser.Error as e:
            raise BootsimError(f"invalid board description {path}: {e}") from e
        for section in other.sections():
            for key, value in other.items(section, raw=True):
                self.set(section, key, value)

    def update(self, data):
        for section, entries in data.items():
            for key, value in entries.items():
                self.set(section, key, value)

    def set(self, section, key, value):
        if not self._parser.has_section(section):
            self._parser.add_section(section)
        self._parser.set(section, key, str(value))

    def unset(self, section, key):
        """Remove a key (and its section once empty); returns whether it was there."""
        if not self._parser.has_section(section):
            return False
        removed = self._parser.remove_option(section, key)
        if not self._parser.options(section):
            self._parser.remove_section(section)
        return removed

    def get(self, section, key, default=None):
        if self._parser.has_option(section, key):
            return self._parser.get(section, key, raw=True)
        return default

    def apply(self, assignments):
        """Apply "SECTION.KEY=VALUE" strings in order."""
        for text in assignments:
            self.set(*parse_assignment(text))

    def sections(self):
        return self._parser.sections()

    def as_dict(self):
        return {s: dict(self._parser.items(s, raw=True)) for s in self._parser.sections()}

    def dumps(self):
        out = io.StringIO()
        self._parser.write(out, space_around_delimiters=False)
        return out.getvalue()

    def save(self, path):
        """Write atomically (a reader in the board never sees a half-written file)."""
        directory = os.path.dirname(path)
        os.makedirs(directory, exist_ok=True)
        fd, tmp = tempfile.mkstemp(prefix=".board.ini.", dir=directory)
        try:
            with os.fdopen(fd, "w", encoding="utf-8") as f:
                f.write(self.dumps())
            os.chmod(tmp, 0o644)
            os.replace(tmp, path)
        except BaseException:
            try:
                os.unlink(tmp)
            except FileNotFoundError:
                pass
            raise
