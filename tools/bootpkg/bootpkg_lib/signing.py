"""The two signing schemes: which records carry the list, its detached CMS signature and the
CRL, and the openssl calls that sign, verify and tell the signature's padding apart."""
import os
import re
import subprocess

from . import openssl
from .errors import BootpkgError


class Scheme:
    """The actual names of a scheme's signature records (None: the scheme has no such file)."""

    def __init__(self, name, list_name, cms_name, crl_name, pss):
        self.name = name
        self.list_name = list_name
        self.cms_name = cms_name
        self.crl_name = crl_name
        self.pss = pss

    def names(self):
        return [n for n in (self.list_name, self.cms_name, self.crl_name) if n is not None]


CLASSIC = Scheme("classic", b"signature_filelist", b"signature_cms", b"signature_crl", False)
PSS = Scheme("pss", b"signature_pss_filelist", b"signature_pss_cms", None, True)
SCHEMES = {CLASSIC.name: CLASSIC, PSS.name: PSS}
SIGNATURE_NAMES = frozenset(CLASSIC.names() + PSS.names())

# How `openssl cms -cmsout -print` names the signer's signature algorithm per scheme.
ALGORITHMS = {False: "rsaEncryption", True: "rsassaPss"}


def sign(scheme, content, signer, key, out):
    """Writes OUT: the detached DER CMS signature of the file CONTENT by SIGNER (PEM) with KEY,
    SHA-256, with RSASSA-PSS padding for the PSS scheme."""
    for path, what in ((signer, "signer certificate"), (key, "signer key")):
        if not os.path.isfile(path):
            raise BootpkgError(f"{what} {path} does not exist")
    args = ["cms", "-sign", "-binary", "-outform", "DER", "-md", "sha256",
            "-signer", signer, "-inkey", key]
    if scheme.pss:
        args += ["-keyopt", "rsa_padding_mode:pss"]
    openssl.run(*args, "-in", content, "-out", out)


def verify(cms, content, ca, crl_check=False):
    """None when the DER CMS signature CMS of CONTENT verifies against the trusted file CA;
    otherwise openssl's reason. With CRL_CHECK the signer must not be revoked by a CRL, which
    must then be in CA too (openssl cms takes CRLs from its -CAfile)."""
    args = [openssl.OPENSSL, "cms", "-verify", "-binary", "-inform", "DER", "-in", cms,
            "-content", content, "-CAfile", ca, "-purpose", "any", "-out", os.devnull]
    if crl_check:
        args.append("-crl_check")
    try:
        done = subprocess.run(args, capture_output=True, check=False)
    except OSError as error:
        raise BootpkgError(f"cannot run {openssl.OPENSSL}: {error}") from error
    if done.returncode == 0:
        return None
    return reason(done)


def reason(done):
    """The last line openssl wrote to stderr, without its error code and source position."""
    lines = done.stderr.decode(errors="replace").strip().splitlines()
    if not lines:
        return f"exit status {done.returncode}"
    found = re.search(r"\.c:\d+:(.+)$", lines[-1])
    return found.group(1) if found else lines[-1]


def trust_with_crl(ca, crl_der, out):
    """Writes OUT: the PEM root CA followed by the DER CRL CRL_DER in PEM form."""
    pem = openssl.run("crl", "-inform", "DER", "-in", crl_der)
    try:
        with open(ca, "rb") as root:
            trusted = root.read()
    except OSError as error:
        raise BootpkgError(f"{ca}: {error.strerror}") from error
    with open(out, "wb") as combined:
        combined.write(trusted.rstrip(b"\n") + b"\n" + pem)


def algorithm(cms):
    """The name openssl gives the signature algorithm of the signer of the DER CMS file CMS."""
    text = openssl.run("cms", "-cmsout", "-print", "-inform", "DER", "-in", cms).decode(
        errors="replace")
    found = re.findall(r"signatureAlgorithm:\s*\n\s*algorithm:\s*(\S+)", text)
    if not found:
        raise BootpkgError(f"{cms}: no signer's signature algorithm found")
    return found[-1]


def crl_issued_by(der, ca):
    """Whether the DER CRL DER carries a valid signature of the root CA."""
    try:
        done = subprocess.run([openssl.OPENSSL, "crl", "-inform", "DER", "-in", der, "-noout",
                               "-CAfile", ca], capture_output=True, check=False)
    except OSError as error:
        raise BootpkgError(f"cannot run {openssl.OPENSSL}: {error}") from error
    return done.returncode == 0
