"""Operations 0, 5 and 8 through the front-end, on a main board whose platform trusts the build's
test root and whose boot environment names the package it runs (next_bootfile).

Packages are written and signed with bootpkg on the host (both schemes, and the hostile ones of
its --break rules) and copied into the board with `bootsim package`. Every refused package is
checked for its exact result, its exact log lines and for nothing written: the destination
directory and /tmp are as they were. A package whose container does not hold together (a gap,
an overlap, an entry of length 0, a record end past 4 GiB, trailing bytes, a record twice) is
refused as a whole, even where one of its records would prove.
"""
import subprocess
import sys

import pytest

from boot_log import messages
from bootsim_helpers import REPO, build_dir
from ftp_boards import result_line, with_log_path

BOOTPKG = REPO / "tools" / "bootpkg" / "bootpkg"
HOME = "/opt/kytv8/home"
PACKAGE = f"{HOME}/test.cc"
RUNNING = f"{HOME}/running.cc"
OUT = "/var/lib/extout"
STAGING = "/var/lib/sys_preloader"
SIGNATURE_FILES = ["signature_filelist", "signature_cms", "signature_crl",
                   "signature_pss_filelist", "signature_pss_cms"]
LOGS = {0: "/var/lib/swm/workdir/var/log/app_boot.log",
        1: "/var/lib/swm/workdir/var/log/boot_security.log"}

KERNEL = b"k" * 5000
ROOTFS = b"root file system\n"
APP = b"application\n"
FIRMWARE = b"bitstream\n"

NOT_FOUND = 0x10000007
ERROR = 0xFFFFFFFF
UNTRUSTED = 0x30000005


def pki(name):
    return str(build_dir() / "pki" / name)


def bootpkg(*args, faults_allowed=False):
    """bootpkg's standard output; `list` reports layout faults with status 1 (FAULTS_ALLOWED)."""
    result = subprocess.run([sys.executable, str(BOOTPKG), *map(str, args)],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    assert result.returncode in ((0, 1) if faults_allowed else (0,)), result.stderr.decode()
    return result.stdout.decode()


def signed_by(scheme, signer=None):
    who = signer or f"{scheme}_signer"
    options = ["--sign", scheme, "--signer", pki(f"{who}.pem"), "--key", pki(f"{who}.key")]
    if scheme == "classic":
        options += ["--crl", pki("crl_empty.der")]
    return options


@pytest.fixture
def inputs(tmp_path):
    files = {"kernel.img.gz": KERNEL, "rootfs": ROOTFS, "app.bin": APP,
             "mpu_fpga.img": FIRMWARE}
    for name, data in files.items():
        (tmp_path / name).write_bytes(data)
    return tmp_path


def build(inputs, options, names=("kernel.img.gz", "rootfs", "app.bin"), out="test.cc"):
    path = inputs / out
    bootpkg("build", "--out", path, "--time", "1700000000", *options,
            *[inputs / name for name in names])
    return path


def records(path):
    """{binName: (offset, length, actualLength, record digest)} as `bootpkg list` reads them."""
    listed = {}
    for line in bootpkg("list", path, faults_allowed=True).splitlines():
        fields = line.split("\t")
        if len(fields) == 9 and fields[4] != "-":
            listed.setdefault(fields[5], (int(fields[1]), int(fields[2]), int(fields[3]),
                                          fields[7]))
    return listed


def file_bytes(path, bin_name):
    offset, _, actual, _ = records(path)[bin_name]
    return path.read_bytes()[offset + 352:offset + 352 + actual]


def whole_record(path, bin_name):
    offset, length, _, _ = records(path)[bin_name]
    return path.read_bytes()[offset:offset + length]


def listed_digest(path, bin_name, list_name="signature_pss_filelist.bin"):
    text = file_bytes(path, list_name).decode()
    section = text[text.index(f"FILENAME={bin_name}\n"):]
    return section[section.index("SHA256-DIGEST=") + 14:][:64]


@pytest.fixture
def made(board):
    """An active main board trusting the test root, running RUNNING, with a file of its own in
    the destination directory."""
    made = with_log_path(board("mmb", settings={"security.root_ca": pki("root_ca.der")}))
    made.set_env(next_bootfile=RUNNING)
    made.write(f"{OUT}/keep", "was here")
    return made


def lines(made, log_type):
    return made.log_lines(type=log_type) if made.exists(LOGS[log_type]) else []


def run(made, *args):
    """bootinit --print-result ARGS: (CompletedProcess, new main log lines, new security lines)."""
    before = {t: len(lines(made, t)) for t in LOGS}
    result = made.bootinit("--print-result", *map(str, args))
    after = {t: messages(lines(made, t)[before[t]:]) for t in LOGS}
    return result, after[0], after[1]


def extract(made, name, package=PACKAGE, out=OUT):
    return run(made, "0", "1", package, name, out)


def state(made, directory):
    """{name: bytes} of a directory of the board."""
    text = made.sh(f"cd {directory} 2>/dev/null && for f in .* *; do "
                   f"[ -f \"$f\" ] && printf '%s\\n' \"$f\"; done; true").stdout.decode()
    return {name: made.read_bytes(f"{directory}/{name}") for name in text.split()}


def tmp_signature_files(made):
    return [name for name in SIGNATURE_FILES if made.exists(f"/tmp/{name}")]


def done(code, name):
    return f"[BOOT_INIT][INFO]:Extract file by fileName, result = 0x{code:x}, FileName = {name}"


def missing(name, directory, package=PACKAGE):
    return [f"[BOOT_INIT][WARNING]:FindTarget: no such file {name}",
            f"[BOOT_INIT][WARNING]:ExtractFileInner: get file failed, name:{name}",
            f"[BOOT_INIT][WARNING]:extract file {name} from {package} to {directory} not ok."]


def signature_missing(name):
    """A signature file the package lacks, while the signed-file list is loaded."""
    return [f"[BOOT_INIT][WARNING]:FindTarget: no such file {name}",
            f"[BOOT_INIT][WARNING]:ExtractFileInner: get file failed, name:{name}"]


def running(made):
    """The board runs PACKAGE; its boot made the staging directory."""
    made.set_env(next_bootfile=PACKAGE)
    made.sh(f"mkdir -p {STAGING}", check=True)


def pss_success(directory):
    return f"[BOOT_INIT][SECURITY]verify pss signature {directory}/signature_pss_filelist success."


def classic_success(directory):
    return (f"[BOOT_INIT][SECURITY]verify signature success, source file:"
            f"{directory}/signature_filelist.")


def no_signatures():
    return [f"[BOOT_INIT][ERROR]:Extract input package signature file list failed, "
            f"package:{PACKAGE}, path:/tmp.",
            "[BOOT_INIT][ERROR]:get signature failed",
            "[BOOT_INIT][ERROR]:get signed files failed"]


def every_signature_stops(*lines):
    result = []
    for name in ("signature_pss_filelist", "signature_filelist", "signature_cms",
                 "signature_crl"):
        result += [*lines, f"[BOOT_INIT][WARNING]:ExtractFileInner: get file failed, name:{name}"]
    return result


def expect_result(result, code):
    assert (result.returncode, result.stdout, result.stderr) == (
        0 if code == 0 else 1, b"", result_line(code))


# ---------------------------------------------------------------- the package the board runs

@pytest.mark.parametrize("scheme", ["pss", "classic"])
def test_proven_files_of_the_running_package(made, inputs, scheme):
    made.package(build(inputs, signed_by(scheme)), name="test.cc")
    running(made)
    result, log, security = extract(made, "kernel.img.gz")
    expect_result(result, 0)
    tried = [] if scheme == "pss" else signature_missing("signature_pss_filelist")
    assert log == tried + [done(0, "kernel.img.gz")]
    assert security == [pss_success(STAGING) if scheme == "pss" else classic_success(STAGING)]
    assert made.read_bytes(f"{OUT}/kernel.img.gz") == KERNEL
    assert made.sh(f"stat -c %a {OUT}/kernel.img.gz").stdout == b"700\n"
    staged = sorted(state(made, STAGING))
    assert staged == (["signature_pss_cms", "signature_pss_filelist"] if scheme == "pss"
                      else ["signature_cms", "signature_crl", "signature_filelist"])
    assert tmp_signature_files(made) == []


def test_the_running_packages_signature_files_serve_later_runs(made, inputs):
    host = build(inputs, signed_by("pss"))
    made.package(host, name="test.cc")
    running(made)
    inode = f"stat -c %i {STAGING}/signature_pss_filelist"
    expect_result(extract(made, "rootfs")[0], 0)
    first = made.sh(inode).stdout
    result, log, security = extract(made, "kernel.bin")
    expect_result(result, 0)
    # Not extracted again (same file), but checked again by the new process.
    assert made.sh(inode).stdout == first
    assert log == [done(0, "kernel.bin")]
    assert security == [pss_success(STAGING)]
    assert made.read_bytes(f"{OUT}/kernel.bin") == whole_record(host, "kernel.bin")
    assert made.read_bytes(f"{OUT}/rootfs") == ROOTFS


@pytest.mark.parametrize("scheme", ["pss", "classic"])
def test_another_package_is_proven_through_tmp(made, inputs, scheme):
    host = build(inputs, signed_by(scheme))
    made.package(host, name="test.cc")
    result, log, security = extract(made, "app.bin")
    expect_result(result, 0)
    tried = [] if scheme == "pss" else signature_missing("signature_pss_filelist")
    assert log == tried + [done(0, "app.bin")]
    assert security == [pss_success("/tmp") if scheme == "pss" else classic_success("/tmp")]
    assert made.read_bytes(f"{OUT}/app.bin") == whole_record(host, "app.bin")
    assert tmp_signature_files(made) == []
    assert not made.exists(STAGING)


def test_signature_files_come_out_unchecked(made, inputs):
    made.package(build(inputs, signed_by("classic")), name="test.cc")
    result, log, security = extract(made, "signature_crl")
    expect_result(result, 0)
    assert (log, security) == ([done(0, "signature_crl")], [])
    assert made.read_bytes(f"{OUT}/signature_crl") == (build_dir() / "pki" /
                                                       "crl_empty.der").read_bytes()


# ---------------------------------------------------------------- hostile packages

def refused_lines(host, rule):
    """The exact lines of the refusal of rootfs from a package broken by RULE."""
    if rule == "count-257":
        return every_signature_stops(
            "[BOOT_INIT][ERROR]:FindTarget: File number(257) is exceed max.") + no_signatures()
    if rule == "truncated-header":
        return every_signature_stops(
            "[BOOT_INIT][ERROR]:FindTarget: Read package header failed, read len = 6179, "
            "head len = 6180.") + no_signatures()
    if rule in LAYOUT_FAULTS:
        return every_signature_stops(*layout_fault_lines(host, rule),
                                     "[BOOT_INIT][ERROR]:FindTarget: package layout is invalid.") \
            + no_signatures()
    if rule == "no-terminator":
        return missing("rootfs", OUT)
    if rule == "changed-byte":
        calc = records(host)["rootfs.bin"][3]
        listed = listed_digest(host, "rootfs.bin")
        assert calc != listed
        return ([f"[BOOT_INIT][ERROR]:Verify file rootfs failed, calc:{calc} in signature "
                 f"list:{listed}."] + missing("rootfs", OUT))
    if rule == "wrong-signer":
        return [f"[BOOT_INIT][ERROR]:get signature file list and verify cms failed({UNTRUSTED}), "
                f"sig path:/tmp/signature_pss_filelist.",
                "[BOOT_INIT][ERROR]:get signed files failed"]
    if rule in ("missing-list", "unsigned"):
        return (signature_missing("signature_pss_filelist") + signature_missing("signature_filelist")
                + signature_missing("signature_cms") + signature_missing("signature_crl")
                + no_signatures())
    if rule == "missing-cms":
        return signature_missing("signature_pss_cms") + no_signatures()
    raise AssertionError(rule)


def layout_fault_lines(host, rule):
    """The lines of the layout check that refuses a package broken by RULE."""
    listed = records(host)
    rootfs, app = listed["rootfs.bin"][0], listed["app.bin"][0]
    next_file_failed = "[BOOT_INIT][ERROR]:get next file failed"
    chain = "[BOOT_INIT][ERROR]:GetNextFile: Package is invalid, current len = {}, current offset = {}"
    if rule == "gap":  # 16 bytes behind rootfs
        return [chain.format(app - 16, app), next_file_failed]
    if rule == "overlap":  # rootfs starts 16 bytes before the kernel's end
        return [chain.format(rootfs + 16, rootfs), next_file_failed]
    if rule == "zero-length":  # an empty entry in front of rootfs
        return [chain.format(rootfs, rootfs) + ", filelen = 0", next_file_failed]
    if rule == "wrap":
        return [chain.format(rootfs, rootfs) + ", filelen = 4294967295", next_file_failed]
    if rule == "trailing-bytes":
        size = host.stat().st_size
        return [f"[BOOT_INIT][ERROR]:package size verify failed, record size:{size - 16}, "
                f"real size:{size}"]
    if rule == "duplicate-binname":
        return ["[BOOT_INIT][ERROR]:package is invalid, has duplicate file:rootfs.bin"]
    raise AssertionError(rule)


# Packages whose container does not hold together: refused as a whole before any entry is
# tried, even where one of their records would prove.
LAYOUT_FAULTS = {
    "gap": ["--break", "gap", "--target", "rootfs"],
    "overlap": ["--break", "overlap", "--target", "kernel.img.gz", "--size", "16"],
    "zero-length": ["--break", "zero-length", "--target", "rootfs"],
    "wrap": ["--break", "wrap", "--target", "rootfs"],
    "trailing-bytes": ["--break", "trailing-bytes"],
    "duplicate-binname": ["--break", "duplicate-binname", "--target", "rootfs"],
}

REFUSED = {
    **LAYOUT_FAULTS,
    "count-257": ["--break", "count-257"],
    "truncated-header": ["--break", "truncated-header"],
    "no-terminator": ["--break", "no-terminator", "--target", "rootfs"],
    "changed-byte": ["--break", "changed-byte", "--target", "rootfs"],
    "wrong-signer": ["--break", "wrong-signer", "--ca", pki("root_ca.pem")],
    "missing-list": ["--break", "missing-list"],  # only the PSS signature
    "missing-cms": ["--break", "missing-cms"],  # only the PSS list
    "unsigned": None,  # no signature files at all
}


@pytest.mark.parametrize("rule", sorted(REFUSED))
def test_hostile_packages_are_refused_and_nothing_is_written(made, inputs, rule):
    if rule == "unsigned":
        options = ["--no-list"]
    elif rule == "wrong-signer":
        options = signed_by("pss", "foreign_signer") + REFUSED[rule]
    else:
        options = signed_by("pss") + REFUSED[rule]
    host = build(inputs, options)
    made.package(host, name="test.cc")
    before = state(made, OUT)
    result, log, security = extract(made, "rootfs")
    code = NOT_FOUND if rule in ("no-terminator", "changed-byte") else ERROR
    expect_result(result, code)
    assert log == refused_lines(host, rule) + [done(code, "rootfs")]
    assert security == ([f"[BOOT_INIT][SECURITY]verify pss signature "
                         f"/tmp/signature_pss_filelist failed, result = {UNTRUSTED}."]
                        if rule == "wrong-signer" else
                        [pss_success("/tmp")] if code == NOT_FOUND else [])
    assert state(made, OUT) == before == {"keep": b"was here"}
    assert tmp_signature_files(made) == []
    assert not made.exists(STAGING)


def test_a_classic_package_without_its_crl(made, inputs):
    made.package(build(inputs, signed_by("classic") + ["--break", "missing-crl"]),
                 name="test.cc")
    result, log, _ = extract(made, "rootfs")
    expect_result(result, ERROR)
    assert log == (signature_missing("signature_pss_filelist") + signature_missing("signature_crl")
                   + no_signatures() + [done(ERROR, "rootfs")])
    assert state(made, OUT) == {"keep": b"was here"}
    assert tmp_signature_files(made) == []


# Only one of the two PSS files in the package the board runs: its list stays in the staging
# directory (later steps read it), nothing reaches the destination.
def test_the_running_package_with_only_its_pss_list(made, inputs):
    host = build(inputs, signed_by("pss") + ["--break", "missing-cms"])
    made.package(host, name="test.cc")
    running(made)
    result, log, _ = extract(made, "rootfs")
    expect_result(result, ERROR)
    assert log == signature_missing("signature_pss_cms") + [
        f"[BOOT_INIT][ERROR]:Extract curr package signature file list failed, package:{PACKAGE}, "
        f"path:{STAGING}.",
        "[BOOT_INIT][ERROR]:get signature failed", "[BOOT_INIT][ERROR]:get signed files failed",
        done(ERROR, "rootfs")]
    assert sorted(state(made, STAGING)) == ["signature_pss_filelist"]
    assert state(made, OUT) == {"keep": b"was here"}


# A firmware file twice: exemption plays no part in extraction, the duplicate is refused.
def test_a_duplicated_exempt_firmware_file(made, inputs):
    host = build(inputs, signed_by("pss") + ["--break", "duplicate-exempt", "--firmware",
                                             "mpu_fpga.img"],
                 names=("rootfs", "mpu_fpga.img"))
    made.package(host, name="test.cc")
    result, log, _ = extract(made, "mpu_fpga.img")
    expect_result(result, ERROR)
    assert log == every_signature_stops(
        "[BOOT_INIT][ERROR]:package is invalid, has duplicate file:mpu_fpga.bin",
        "[BOOT_INIT][ERROR]:FindTarget: package layout is invalid.") + no_signatures() + [
            done(ERROR, "mpu_fpga.img")]
    assert state(made, OUT) == {"keep": b"was here"}
    assert tmp_signature_files(made) == []


# ---------------------------------------------------------------- the command line

def test_extract_by_id_and_bad_command_lines(made, inputs):
    made.package(build(inputs, signed_by("pss")), name="test.cc")
    result, log, _ = run(made, "0", "0", PACKAGE, "rootfs", OUT)
    expect_result(result, 1)
    assert log == ["[BOOT_INIT][ERROR]:Not support extract file by id"]
    result, log, _ = run(made, "0", "1", PACKAGE, "rootfs")
    expect_result(result, 1)
    assert log == ["[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 4"]
    result, log, _ = run(made, "0", "x", PACKAGE, "rootfs", OUT)
    expect_result(result, 1)
    assert log == ["[BOOT_INIT][ERROR]:Extract file, extract type should only contain digit, "
                   "type = x"]
    result, log, _ = run(made, "0", "2", PACKAGE, "rootfs", OUT)
    expect_result(result, 1)
    assert log == ["[BOOT_INIT][ERROR]:Extract type is invalid, type = 2"]
    assert state(made, OUT) == {"keep": b"was here"}


def test_operation_5_unwraps_a_proven_wrapper(made, inputs):
    host = build(inputs, signed_by("pss"))
    made.package(host, name="test.cc")
    expect_result(extract(made, "app.bin", out=STAGING)[0], 0)
    wrapper = f"{STAGING}/app.bin"
    args = [wrapper, "verity_table_info", "/var/lib/real"]
    result, log, _ = run(made, "5", *args)
    expect_result(result, 0)
    assert log == (["[BOOT_INIT][INFO]:File trans from bin file start"]
                   + [f"[BOOT_INIT][INFO]:ppacArgv[{i}] = {a}" for i, a in enumerate(args)]
                   + ["[BOOT_INIT][INFO]:Trans bin file to real name, result = 0x0, "
                      "FileName = verity_table_info"])
    assert made.read_bytes("/var/lib/real/verity_table_info") == APP
    result, log, _ = run(made, "5", wrapper, "x")
    expect_result(result, 1)
    assert log == ["[BOOT_INIT][INFO]:File trans from bin file start",
                   f"[BOOT_INIT][INFO]:ppacArgv[0] = {wrapper}",
                   "[BOOT_INIT][INFO]:ppacArgv[1] = x",
                   "[BOOT_INIT][ERROR]:Trans bin file to real file, para num(2) is invalid"]
    result, log, _ = run(made, "5", "/var/lib/none.bin", "x", "/var/lib/real")
    expect_result(result, 0x10000003)
    assert log[-2:] == ["[BOOT_INIT][ERROR]:res is FALSE when check res.",
                        "[BOOT_INIT][INFO]:Trans bin file to real name, result = 0x10000003, "
                        "FileName = x"]


def test_operation_8_always_succeeds_and_writes_nothing(made, inputs):
    made.package(build(inputs, signed_by("pss")), name="test.cc")
    args = [PACKAGE, "rootfs", OUT]
    result, log, _ = run(made, "8", *args)
    expect_result(result, 0)
    assert log == (["[BOOT_INIT][INFO]:Untar file from package start"]
                   + [f"[BOOT_INIT][INFO]:ppacArgv[{i}] = {a}" for i, a in enumerate(args)]
                   + ["[BOOT_INIT][INFO]:Untar file from cc package, FileName = rootfs, "
                      "result = 0"])
    result, log, _ = run(made, "8", PACKAGE)
    expect_result(result, 0)
    assert log == ["[BOOT_INIT][INFO]:Untar file from package start",
                   f"[BOOT_INIT][INFO]:ppacArgv[0] = {PACKAGE}",
                   "[BOOT_INIT][INFO]:Argv invalid, Argc num must be 3",
                   "[BOOT_INIT][INFO]:Untar file from cc package, FileName = , result = 0"]
    assert state(made, OUT) == {"keep": b"was here"}
