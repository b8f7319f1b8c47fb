"""Operation 3, sub-operation 0: files signed with `openssl cms` are checked through the
front-end in a line card whose trust anchor is the build's test root.

The signatures are made here with openssl itself, never with the project's code, so they are
an oracle for the whole chain: front-end, operation 3, the CMS check of libswm and its codes.
"""
import subprocess

import pytest

from boot_log import messages
from bootsim_helpers import build_dir
from ftp_boards import result_line, with_log_path

DIR = "/var/lib/signed"
CONTENT = b"start file of the line card\n" * 40

OK = 0
SIGNATURE = 0x30000002
MISMATCH = 0x30000004
UNTRUSTED = 0x30000005
EXPIRED = 0x30000006
REVOKED = 0x30000007
NOT_PSS = 0x30000008



def pki(name):
    return build_dir() / "pki" / name


def sign(content, signer, out, pss=False):
    """A detached DER CMS signature of CONTENT by SIGNER of the test PKI, written to OUT."""
    source = out.with_suffix(".content")
    source.write_bytes(content)
    extra = ["-keyopt", "rsa_padding_mode:pss"] if pss else []
    subprocess.run(["openssl", "cms", "-sign", "-binary", "-outform", "DER", "-md", "sha256",
                    "-signer", str(pki(f"{signer}.pem")), "-inkey", str(pki(f"{signer}.key")),
                    *extra, "-in", str(source), "-out", str(out)], check=True)
    return out.read_bytes()


@pytest.fixture(scope="module")
def signatures(tmp_path_factory):
    """Signatures of CONTENT, by name: classic and PSS, and by the signers that must fail."""
    base = tmp_path_factory.mktemp("signatures")
    made = {
        "classic": sign(CONTENT, "classic_signer", base / "classic"),
        "pss": sign(CONTENT, "pss_signer", base / "pss", pss=True),
        "foreign": sign(CONTENT, "foreign_signer", base / "foreign"),
        "revoked": sign(CONTENT, "revoked_signer", base / "revoked"),
        "revoked_pss": sign(CONTENT, "revoked_signer", base / "revoked_pss", pss=True),
        "expired": sign(CONTENT, "expired_signer", base / "expired"),
        "foreign_pss": sign(CONTENT, "foreign_signer", base / "foreign_pss", pss=True),
    }
    made["truncated"] = made["classic"][: len(made["classic"]) // 2]
    return made


@pytest.fixture
def card(board):
    """A line card trusting the test root, with the signed file and the CRLs in DIR."""
    made = with_log_path(board("lc", kind="lc",
                               settings={"security.root_ca": str(pki("root_ca.der"))}))
    made.write(f"{DIR}/app.img", CONTENT)
    for crl in ("crl_empty", "crl_revoking", "crl_foreign"):
        made.put(f"{DIR}/{crl}", from_file=pki(f"{crl}.der"))
    return made


def verify(made, *args):
    """Operation 3 with ARGS: (CompletedProcess, new boot log messages, new security log
    messages)."""
    def lines(log_type):
        return made.log_lines(type=log_type) if made.exists(LOG_PATHS[log_type]) else []

    before = {t: len(lines(t)) for t in LOG_PATHS}
    result = made.bootinit("--print-result", "3", *args)
    after = {t: messages(lines(t)[before[t]:]) for t in LOG_PATHS}
    assert after[2] == [], "the security log in /opt is not for these lines"
    return result, after[0], after[1]


LOG_PATHS = {0: "/var/lib/swm/workdir/var/log/app_boot.log",
             1: "/var/lib/swm/workdir/var/log/boot_security.log",
             2: "/opt/kytv8/var/log/boot_security.log"}


def request_lines(*args):
    return (["[BOOT_INIT][INFO]:Receive verify file request"]
            + [f"[BOOT_INIT][INFO]:ppacArgv[{i}] = {a}" for i, a in enumerate(args)]
            + ["[BOOT_INIT][INFO]:Receive verify cms request"])


def check(made, signature_name, crl=None, source="app.img"):
    """Sub-operation 0 on DIR/SOURCE with the signature file SIGNATURE_NAME (and CRL)."""
    args = ["0", DIR, source, signature_name] + ([crl] if crl else [])
    result, log, security = verify(made, *args)
    return result, log, security, request_lines(*args)


def expect_success(made, signature_name, crl=None):
    result, log, security, request = check(made, signature_name, crl)
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", result_line(OK))
    assert log == request + ["[BOOT_INIT][INFO]:verify signature success",
                             "[BOOT_INIT][INFO]:Verify file success"]
    assert security == [f"[BOOT_INIT][SECURITY]verify signature success, source file:"
                        f"{DIR}/app.img."]


def expect_failure(made, signature_name, code, crl=None, source="app.img"):
    result, log, security, request = check(made, signature_name, crl, source)
    assert (result.returncode, result.stdout, result.stderr) == (1, b"", result_line(code))
    assert log == request + [
        "[BOOT_INIT][ERROR]:verify signature failed",
        f"[BOOT_INIT][ERROR]:Verify file failed, verify type is 0, result is {code}"]
    assert security == [f"[BOOT_INIT][SECURITY]verify signature failed, result = {code}, "
                        f"source file:{DIR}/{source}."]


def test_classic_signature_from_openssl_verifies(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["classic"])
    expect_success(card, "app.cms", "crl_empty")


def test_pss_signature_from_openssl_verifies(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["pss"])
    expect_success(card, "app.cms")


def test_a_changed_byte_fails_both_schemes(card, signatures):
    changed = bytearray(CONTENT)
    changed[len(changed) // 2] ^= 0x01
    card.write(f"{DIR}/changed.img", bytes(changed))
    card.write(f"{DIR}/app.cms", signatures["classic"])
    card.write(f"{DIR}/app.pss.cms", signatures["pss"])
    expect_failure(card, "app.cms", MISMATCH, "crl_empty", source="changed.img")
    expect_failure(card, "app.pss.cms", MISMATCH, source="changed.img")


def test_a_foreign_signer_fails(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["foreign"])
    card.write(f"{DIR}/app.pss.cms", signatures["foreign_pss"])
    expect_failure(card, "app.cms", UNTRUSTED, "crl_empty")
    expect_failure(card, "app.pss.cms", UNTRUSTED)


def test_a_revoked_signer_fails_only_where_a_crl_lists_it(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["revoked"])
    expect_success(card, "app.cms", "crl_empty")
    expect_failure(card, "app.cms", REVOKED, "crl_revoking")


def test_pss_check_takes_revocation_from_the_kernels_crl(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["revoked_pss"])
    assert card.read_bytes("/dev/module_crl") == b""
    expect_success(card, "app.cms")
    card.put("/dev/module_crl", from_file=pki("crl_pss_revoking.der"))
    expect_failure(card, "app.cms", REVOKED)


def test_an_expired_signer_fails(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["expired"])
    expect_failure(card, "app.cms", EXPIRED, "crl_empty")


def test_a_truncated_signature_file_fails(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["truncated"])
    expect_failure(card, "app.cms", SIGNATURE, "crl_empty")
    expect_failure(card, "app.cms", SIGNATURE)


def test_the_pss_check_refuses_a_classic_signature(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["classic"])
    expect_failure(card, "app.cms", NOT_PSS)


def test_a_crl_from_another_authority_is_refused(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["classic"])
    expect_failure(card, "app.cms", 0x30000003, "crl_foreign")


def test_missing_files_are_named_by_their_codes(card, signatures):
    card.write(f"{DIR}/app.cms", signatures["classic"])
    missing = "[BOOT_INIT][ERROR]:res is FALSE when check res."
    for args, code in ((["nothing.img", "app.cms", "crl_empty"], 0x10000003),
                       (["app.img", "nothing.cms", "crl_empty"], 0x1000000F),
                       (["app.img", "app.cms", "nothing.crl"], 0x10000010)):
        result, log, security = verify(card, "0", DIR, *args)
        assert (result.returncode, result.stderr) == (1, result_line(code))
        assert log == request_lines("0", DIR, *args) + [
            missing, f"[BOOT_INIT][ERROR]:Verify file failed, verify type is 0, result is {code}"]
        assert security == []


def test_types_outside_the_table_and_non_digits(card):
    result, log, _ = verify(card, "7")
    assert (result.returncode, result.stderr) == (1, result_line(0x10000001))
    assert log == ["[BOOT_INIT][INFO]:Receive verify file request",
                   "[BOOT_INIT][INFO]:ppacArgv[0] = 7"]
    result, log, _ = verify(card, "a1")
    assert (result.returncode, result.stderr) == (1, result_line(1))
    assert log == ["[BOOT_INIT][INFO]:Receive verify file request",
                   "[BOOT_INIT][INFO]:ppacArgv[0] = a1",
                   "[BOOT_INIT][ERROR]:Verify file, verify type should only contain digit, "
                   "perType = a1"]
