"""bootpkg build, list, check and extract: packages are read back here with struct, field by
field, independently of bootpkg's own reader; signatures are checked with openssl itself; every
--break rule is compared with the package that the same inputs make without it."""
import hashlib
import os
import struct
import subprocess
import time
import zlib

import pytest

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BOOTPKG = os.path.join(REPO, "tools", "bootpkg", "bootpkg")

HEADER = 6180
SLOT = 24
FILE_HEADER = 352
CREATED = 1700000000
CREATOR = "Velmor Technology Inc."


def bootpkg(*args, env=None):
    return subprocess.run([BOOTPKG, *map(str, args)], capture_output=True, text=True,
                          check=False, env=env)


def openssl(*args):
    done = subprocess.run(["openssl", *map(str, args)], capture_output=True, check=False)
    return done.returncode, done.stdout.decode(errors="replace") + done.stderr.decode(
        errors="replace")


def sha(data):
    return hashlib.sha256(data).hexdigest()


def u32(data, at):
    return struct.unpack_from(">I", data, at)[0]


def bin_of(name):
    return name if name.endswith(".bin") else name.split(".", 1)[0] + ".bin"


class Record:
    """A record as read straight from the package bytes through its entry."""

    def __init__(self, data, slot):
        at = 32 + slot * SLOT
        self.entry = data[at:at + SLOT]
        self.slot_index = u32(data, at)
        self.offset = u32(data, at + 4)
        self.length = u32(data, at + 8)
        self.entry_actual_length = u32(data, at + 12)
        self.entry_kind = u32(data, at + 16)
        self.entry_tail = data[at + 20:at + 24]
        self.bytes = data[self.offset:self.offset + self.length]
        head = self.bytes[:FILE_HEADER]
        self.head = head
        if len(head) == FILE_HEADER:
            self.magic = head[0:4]
            self.index = u32(head, 4)
            self.kind = struct.unpack_from("<I", head, 8)[0]
            self.created = u32(head, 12)
            self.actual_field = head[116:244]
            self.bin_field = head[244:340]
            self.actual_name = self.actual_field.split(b"\0")[0].decode()
            self.bin_name = self.bin_field.split(b"\0")[0].decode()
            self.actual_length = u32(head, 340)
        self.contents = self.bytes[FILE_HEADER:]

    @property
    def end(self):
        return self.offset + self.length


class Package:
    def __init__(self, path):
        self.data = open(path, "rb").read()
        self.count = u32(self.data, 4)
        self.records = [Record(self.data, i) for i in range(min(self.count, 256))]

    def named(self, bin_name):
        return [r for r in self.records if r.bin_name == bin_name]


def assert_contiguous(package):
    end = HEADER
    for record in package.records:
        assert record.offset == end
        assert record.length == FILE_HEADER + record.actual_length
        end = record.end
    assert end == len(package.data)


def list_text(files):
    """The expected file list of (binName, kind, record bytes) triples."""
    lines = ["[MAIN FILE INFO]", f"Create By={CREATOR}", f"FILENUM={len(files)}"]
    for number, (name, kind, record) in enumerate(files, start=1):
        lines += [f"[FILE{number}]", f"FILENAME={name}", f"FILETYPE={kind}",
                  f"SHA256-DIGEST={sha(record)}"]
    return ("\n".join(lines) + "\n").encode()


@pytest.fixture(scope="module")
def pki(tmp_path_factory):
    out = tmp_path_factory.mktemp("pki") / "pki"
    subprocess.run([BOOTPKG, "pki", "--out", str(out)], check=True)
    return out


INPUTS = {
    "kernel.img.gz": b"kernel image\n" * 100,
    "rootfs": bytes(range(256)) * 300,
    "empty.cfg": b"",
    "boot.bin": b"boot loader",
}


@pytest.fixture
def inputs(tmp_path):
    folder = tmp_path / "in"
    folder.mkdir()
    paths = []
    for name, data in INPUTS.items():
        (folder / name).write_bytes(data)
        paths.append(folder / name)
    return paths


def build(out, *args):
    done = bootpkg("build", "--out", out, "--time", CREATED, *args)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    assert done.stdout == ""
    return Package(out)


def sign_args(pki, scheme):
    signer = "classic_signer" if scheme == "classic" else "pss_signer"
    args = ["--sign", scheme, "--signer", pki / f"{signer}.pem", "--key", pki / f"{signer}.key"]
    if scheme == "classic":
        args += ["--crl", pki / "crl_empty.der"]
    return args


def cms_verifies(tmp_path, package, list_name, cms_name, root):
    content, signature = tmp_path / "content", tmp_path / "signature"
    content.write_bytes(package.named(list_name)[0].contents)
    signature.write_bytes(package.named(cms_name)[0].contents)
    code, text = openssl("cms", "-verify", "-binary", "-inform", "DER", "-in", signature,
                         "-content", content, "-CAfile", root, "-purpose", "any",
                         "-out", os.devnull)
    return code == 0, text


def signature_algorithm(tmp_path, package, cms_name):
    signature = tmp_path / "algorithm.cms"
    signature.write_bytes(package.named(cms_name)[0].contents)
    code, text = openssl("cms", "-cmsout", "-print", "-inform", "DER", "-in", signature)
    assert code == 0
    return text.split("signatureAlgorithm:")[-1].split("algorithm:")[1].split()[0]


def test_every_field_of_an_unsigned_package(tmp_path, inputs):
    package = build(tmp_path / "a.cc", "--kind", "rootfs=7", "--kind", "boot.bin=0x10",
                    *inputs)
    data = package.data
    assert data[0:4] == b"BPK1"
    assert package.count == 5
    assert (u32(data, 8), u32(data, 12)) == (1, CREATED)
    assert data[16:32] == bytes(16)
    assert u32(data, 6176) == zlib.crc32(data[:6176])
    assert data[32 + 5 * SLOT:6176] == bytes((256 - 5) * SLOT)
    kinds = {"kernel.img.gz": 1, "rootfs": 7, "empty.cfg": 1, "boot.bin": 16,
             "signature_filelist": 1}
    assert_contiguous(package)
    for index, (record, name) in enumerate(zip(package.records, kinds)):
        contents = INPUTS.get(name, record.contents)
        assert (record.slot_index, record.entry_actual_length, record.entry_kind) == (
            index, len(contents), kinds[name])
        assert record.entry_tail == bytes(4)
        head = record.head
        assert (record.magic, record.index, record.created) == (b"BREC", index, CREATED)
        assert head[8:12] == struct.pack("<I", kinds[name])
        assert head[16:116] == bytes(100)
        assert record.actual_field == name.encode().ljust(128, b"\0")
        assert record.bin_field == bin_of(name).encode().ljust(96, b"\0")
        assert record.actual_length == len(contents)
        assert u32(head, 344) == zlib.crc32(head[:344])
        assert head[348:352] == bytes(4)
        assert record.contents == contents
    names = ["kernel.bin", "rootfs.bin", "empty.bin", "boot.bin"]
    listed = [(n, kinds[a], r.bytes) for n, a, r in zip(names, kinds, package.records)]
    assert package.records[4].contents == list_text(listed)


def test_list_prints_each_record_with_its_digests(tmp_path, inputs):
    package = build(tmp_path / "a.cc", "--kind", "empty.cfg=3", *inputs)
    done = bootpkg("list", tmp_path / "a.cc")
    expected = "".join(
        f"{i}\t{r.offset}\t{r.length}\t{r.actual_length}\t{r.kind}\t{r.bin_name}\t"
        f"{r.actual_name}\t{sha(r.bytes)}\t{sha(r.contents)}\n"
        for i, r in enumerate(package.records))
    assert (done.returncode, done.stdout, done.stderr) == (0, expected, "")
    assert done.stdout.splitlines()[2].split("\t")[:7] == [
        "2", str(package.records[2].offset), "352", "0", "3", "empty.bin", "empty.cfg"]


def test_list_escapes_unusual_name_bytes(tmp_path):
    odd = tmp_path / "tab\\ü.img"
    odd.write_bytes(b"x")
    build(tmp_path / "a.cc", "--no-list", odd)
    done = bootpkg("list", tmp_path / "a.cc")
    columns = done.stdout.rstrip("\n").split("\t")
    assert columns[5:7] == ["tab\\\\\\xc3\\xbc.bin", "tab\\\\\\xc3\\xbc.img"]


def test_no_list_and_list_only(tmp_path, inputs):
    bare = build(tmp_path / "bare.cc", "--no-list", *inputs)
    assert [r.actual_name for r in bare.records] == list(INPUTS)
    assert_contiguous(bare)
    some = build(tmp_path / "some.cc", "--list-only", "rootfs", "--list-only", "boot.bin",
                 *inputs)
    assert some.records[4].contents == list_text(
        [("rootfs.bin", 1, some.records[1].bytes), ("boot.bin", 1, some.records[3].bytes)])
    done = bootpkg("check", "--unsigned", tmp_path / "some.cc")
    assert done.returncode == 1
    assert done.stderr == "".join(
        f"bootpkg: {tmp_path / 'some.cc'}: signature_filelist.bin: record {n} is not listed\n"
        for n in ("kernel.bin", "empty.bin"))
    done = bootpkg("check", "--unsigned", "--exempt", "kernel.img.gz", "--exempt", "empty.cfg",
                   tmp_path / "some.cc")
    assert done.returncode == 0, done.stderr


@pytest.mark.parametrize("scheme", ["classic", "pss"])
def test_signed_package_verifies_with_openssl(tmp_path, inputs, pki, scheme):
    out = tmp_path / "signed.cc"
    package = build(out, *sign_args(pki, scheme), "--ca", pki / "root_ca.pem", *inputs)
    assert_contiguous(package)
    infix = "" if scheme == "classic" else "pss_"
    names = [f"signature_{infix}filelist", f"signature_{infix}cms"]
    names += ["signature_crl"] if scheme == "classic" else []
    assert [r.actual_name for r in package.records[4:]] == names
    assert [r.bin_name for r in package.records[4:]] == [n + ".bin" for n in names]
    listed = [(r.bin_name, 1, r.bytes) for r in package.records[:4]]
    list_name, cms_name = names[0] + ".bin", names[1] + ".bin"
    assert package.named(list_name)[0].contents == list_text(listed)
    assert cms_verifies(tmp_path, package, list_name, cms_name, pki / "root_ca.pem")[0]
    assert not cms_verifies(tmp_path, package, list_name, cms_name,
                            pki / "foreign_root.pem")[0]
    expected_algorithm = "rsaEncryption" if scheme == "classic" else "rsassaPss"
    assert signature_algorithm(tmp_path, package, cms_name) == expected_algorithm
    root = pki / "root_ca.pem"
    lines = [f"layout: {len(names) + 4} records, {len(package.data)} bytes, no faults",
             f"{scheme} list: 4 files, digests match"]
    if scheme == "classic":
        assert package.named("signature_crl.bin")[0].contents == (
            pki / "crl_empty.der").read_bytes()
        lines += [f"classic signature: rsaEncryption, verified against {root} and its CRL",
                  f"classic CRL: issued by {root}"]
    else:
        lines += [f"pss signature: rsassaPss, verified against {root}"]
    done = bootpkg("check", "--ca", root, "--crl-check", out)
    assert (done.returncode, done.stdout, done.stderr) == (0, "\n".join(lines) + "\n", "")


def test_check_with_crl_refuses_a_revoked_signer(tmp_path, inputs, pki):
    out = tmp_path / "revoked.cc"
    build(out, "--sign", "classic", "--signer", pki / "revoked_signer.pem",
          "--key", pki / "revoked_signer.key", "--crl", pki / "crl_revoking.der", *inputs)
    root = pki / "root_ca.pem"
    assert bootpkg("check", "--ca", root, out).returncode == 0
    done = bootpkg("check", "--ca", root, "--crl-check", out)
    assert done.returncode == 1
    assert done.stderr == (f"bootpkg: {out}: signature_cms.bin: does not verify against "
                           f"{root}: Verify error: certificate revoked\n")


def test_signature_files_take_their_kinds(tmp_path, inputs, pki):
    package = build(tmp_path / "k.cc", *sign_args(pki, "pss"), "--kind",
                    "signature_pss_cms=9", "--kind", "signature_pss_filelist.bin=8", *inputs)
    assert [r.kind for r in package.records[4:]] == [8, 9]


def test_source_date_epoch_sets_the_creation_time(tmp_path, inputs):
    env = dict(os.environ, SOURCE_DATE_EPOCH="12345")
    done = bootpkg("build", "--out", tmp_path / "e.cc", inputs[0], env=env)
    assert done.returncode == 0, done.stderr
    package = Package(tmp_path / "e.cc")
    assert u32(package.data, 12) == 12345
    assert package.records[0].created == 12345


def test_extract_writes_files_and_whole_records(tmp_path, inputs):
    package = build(tmp_path / "x.cc", *inputs)
    done = bootpkg("extract", tmp_path / "x.cc", "--out", tmp_path / "files")
    assert done.returncode == 0, done.stderr
    for name, data in INPUTS.items():
        assert (tmp_path / "files" / name).read_bytes() == data
    done = bootpkg("extract", tmp_path / "x.cc", "--out", tmp_path / "bins", "--whole",
                   "rootfs")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == f"{tmp_path / 'bins' / 'rootfs.bin'}\n"
    assert (tmp_path / "bins" / "rootfs.bin").read_bytes() == package.records[1].bytes
    assert os.listdir(tmp_path / "bins") == ["rootfs.bin"]


# --- deliberately broken packages -------------------------------------------------------------


@pytest.fixture
def reference(tmp_path, inputs):
    """The unbroken package of the inputs; a broken one must differ only by its fault."""
    return build(tmp_path / "reference.cc", *inputs)


def broken(tmp_path, inputs, *args):
    return build(tmp_path / "broken.cc", *args, *inputs)


def list_faults(tmp_path):
    done = bootpkg("list", tmp_path / "broken.cc")
    assert done.returncode == 1
    prefix = f"bootpkg: {tmp_path / 'broken.cc'}: "
    assert all(line.startswith(prefix) for line in done.stderr.splitlines())
    return [line[len(prefix):] for line in done.stderr.splitlines()]


def with_header(data, count=None, changes=()):
    """DATA with its fileCount and entry words (offset, value) replaced and the CRC redone."""
    data = bytearray(data)
    if count is not None:
        struct.pack_into(">I", data, 4, count)
    for at, value in changes:
        struct.pack_into(">I", data, at, value)
    struct.pack_into(">I", data, 6176, zlib.crc32(data[:6176]))
    return bytes(data)


def test_break_count_257(tmp_path, inputs, reference):
    package = broken(tmp_path, inputs, "--break", "count-257")
    assert package.data == with_header(reference.data, count=257)
    assert list_faults(tmp_path) == ["fileCount 257 is above 256"]


@pytest.mark.parametrize("extra,after,size", [([], 0, 16), (["--target", "empty.cfg", "--size",
                                                               "5"], 2, 5)])
def test_break_gap(tmp_path, inputs, reference, extra, after, size):
    package = broken(tmp_path, inputs, "--break", "gap", *extra)
    gap_at = package.records[after].end
    assert package.records[after + 1].offset == gap_at + size
    assert package.data[gap_at:gap_at + size] == bytes(size)
    assert [r.bytes for r in package.records] == [r.bytes for r in reference.records]
    assert package.data[HEADER:gap_at] == reference.data[HEADER:gap_at]
    assert package.data[gap_at + size:] == reference.data[gap_at:]
    assert list_faults(tmp_path) == [f"record {after + 1} starts at {gap_at + size}, {size} "
                                     f"bytes after the end of record {after}"]


def test_break_overlap(tmp_path, inputs):
    order = [inputs[1], inputs[0], inputs[3], inputs[2]]  # rootfs (76800 bytes) first
    reference = build(tmp_path / "reference.cc", *order)
    package = broken(tmp_path, order, "--break", "overlap", "--size", "40")
    first, second = package.records[0], package.records[1]
    assert (first.offset, first.length) == (HEADER, reference.records[0].length)
    assert second.offset == first.end - 40
    assert second.bytes == reference.records[1].bytes
    # Read through its entry, the first record ends with the start of the second's header.
    assert first.bytes == reference.records[0].bytes[:-40] + second.head[:40]
    listed = package.records[4].contents.decode()
    assert f"SHA256-DIGEST={sha(first.bytes)}" in listed
    assert f"SHA256-DIGEST={sha(second.bytes)}" in listed
    for record in package.records[2:]:
        assert record.offset == package.records[record.index - 1].end
    assert package.records[-1].end == len(package.data)
    assert list_faults(tmp_path) == [f"record 1 starts at {second.offset}, 40 bytes before "
                                     "the end of record 0"]
    done = bootpkg("check", "--unsigned", tmp_path / "broken.cc")
    assert done.returncode == 1


def test_break_zero_length(tmp_path, inputs, reference):
    package = broken(tmp_path, inputs, "--break", "zero-length", "--target", "rootfs")
    assert package.count == reference.count + 1
    zero = package.records[1]
    assert (zero.slot_index, zero.offset, zero.length, zero.entry_actual_length,
            zero.entry_kind) == (1, reference.records[1].offset, 0, 0, 0)
    others = package.records[:1] + package.records[2:]
    assert [r.slot_index for r in others] == [0, 2, 3, 4, 5]
    assert [r.index for r in others] == [0, 2, 3, 4, 5]
    assert [r.contents for r in others[:4]] == list(INPUTS.values())
    assert [r.offset for r in others] == [r.offset for r in reference.records]
    # The file headers carry their slot numbers, so the listed digests are those of the
    # shifted records.
    assert others[4].contents == list_text([(r.bin_name, 1, r.bytes) for r in others[:4]])
    assert list_faults(tmp_path) == ["record 1: recordLength is 0"]


def test_break_wrap(tmp_path, inputs, reference):
    package = broken(tmp_path, inputs, "--break", "wrap")
    last = package.records[-1]
    assert last.length == 0xFFFFFFFF and last.offset + last.length > 1 << 32
    slot = 32 + 4 * SLOT
    assert package.data == with_header(reference.data, changes=[(slot + 8, 0xFFFFFFFF)])
    assert list_faults(tmp_path) == [f"record 4: recordOffset {last.offset} + recordLength "
                                     "4294967295 wraps past 2^32"]


def test_break_trailing_bytes(tmp_path, inputs, reference):
    broken(tmp_path, inputs, "--break", "trailing-bytes", "--size", "3")
    assert (tmp_path / "broken.cc").read_bytes() == reference.data + bytes(3)
    assert list_faults(tmp_path) == ["3 bytes follow the end of the last record"]


@pytest.mark.parametrize("rule,option,name,at", [
    ("duplicate-binname", [], "kernel.img.gz", 0),
    ("duplicate-binname", ["--target", "empty.bin"], "empty.cfg", 2),
    ("duplicate-exempt", ["--firmware", "boot.bin"], "boot.bin", 3),
])
def test_break_duplicate(tmp_path, inputs, rule, option, name, at):
    package = broken(tmp_path, inputs, "--break", rule, *option)
    assert_contiguous(package)
    assert package.count == 6
    first, second = package.records[at], package.records[at + 1]
    assert (first.actual_name, second.actual_name) == (name, name)
    assert first.bin_name == second.bin_name == bin_of(name)
    assert first.contents == second.contents == INPUTS[name]
    assert second.bytes[4:8] == struct.pack(">I", at + 1)
    assert first.bytes[8:344] == second.bytes[8:344]
    listed = package.records[5].contents.decode()
    assert "FILENUM=5" in listed
    assert listed.count(f"FILENAME={bin_of(name)}\n") == 2
    assert f"SHA256-DIGEST={sha(second.bytes)}" in listed
    assert list_faults(tmp_path) == [f"record {at + 1} has the binName {bin_of(name)} of "
                                     f"record {at}"]


@pytest.mark.parametrize("rule", ["no-terminator", "no-terminator-actual", "no-terminator-bin"])
def test_break_no_terminator(tmp_path, inputs, reference, rule):
    package = broken(tmp_path, inputs, "--break", rule, "--target", "rootfs")
    record = package.records[1]
    actual_full = rule != "no-terminator-bin"
    bin_full = rule != "no-terminator-actual"
    expected_actual = (b"rootfs" + b"X" * 122) if actual_full else b"rootfs".ljust(128, b"\0")
    expected_bin = (b"rootfs.bin" + b"X" * 86) if bin_full else b"rootfs.bin".ljust(96, b"\0")
    assert (record.actual_field, record.bin_field) == (expected_actual, expected_bin)
    assert record.bytes[:116] == reference.records[1].bytes[:116]
    assert record.bytes[340:344] == reference.records[1].bytes[340:344]
    assert record.contents == INPUTS["rootfs"]
    assert_contiguous(package)
    listed = package.records[4].contents.decode()
    assert f"FILENAME=rootfs.bin\nFILETYPE=1\nSHA256-DIGEST={sha(record.bytes)}\n" in listed
    faults = []
    if actual_full:
        faults.append("record 1: actualName fills its 128 bytes without a NUL")
    if bin_full:
        faults.append("record 1: binName fills its 96 bytes without a NUL")
    assert list_faults(tmp_path) == faults


@pytest.mark.parametrize("size", [None, 100, 0])
def test_break_truncated_header(tmp_path, inputs, reference, size):
    extra = [] if size is None else ["--size", size]
    done = bootpkg("build", "--out", tmp_path / "broken.cc", "--time", CREATED, "--break",
                   "truncated-header", *extra, *inputs)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    length = 6179 if size is None else size
    assert (tmp_path / "broken.cc").read_bytes() == reference.data[:length]
    assert list_faults(tmp_path) == [f"the file has {length} bytes, fewer than the 6180-byte "
                                     "package header"]


def test_break_changed_byte_after_signing(tmp_path, inputs, pki):
    out = tmp_path / "broken.cc"
    package = broken(tmp_path, inputs, *sign_args(pki, "classic"), "--break", "changed-byte",
                     "--target", "rootfs", "--byte", "1000")
    record = package.records[1]
    assert record.contents[1000 - FILE_HEADER] == INPUTS["rootfs"][1000 - FILE_HEADER] ^ 0xFF
    original = record.bytes[:1000] + bytes([record.bytes[1000] ^ 0xFF]) + record.bytes[1001:]
    assert record.contents[:1000 - FILE_HEADER] == INPUTS["rootfs"][:1000 - FILE_HEADER]
    assert record.contents[1001 - FILE_HEADER:] == INPUTS["rootfs"][1001 - FILE_HEADER:]
    listed = package.records[4].contents.decode()
    assert f"SHA256-DIGEST={sha(original)}" in listed
    assert sha(record.bytes) not in listed
    assert cms_verifies(tmp_path, package, "signature_filelist.bin", "signature_cms.bin",
                        pki / "root_ca.pem")[0]
    done = bootpkg("list", out)
    assert (done.returncode, done.stderr) == (0, "")
    done = bootpkg("check", "--ca", pki / "root_ca.pem", out)
    assert done.returncode == 1
    assert done.stderr == (f"bootpkg: {out}: signature_filelist.bin: the digest of rootfs.bin "
                           "does not match its record\n")


def test_break_changed_byte_defaults_to_the_first_file_byte(tmp_path, inputs, reference):
    package = broken(tmp_path, inputs, "--break", "changed-byte")
    at = HEADER + FILE_HEADER
    assert package.data[at] == reference.data[at] ^ 0xFF
    assert package.data[:at] + package.data[at + 1:] == (
        reference.data[:at] + reference.data[at + 1:])


def test_break_wrong_signer(tmp_path, inputs, pki):
    out = tmp_path / "broken.cc"
    root = pki / "root_ca.pem"
    foreign = ["--sign", "classic", "--signer", pki / "foreign_signer.pem",
               "--key", pki / "foreign_signer.key", "--crl", pki / "crl_empty.der"]
    package = broken(tmp_path, inputs, *foreign, "--break", "wrong-signer", "--ca", root)
    verified, text = cms_verifies(tmp_path, package, "signature_filelist.bin",
                                  "signature_cms.bin", root)
    assert not verified and "unable to get local issuer certificate" in text
    assert cms_verifies(tmp_path, package, "signature_filelist.bin", "signature_cms.bin",
                        pki / "foreign_root.pem")[0]
    done = bootpkg("build", "--out", out, *sign_args(pki, "classic"), "--break", "wrong-signer",
                   "--ca", root, *inputs)
    assert done.returncode == 1
    assert done.stderr == (f"bootpkg: the signature by {pki / 'classic_signer.pem'} verifies "
                           f"against {root}; it is not a wrong signer\n")
    done = bootpkg("build", "--out", out, *foreign, "--ca", root, *inputs)
    assert done.returncode == 1
    assert done.stderr.startswith(f"bootpkg: the signature by {pki / 'foreign_signer.pem'} "
                                  f"does not verify against {root}: ")


@pytest.mark.parametrize("scheme,rule,left", [
    ("classic", "missing-list", ["signature_cms", "signature_crl"]),
    ("classic", "missing-cms", ["signature_filelist", "signature_crl"]),
    ("classic", "missing-crl", ["signature_filelist", "signature_cms"]),
    ("pss", "missing-list", ["signature_pss_cms"]),
    ("pss", "missing-cms", ["signature_pss_filelist"]),
])
def test_break_missing_signature_files(tmp_path, inputs, pki, scheme, rule, left):
    args = sign_args(pki, scheme)
    if rule == "missing-crl":
        args = args[:-2]
    package = broken(tmp_path, inputs, *args, "--break", rule)
    assert [r.actual_name for r in package.records] == list(INPUTS) + left
    assert_contiguous(package)
    done = bootpkg("check", "--ca", pki / "root_ca.pem", tmp_path / "broken.cc")
    assert done.returncode == 1
    all_names = {"classic": ["signature_filelist", "signature_cms", "signature_crl"],
                 "pss": ["signature_pss_filelist", "signature_pss_cms"]}[scheme]
    gone = [n for n in all_names if n not in left]
    assert done.stderr == "".join(f"bootpkg: {tmp_path / 'broken.cc'}: {scheme}: no {n}.bin\n"
                                  for n in gone)


def test_check_reports_layout_faults(tmp_path, inputs):
    broken(tmp_path, inputs, "--break", "gap")
    done = bootpkg("check", "--unsigned", tmp_path / "broken.cc")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.endswith("bytes after the end of record 0\n")


# --- refused inputs ----------------------------------------------------------------------------


def refused(tmp_path, *args):
    out = tmp_path / "refused.cc"
    done = bootpkg("build", "--out", out, *args)
    assert (done.returncode, done.stdout) == (1, "")
    assert not out.exists()
    assert [n for n in os.listdir(tmp_path) if n.startswith(".bootpkg-")] == []
    return done.stderr


def test_refuses_empty_input(tmp_path):
    assert refused(tmp_path) == "bootpkg: no input files\n"


def test_name_lengths(tmp_path):
    longest = tmp_path / ("k." + "x" * 125)  # 127 bytes, binName k.bin
    longest.write_bytes(b"1")
    too_long = tmp_path / ("k." + "x" * 126)
    too_long.write_bytes(b"1")
    bin_longest = tmp_path / ("b" * 91 + ".img")  # binName of 95 bytes
    bin_longest.write_bytes(b"2")
    bin_too_long = tmp_path / ("b" * 92 + ".img")
    bin_too_long.write_bytes(b"2")
    package = build(tmp_path / "ok.cc", longest, bin_longest)
    assert package.records[0].actual_field == longest.name.encode() + b"\0"
    assert package.records[1].bin_field == b"b" * 91 + b".bin\0"
    assert refused(tmp_path, too_long) == (
        f"bootpkg: {too_long}: the name is 128 bytes long; an actualName holds at most 127\n")
    assert refused(tmp_path, bin_too_long) == (
        f"bootpkg: {bin_too_long}: the binName {'b' * 92}.bin is 96 bytes long; a binName "
        "holds at most 95\n")


def test_refuses_colliding_bin_names(tmp_path, inputs):
    other = tmp_path / "kernel.tar"
    other.write_bytes(b"k")
    assert refused(tmp_path, inputs[0], other) == (
        f"bootpkg: {inputs[0]} and {other} both have the binName kernel.bin\n")
    signature_named = tmp_path / "signature_filelist.txt"
    signature_named.write_bytes(b"s")
    assert refused(tmp_path, signature_named) == (
        f"bootpkg: {signature_named} and signature_filelist both have the binName "
        "signature_filelist.bin\n")
    assert build(tmp_path / "no-list.cc", "--no-list", signature_named).count == 1


def test_file_counts(tmp_path):
    folder = tmp_path / "many"
    folder.mkdir()
    files = []
    for number in range(257):
        files.append(folder / f"f{number:03}")
        files[-1].write_bytes(b"")
    assert refused(tmp_path, "--no-list", *files) == (
        "bootpkg: a package holds at most 256 records; this one would have 257 (257 files and "
        "0 signature files)\n")
    assert refused(tmp_path, *files[:256]) == (
        "bootpkg: a package holds at most 256 records; this one would have 257 (256 files and "
        "1 signature file)\n")
    package = build(tmp_path / "full.cc", "--no-list", *files[:256])
    assert package.count == 256
    assert_contiguous(package)
    package = build(tmp_path / "listed.cc", *files[:255])
    assert package.records[255].contents.startswith(
        f"[MAIN FILE INFO]\nCreate By={CREATOR}\nFILENUM=255\n".encode())
    assert bootpkg("check", "--unsigned", tmp_path / "listed.cc").returncode == 0


@pytest.mark.parametrize("args,message", [
    (["--kind", "nothing=3"], "--kind nothing: no file of the package has this name"),
    (["--kind", "rootfs=0"], "rootfs.bin has fileKind 0, but a listed FILETYPE must not be 0"),
    (["--size", "3"], "--size belongs to --break"),
    (["--break", "gap", "--byte", "3"], "--byte does not apply to --break gap"),
    (["--break", "duplicate-exempt"], "--break duplicate-exempt needs --firmware NAME"),
    (["--break", "missing-cms"], "--break missing-cms needs --sign"),
    (["--break", "overlap", "--target", "boot.bin"],
     "--break overlap needs two records that are not signature files"),
    (["--target", "nothing", "--break", "wrap"],
     "--target nothing: no record of the package has this name"),
])
def test_refuses_bad_requests(tmp_path, inputs, args, message):
    assert refused(tmp_path, *args, *inputs) == f"bootpkg: {message}\n"


def test_refuses_overlaps_that_do_not_fit(tmp_path, inputs):
    # kernel.img.gz carries 1300 bytes: an overlap of 400 is longer than the next file header.
    assert refused(tmp_path, "--break", "overlap", "--size", "400", *inputs) == (
        "bootpkg: --size 400: the overlap is longer than the 352-byte file header of rootfs\n")
    assert refused(tmp_path, "--break", "overlap", "--target", "empty.cfg", *inputs) == (
        "bootpkg: --size 16: the overlap is longer than the 0 file bytes of empty.cfg\n")


def test_refuses_missing_input(tmp_path):
    assert refused(tmp_path, tmp_path / "absent") == (
        f"bootpkg: {tmp_path / 'absent'}: No such file or directory\n")


# --- large input ------------------------------------------------------------------------------


def run_measured(*args):
    """Exit status, seconds and peak resident memory (KiB) of one bootpkg run."""
    started = time.monotonic()
    child = subprocess.Popen([BOOTPKG, *map(str, args)], stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
    out = child.stdout.read()
    child.stderr.read()
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    child.stdout.close()
    child.stderr.close()
    return child.returncode, time.monotonic() - started, usage.ru_maxrss, out


def test_a_one_gib_file_is_streamed(tmp_path):
    big = tmp_path / "huge.img"
    with open(big, "wb") as sparse:
        sparse.truncate(1 << 30)
    out = tmp_path / "huge.cc"
    try:
        code, seconds, peak, _ = run_measured("build", "--out", out, "--time", CREATED, big)
        assert code == 0
        assert peak < 64 * 1024, f"peak resident memory {peak} KiB"
        assert seconds < 120
        assert out.stat().st_size == HEADER + FILE_HEADER + (1 << 30) + FILE_HEADER + len(
            list_text([("huge.bin", 1, b"")]))
        with open(out, "rb") as package:
            head = package.read(HEADER)
            assert (u32(head, 4), u32(head, 36), u32(head, 40)) == (
                2, HEADER, FILE_HEADER + (1 << 30))
            record = hashlib.sha256(package.read(FILE_HEADER))
            zeros = bytes(1 << 20)
            for _ in range(1024):
                assert package.read(1 << 20) == zeros
                record.update(zeros)
            listed = package.read()[FILE_HEADER:]
        assert listed == list_text([("huge.bin", 1, b"")]).replace(
            sha(b"").encode(), record.hexdigest().encode())
        code, seconds, peak, stdout = run_measured("list", out)
        assert code == 0 and peak < 64 * 1024 and seconds < 120
        first = stdout.decode().splitlines()[0].split("\t")
        assert first[3] == str(1 << 30)
        assert first[7] == record.hexdigest()
    finally:
        big.unlink()
        if out.exists():
            out.unlink()
