"""Writing a package: the records of the input files streamed and hashed in one pass, then the
signature file list and its signature files, then the package header; and the faults that
`--break RULE` writes into a package on purpose (docs/bootpkg.md)."""
import hashlib
import os
import tempfile

from . import container as ct
from . import filelist, signing
from .errors import BootpkgError

CHUNK = 1 << 20  # bytes copied and hashed at a time: memory use does not grow with the input

DEFAULT_SIZE = {"gap": 16, "overlap": 16, "trailing-bytes": 16,
                "truncated-header": ct.HEADER_LEN - 1}

# The options each rule takes beyond --break; any other is refused.
RULE_OPTIONS = {
    "count-257": set(),
    "gap": {"target", "size"},
    "overlap": {"target", "size"},
    "zero-length": {"target"},
    "wrap": {"target"},
    "trailing-bytes": {"size"},
    "duplicate-binname": {"target"},
    "duplicate-exempt": {"firmware"},
    "no-terminator": {"target"},
    "no-terminator-actual": {"target"},
    "no-terminator-bin": {"target"},
    "truncated-header": {"size"},
    "changed-byte": {"target", "byte"},
    "wrong-signer": set(),
    "missing-list": set(),
    "missing-cms": set(),
    "missing-crl": set(),
}
RULES = tuple(RULE_OPTIONS)
SIGNING_RULES = {"wrong-signer", "missing-list", "missing-cms", "missing-crl"}


class Request:
    """What to build, as the command line gives it (names are bytes)."""

    def __init__(self, out, files):
        self.out = out
        self.files = files
        self.kinds = {}
        self.default_kind = 1
        self.created = 0
        self.scheme = None
        self.signer = None
        self.key = None
        self.crl = None
        self.ca = None
        self.with_list = True
        self.list_only = None
        self.rule = None
        self.target = None
        self.size = None
        self.byte = None
        self.firmware = None


class Item:
    """One record to write: where its bytes come from, and what the build learns writing it."""

    def __init__(self, actual_name, kind, length, path=None, signature=False):
        self.actual_name = actual_name
        self.bin_name = ct.bin_name(actual_name)
        self.kind = kind
        self.length = length
        self.path = path
        self.data = None
        self.signature = signature
        self.actual_field = None
        self.bin_field = None
        self.gap_after = 0
        self.overlap = 0
        self.slot = None
        self.offset = None
        self.record_digest = None
        self.file_digest = None

    def names(self):
        return (self.actual_name, self.bin_name)

    def label(self):
        return self.path if self.path is not None else ct.shown(self.actual_name)

    def header(self, created):
        actual = self.actual_field or ct.name_field(self.actual_name, ct.ACTUAL_NAME_LEN)
        binary = self.bin_field or ct.name_field(self.bin_name, ct.BIN_NAME_LEN)
        return ct.pack_file_header(self.slot, self.kind, created, actual, binary, self.length)


class Plan:
    """The records in package order, and the faults placed on them."""

    def __init__(self, items):
        self.items = items
        self.zero_before = None
        self.wrap = None
        self.changed = None
        self.trailing = 0
        self.truncate = None
        self.count = None


def counted(number, noun):
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def check_name(name, path):
    if not name:
        raise BootpkgError(f"{path}: empty file name")
    if any(byte < 0x20 or byte == 0x7F for byte in name):
        raise BootpkgError(f"{path}: the name holds a control character")
    if len(name) >= ct.ACTUAL_NAME_LEN:
        raise BootpkgError(f"{path}: the name is {len(name)} bytes long; an actualName holds "
                           f"at most {ct.ACTUAL_NAME_LEN - 1}")
    binary = ct.bin_name(name)
    if len(binary) >= ct.BIN_NAME_LEN:
        raise BootpkgError(f"{path}: the binName {ct.shown(binary)} is {len(binary)} bytes "
                           f"long; a binName holds at most {ct.BIN_NAME_LEN - 1}")


def input_item(path, req):
    try:
        info = os.stat(path)
    except OSError as error:
        raise BootpkgError(f"{path}: {error.strerror}") from error
    if not os.path.isfile(path):
        raise BootpkgError(f"{path}: not a regular file")
    name = os.fsencode(os.path.basename(path))
    check_name(name, path)
    return Item(name, req.default_kind, info.st_size, path=path)


def signature_items(req):
    """The signature records the request adds, in package order, still without contents."""
    if not req.with_list:
        return []
    scheme = req.scheme or signing.CLASSIC
    left_out = {"missing-list": scheme.list_name, "missing-cms": scheme.cms_name,
                "missing-crl": scheme.crl_name}.get(req.rule)
    names = [scheme.list_name] + ([scheme.cms_name, scheme.crl_name] if req.scheme else [])
    return [Item(name, req.default_kind, 0, signature=True)
            for name in names if name is not None and name != left_out]


def check_unique(items):
    seen = {}
    for item in items:
        earlier = seen.setdefault(item.bin_name, item)
        if earlier is not item:
            raise BootpkgError(f"{earlier.label()} and {item.label()} both have the binName "
                               f"{ct.shown(item.bin_name)}")


def apply_kinds(items, kinds):
    for name, kind in kinds.items():
        matching = [item for item in items if name in item.names()]
        if not matching:
            raise BootpkgError(f"--kind {ct.shown(name)}: no file of the package has this name")
        for item in matching:
            item.kind = kind


def find(items, name, option, inputs_only=False):
    for index, item in enumerate(items):
        if name in item.names() and not (inputs_only and item.signature):
            return index
    what = "input file" if inputs_only else "record"
    raise BootpkgError(f"{option} {ct.shown(name)}: no {what} of the package has this name")


def target_index(plan, req, default):
    if req.target is None:
        return default
    return find(plan.items, req.target, "--target")


def place_gap(plan, req, rule):
    items = plan.items
    index = target_index(plan, req, 0)
    if index + 1 >= len(items):
        raise BootpkgError(f"--break {rule} needs a record after "
                           f"{ct.shown(items[index].actual_name)}")
    size = req.size
    if rule == "gap":
        items[index].gap_after = size
        return
    nxt = items[index + 1]
    if items[index].signature or nxt.signature:
        raise BootpkgError("--break overlap needs two records that are not signature files")
    if size > items[index].length:
        raise BootpkgError(f"--size {size}: the overlap is longer than the "
                           f"{items[index].length} file bytes of "
                           f"{ct.shown(items[index].actual_name)}")
    if size > ct.FILE_HEADER_LEN:
        raise BootpkgError(f"--size {size}: the overlap is longer than the "
                           f"{ct.FILE_HEADER_LEN}-byte file header of "
                           f"{ct.shown(nxt.actual_name)}")
    items[index].overlap = size


def place_duplicate(plan, req, rule):
    if rule == "duplicate-exempt":
        index = find(plan.items, req.firmware, "--firmware", inputs_only=True)
    else:
        index = find(plan.items, req.target, "--target", True) if req.target is not None else 0
    original = plan.items[index]
    copy = Item(original.actual_name, original.kind, original.length, path=original.path)
    plan.items.insert(index + 1, copy)


def place_no_terminator(plan, req, rule):
    index = find(plan.items, req.target, "--target", True) if req.target is not None else 0
    item = plan.items[index]
    if rule in ("no-terminator", "no-terminator-actual"):
        item.actual_field = ct.filled_field(item.actual_name, ct.ACTUAL_NAME_LEN)
    if rule in ("no-terminator", "no-terminator-bin"):
        item.bin_field = ct.filled_field(item.bin_name, ct.BIN_NAME_LEN)


def place_fault(plan, req):
    """Marks the request's --break rule on the plan (before anything is written)."""
    rule = req.rule
    if rule in ("gap", "overlap"):
        place_gap(plan, req, rule)
    elif rule == "zero-length":
        plan.zero_before = target_index(plan, req, 0)
    elif rule == "wrap":
        plan.wrap = target_index(plan, req, len(plan.items) - 1)
    elif rule == "trailing-bytes":
        plan.trailing = req.size
    elif rule == "truncated-header":
        if req.size >= ct.HEADER_LEN:
            raise BootpkgError(f"--size {req.size}: a truncated header is shorter than "
                               f"{ct.HEADER_LEN} bytes")
        plan.truncate = req.size
    elif rule == "count-257":
        plan.count = ct.MAX_FILES + 1
    elif rule == "changed-byte":
        if not any(item.signature for item in plan.items):
            raise BootpkgError("--break changed-byte needs the file list (drop --no-list)")
        plan.changed = target_index(plan, req, 0)


def check_request(req):
    if not req.files:
        raise BootpkgError("no input files")
    if req.scheme is not None and (req.signer is None or req.key is None):
        raise BootpkgError(f"--sign {req.scheme.name} needs --signer and --key")
    if req.scheme is None and (req.signer, req.key, req.crl, req.ca) != (None,) * 4:
        raise BootpkgError("--signer, --key, --crl and --ca belong to --sign")
    if req.scheme is not None and not req.with_list:
        raise BootpkgError("--no-list leaves nothing to sign; --break missing-list writes a "
                           "signature without its list")
    if req.scheme is signing.PSS and req.crl is not None:
        raise BootpkgError("--crl belongs to the classic scheme")
    if req.scheme is signing.CLASSIC and req.crl is None and req.rule != "missing-crl":
        raise BootpkgError("--sign classic needs --crl")
    if req.list_only is not None and not req.with_list:
        raise BootpkgError("--list-only and --no-list exclude each other")
    check_rule_options(req)


def check_rule_options(req):
    given = {option for option in ("target", "size", "byte", "firmware")
             if getattr(req, option) is not None}
    if req.rule is None:
        if given:
            raise BootpkgError(f"--{sorted(given)[0]} belongs to --break")
        return
    extra = given - RULE_OPTIONS[req.rule]
    if extra:
        raise BootpkgError(f"--{sorted(extra)[0]} does not apply to --break {req.rule}")
    if req.rule in SIGNING_RULES and req.scheme is None:
        raise BootpkgError(f"--break {req.rule} needs --sign")
    if req.rule == "missing-crl" and req.scheme is not signing.CLASSIC:
        raise BootpkgError("--break missing-crl needs --sign classic")
    if req.rule == "duplicate-exempt" and req.firmware is None:
        raise BootpkgError("--break duplicate-exempt needs --firmware NAME")
    if req.size is None and req.rule in DEFAULT_SIZE:
        req.size = DEFAULT_SIZE[req.rule]
    if req.size is not None and req.size < (0 if req.rule == "truncated-header" else 1):
        raise BootpkgError(f"--size {req.size} is too small")


def make_plan(req):
    inputs = [input_item(path, req) for path in req.files]
    items = inputs + signature_items(req)
    if len(items) > ct.MAX_FILES:
        raise BootpkgError(f"a package holds at most {ct.MAX_FILES} records; this one would "
                           f"have {len(items)} ({counted(len(inputs), 'file')} and "
                           f"{counted(len(items) - len(inputs), 'signature file')})")
    check_unique(items)
    apply_kinds(items, req.kinds)
    plan = Plan(items)
    if req.rule in ("duplicate-binname", "duplicate-exempt"):
        place_duplicate(plan, req, req.rule)
    elif req.rule in ("no-terminator", "no-terminator-actual", "no-terminator-bin"):
        place_no_terminator(plan, req, req.rule)
    else:
        place_fault(plan, req)
    slots = len(plan.items) + (plan.zero_before is not None)
    if slots > ct.MAX_FILES:
        raise BootpkgError(f"--break {req.rule} needs one slot more than the {ct.MAX_FILES} "
                           "a package has")
    slot = 0
    for index, item in enumerate(plan.items):
        slot += index == plan.zero_before
        item.slot = slot
        slot += 1
    check_size(plan)
    return plan


def check_size(plan):
    """Refuses inputs whose records would reach past the 32-bit offsets of the format."""
    total = ct.HEADER_LEN + plan.trailing
    for item in plan.items:
        total += ct.FILE_HEADER_LEN + item.length + item.gap_after - item.overlap
    if total > ct.MAX_U32:
        raise BootpkgError(f"the package would be {total} bytes; records must end below 2^32 "
                           f"({ct.MAX_U32} bytes at most)")


def write_zeros(out, count):
    while count:
        step = min(count, CHUNK)
        out.write(bytes(step))
        count -= step


def copy_hashing(item, out, count, hashers):
    """Copies the first COUNT bytes of ITEM's file to OUT, feeding each piece to HASHERS."""
    buffer = bytearray(min(CHUNK, max(count, 1)))
    view = memoryview(buffer)
    with open(item.path, "rb") as source:
        if os.fstat(source.fileno()).st_size != item.length:
            raise BootpkgError(f"{item.path} changed while the package was built")
        left = count
        while left:
            got = source.readinto(view[:min(left, len(buffer))])
            if not got:
                raise BootpkgError(f"{item.path} ended early while the package was built")
            piece = view[:got]
            out.write(piece)
            for hasher in hashers:
                hasher.update(piece)
            left -= got


class Writer:
    """Appends records to the package file, hashing what it writes."""

    def __init__(self, out, created):
        self.out = out
        self.created = created
        self.pending = None  # (item, hashers) of a record whose end is the next one's start

    def record(self, item):
        header = item.header(self.created)
        if self.pending is not None:
            self.finish_overlapped(header)
        item.offset = self.out.tell()
        whole, contents = hashlib.sha256(header), hashlib.sha256()
        self.out.write(header)
        if item.path is not None:
            copy_hashing(item, self.out, item.length - item.overlap, (whole, contents))
        else:
            self.out.write(item.data)
            whole.update(item.data)
            contents.update(item.data)
        if item.overlap:
            self.pending = (item, whole, contents)
        else:
            item.record_digest, item.file_digest = whole.hexdigest(), contents.hexdigest()
        write_zeros(self.out, item.gap_after)

    def finish_overlapped(self, next_header):
        """The last bytes of the overlapped record are the first of the next header."""
        item, whole, contents = self.pending
        shared = next_header[:item.overlap]
        whole.update(shared)
        contents.update(shared)
        item.record_digest, item.file_digest = whole.hexdigest(), contents.hexdigest()
        self.pending = None


def listed_items(plan, req):
    items = [item for item in plan.items if not item.signature]
    if req.list_only is None:
        return items
    for name in req.list_only:
        find(items, name, "--list-only")
    return [item for item in items if any(n in item.names() for n in req.list_only)]


def signature_contents(plan, req, workdir):
    """The contents of each signature record: the list, its CMS signature, the CRL."""
    listed = [filelist.Listed(item.bin_name, item.kind, item.record_digest)
              for item in listed_items(plan, req)]
    text = filelist.render(listed)
    scheme = req.scheme or signing.CLASSIC
    contents = {scheme.list_name: text}
    if req.scheme is None:
        return contents
    list_path = os.path.join(workdir, "list")
    cms_path = os.path.join(workdir, "cms")
    with open(list_path, "wb") as list_file:
        list_file.write(text)
    signing.sign(scheme, list_path, req.signer, req.key, cms_path)
    check_signer(req, cms_path, list_path)
    with open(cms_path, "rb") as cms:
        contents[scheme.cms_name] = cms.read()
    if req.crl is not None:
        try:
            with open(req.crl, "rb") as crl:
                contents[scheme.crl_name] = crl.read()
        except OSError as error:
            raise BootpkgError(f"{req.crl}: {error.strerror}") from error
    return contents


def check_signer(req, cms_path, list_path):
    """With --ca, proves the signature verifies against the root (or, for a wrong signer,
    that it does not)."""
    if req.ca is None:
        return
    reason = signing.verify(cms_path, list_path, req.ca)
    if req.rule == "wrong-signer" and reason is None:
        raise BootpkgError(f"the signature by {req.signer} verifies against {req.ca}; it is "
                           "not a wrong signer")
    if req.rule != "wrong-signer" and reason is not None:
        raise BootpkgError(f"the signature by {req.signer} does not verify against "
                           f"{req.ca}: {reason}")


def entries(plan):
    table = []
    for item in plan.items:
        length = ct.FILE_HEADER_LEN + item.length
        table.append(ct.Entry(item.slot, ct.check_u32(item.offset, "recordOffset"),
                              ct.check_u32(length, "recordLength"), item.length, item.kind))
    if plan.wrap is not None:
        table[plan.wrap].length = ct.MAX_U32
    if plan.zero_before is not None:
        before = plan.items[plan.zero_before]
        table.insert(plan.zero_before, ct.Entry(before.slot - 1, before.offset, 0, 0, 0))
    return table


def change_byte(out, plan, req):
    item = plan.items[plan.changed]
    length = ct.FILE_HEADER_LEN + item.length
    at = req.byte
    if at is None:
        at = ct.FILE_HEADER_LEN if item.length else 0
    if not 0 <= at < length:
        raise BootpkgError(f"--byte {at}: the record of {ct.shown(item.actual_name)} has "
                           f"{length} bytes")
    out.seek(item.offset + at)
    old = out.read(1)
    out.seek(item.offset + at)
    out.write(bytes([old[0] ^ 0xFF]))


def fill(out, plan, req):
    """Writes the whole package into the open file OUT."""
    writer = Writer(out, req.created)
    out.write(bytes(ct.HEADER_LEN))
    for item in plan.items:
        if not item.signature:
            writer.record(item)
    signatures = [item for item in plan.items if item.signature]
    if signatures:
        with tempfile.TemporaryDirectory(prefix="bootpkg-") as workdir:
            contents = signature_contents(plan, req, workdir)
        for item in signatures:
            item.data = contents[item.actual_name]
            item.length = len(item.data)
            writer.record(item)
    write_zeros(out, plan.trailing)
    if out.tell() > ct.MAX_U32:
        raise BootpkgError(f"the package would be {out.tell()} bytes; records must end below "
                           f"2^32 ({ct.MAX_U32} bytes at most)")
    table = entries(plan)
    out.seek(0)
    out.write(ct.pack_header(plan.count or len(table), req.created, table))
    if plan.changed is not None:
        change_byte(out, plan, req)
    if plan.truncate is not None:
        out.truncate(plan.truncate)


def build(req):
    """Writes the package REQ describes to REQ.out, replacing it only when all went well."""
    check_request(req)
    plan = make_plan(req)
    for path in req.files:
        if os.path.exists(req.out) and os.path.samefile(path, req.out):
            raise BootpkgError(f"{req.out} is an input file too")
    directory = os.path.dirname(os.path.abspath(req.out))
    if not os.path.isdir(directory):
        raise BootpkgError(f"{req.out}: the directory {directory} does not exist")
    handle, temp = tempfile.mkstemp(prefix=".bootpkg-", dir=directory)
    try:
        with os.fdopen(handle, "r+b") as out:
            fill(out, plan, req)
        umask = os.umask(0)
        os.umask(umask)
        os.chmod(temp, 0o666 & ~umask)
        os.replace(temp, req.out)
    except BaseException:
        os.unlink(temp)
        raise
    return plan
