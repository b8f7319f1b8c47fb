"""The throwaway test PKI that `bootpkg pki` makes: what each file is, checked with openssl."""
import os
import subprocess

import pytest

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BOOTPKG = os.path.join(REPO, "tools", "bootpkg", "bootpkg")


def openssl(*args, data=None):
    done = subprocess.run(["openssl", *args], input=data, capture_output=True, check=False)
    return done.returncode, done.stdout.decode(errors="replace")


@pytest.fixture(scope="module")
def pki(tmp_path_factory):
    out = tmp_path_factory.mktemp("pki") / "pki"
    subprocess.run([BOOTPKG, "pki", "--out", str(out)], check=True)
    return out


def crl_text(pki, name):
    code, text = openssl("crl", "-inform", "DER", "-in", str(pki / f"{name}.der"), "-noout",
                         "-text", "-crlnumber")
    assert code == 0
    return text


def serial(pki, name):
    code, text = openssl("x509", "-in", str(pki / f"{name}.pem"), "-noout", "-serial")
    assert code == 0
    return text.strip().split("=")[1]


def test_root_has_the_size_the_library_builds_in(pki):
    assert (pki / "root_ca.der").stat().st_size == 1363
    code, text = openssl("x509", "-inform", "DER", "-in", str(pki / "root_ca.der"), "-noout",
                         "-text")
    assert code == 0
    assert "CA:TRUE" in text


def test_signers_chain_to_their_root_and_the_expired_one_is_expired(pki):
    root = str(pki / "root_ca.pem")
    for signer in ("classic_signer", "pss_signer", "revoked_signer"):
        code, text = openssl("verify", "-CAfile", root, str(pki / f"{signer}.pem"))
        assert code == 0, text
    code, text = openssl("verify", "-CAfile", root, str(pki / "expired_signer.pem"))
    assert code != 0
    code, text = openssl("verify", "-CAfile", root, str(pki / "foreign_signer.pem"))
    assert code != 0
    code, text = openssl("verify", "-CAfile", str(pki / "foreign_root.pem"),
                         str(pki / "foreign_signer.pem"))
    assert code == 0, text


@pytest.mark.parametrize("name,number,revokes,pss", [
    ("crl_empty", "0x01", False, False),
    ("crl_revoking", "0x02", True, False),
    ("crl_older", "0x03", True, False),
    ("crl_newer", "0x04", True, False),
    ("crl_tie_early", "0x05", True, False),
    ("crl_tie_late", "0x05", True, False),
    ("crl_pss_empty", "0x01", False, True),
    ("crl_pss_revoking", "0x06", True, True),
])
def test_crls_carry_their_number_scheme_and_revocations(pki, name, number, revokes, pss):
    text = crl_text(pki, name)
    assert f"crlNumber={number}" in text
    assert ("Serial Number: " + serial(pki, "revoked_signer") in text) == revokes
    assert ("rsassaPss" in text) == pss
    code, out = openssl("crl", "-inform", "DER", "-in", str(pki / f"{name}.der"), "-noout",
                        "-CAfile", str(pki / "root_ca.pem"))
    assert code == 0, out


def test_crl_dates_order_the_tie_and_the_older_newer_pair(pki):
    def last_update(name):
        code, text = openssl("crl", "-inform", "DER", "-in", str(pki / f"{name}.der"),
                             "-noout", "-lastupdate", "-dateopt", "iso_8601")
        assert code == 0
        return text.strip()

    assert last_update("crl_tie_early") < last_update("crl_tie_late")
    assert last_update("crl_older") < last_update("crl_newer")


def test_foreign_crl_is_not_from_the_root(pki):
    code, _ = openssl("crl", "-inform", "DER", "-in", str(pki / "crl_foreign.der"), "-noout",
                      "-CAfile", str(pki / "root_ca.pem"))
    assert code != 0


def test_openssl_cms_signatures_of_both_schemes_verify(pki, tmp_path):
    content = tmp_path / "content"
    content.write_bytes(b"boot file\n")
    for signer, extra in (("classic_signer", []),
                          ("pss_signer", ["-keyopt", "rsa_padding_mode:pss"])):
        signature = tmp_path / f"{signer}.cms"
        code, text = openssl("cms", "-sign", "-binary", "-outform", "DER", "-md", "sha256",
                             "-signer", str(pki / f"{signer}.pem"),
                             "-inkey", str(pki / f"{signer}.key"), *extra,
                             "-in", str(content), "-out", str(signature))
        assert code == 0, text
        code, text = openssl("cms", "-verify", "-binary", "-inform", "DER", "-in",
                             str(signature), "-content", str(content), "-CAfile",
                             str(pki / "root_ca.pem"), "-purpose", "any", "-out", "/dev/null")
        assert code == 0, text


def test_remaking_replaces_the_directory(pki, tmp_path):
    out = tmp_path / "again"
    out.mkdir()
    (out / "stale").write_text("old")
    subprocess.run([BOOTPKG, "pki", "--out", str(out)], check=True)
    assert not (out / "stale").exists()
    assert (out / "root_ca.der").stat().st_size == 1363
