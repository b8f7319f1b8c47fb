"""A throwaway test PKI: a root CA whose DER form has the size the library builds in, signers
for every case the signature checks tell apart, and CRLs to compare and to revoke with.

Everything is made afresh with the openssl tool; the private keys stay in the output
directory and nowhere else. See docs/test-pki.md for the files and what each is for.
"""
import datetime
import os
import shutil

from . import openssl
from .errors import BootpkgError

ROOT_CERT_LEN = 1363  # bytes of the DER root certificate the library carries
ROOT_KEY_BITS = 4096
SIGNER_KEY_BITS = 2048
ROOT_BASE_NAME = "Throwaway Test Root CA"
MAX_CN_LEN = 64

CA_CONFIG = """\
[ ca ]
default_ca = this_ca

[ this_ca ]
dir = {dir}
database = $dir/index.txt
new_certs_dir = $dir/issued
serial = $dir/serial
crlnumber = $dir/crlnumber
certificate = {cert}
private_key = {key}
default_md = sha256
policy = policy_any
unique_subject = no
copy_extensions = none
default_days = 3650
default_crl_days = 30
crl_extensions = crl_ext

[ policy_any ]
commonName = supplied

[ req ]
distinguished_name = req_dn

[ req_dn ]

[ root_ext ]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash

[ signer_ext ]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid

[ crl_ext ]
authorityKeyIdentifier = keyid
"""


def root_name(length):
    """The root's common name cut or padded to LENGTH characters."""
    return (ROOT_BASE_NAME + " " + "0123456789" * 7)[:length]


def asn1_time(moment):
    """openssl's -startdate/-enddate/-crl_lastupdate form (UTC, to the second)."""
    return moment.strftime("%y%m%d%H%M%SZ")


class Authority:
    """One CA: its key, certificate and the openssl ca state (issued, revoked, CRL number)."""

    def __init__(self, out, name):
        self.out = out
        self.name = name
        self.dir = os.path.join(out, f".{name}")
        self.key = os.path.join(out, f"{name}.key")
        self.cert = os.path.join(out, f"{name}.pem")
        self.config = os.path.join(self.dir, "ca.cnf")
        os.makedirs(os.path.join(self.dir, "issued"))
        with open(os.path.join(self.dir, "index.txt"), "w", encoding="ascii"):
            pass
        with open(os.path.join(self.dir, "serial"), "w", encoding="ascii") as serial:
            serial.write("1000\n")
        with open(self.config, "w", encoding="ascii") as config:
            config.write(CA_CONFIG.format(dir=self.dir, cert=self.cert, key=self.key))
        openssl.run("genpkey", "-algorithm", "RSA", "-pkeyopt",
                    f"rsa_keygen_bits:{ROOT_KEY_BITS}", "-out", self.key)

    def self_sign(self, common_name, serial_bytes):
        openssl.run("req", "-x509", "-new", "-key", self.key, "-subj", f"/CN={common_name}",
                    "-days", "3650", "-set_serial", "0x1" + "2" * (2 * serial_bytes - 1),
                    "-config", self.config, "-extensions", "root_ext", "-out", self.cert)
        der = os.path.join(self.out, f"{self.name}.der")
        openssl.der_of_pem_cert(self.cert, der)
        return os.path.getsize(der)

    def make_root(self, size=None):
        """Self-signs the root; with SIZE, sizes its name and serial so the DER has SIZE bytes.

        The name is in the certificate twice (issuer and subject), so each character of it is
        two bytes; one more byte of serial number makes up an odd difference."""
        serial_bytes = 8
        name_len = len(ROOT_BASE_NAME)
        got = self.self_sign(ROOT_BASE_NAME, serial_bytes)
        for _ in range(3):
            if size is None or got == size:
                return
            missing = size - got
            if missing % 2:
                serial_bytes += 1
                missing -= 1
            name_len += missing // 2
            if not 0 < name_len <= MAX_CN_LEN or serial_bytes > 20:
                break
            got = self.self_sign(root_name(name_len), serial_bytes)
        raise BootpkgError(f"cannot make a root certificate of {size} bytes (got {got})")

    def issue(self, name, not_before, not_after):
        """A signer certificate NAME.pem with its key NAME.key, valid in the given window."""
        key = os.path.join(self.out, f"{name}.key")
        cert = os.path.join(self.out, f"{name}.pem")
        request = os.path.join(self.dir, f"{name}.csr")
        openssl.run("genpkey", "-algorithm", "RSA", "-pkeyopt",
                    f"rsa_keygen_bits:{SIGNER_KEY_BITS}", "-out", key)
        openssl.run("req", "-new", "-key", key, "-subj", f"/CN=Test {name}",
                    "-config", self.config, "-out", request)
        openssl.run("ca", "-batch", "-notext", "-config", self.config, "-in", request,
                    "-out", cert, "-extensions", "signer_ext",
                    "-startdate", asn1_time(not_before), "-enddate", asn1_time(not_after))
        return cert

    def revoke(self, cert):
        openssl.run("ca", "-batch", "-config", self.config, "-revoke", cert)

    def crl(self, name, number, last_update, pss=False):
        """NAME.der: a CRL with CRL number NUMBER issued at LAST_UPDATE, listing what was
        revoked so far; signed with RSASSA-PSS when PSS is set."""
        with open(os.path.join(self.dir, "crlnumber"), "w", encoding="ascii") as counter:
            counter.write(f"{number:02X}\n")
        pem = os.path.join(self.dir, f"{name}.pem")
        args = ["ca", "-batch", "-gencrl", "-config", self.config, "-out", pem,
                "-crl_lastupdate", asn1_time(last_update),
                "-crl_nextupdate", asn1_time(last_update + datetime.timedelta(days=30))]
        if pss:
            args += ["-sigopt", "rsa_padding_mode:pss", "-sigopt", "rsa_pss_saltlen:32"]
        openssl.run(*args)
        openssl.der_of_pem_crl(pem, os.path.join(self.out, f"{name}.der"))


def make(out):
    """Writes a new test PKI into the directory OUT (replacing what was there)."""
    if os.path.lexists(out):
        shutil.rmtree(out)
    os.makedirs(out)
    now = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
    day = datetime.timedelta(days=1)
    valid = (now - day, now + 3650 * day)

    root = Authority(out, "root_ca")
    root.make_root(ROOT_CERT_LEN)
    for signer in ("classic_signer", "pss_signer"):
        root.issue(signer, *valid)
    revoked = root.issue("revoked_signer", *valid)
    root.issue("expired_signer", now - 730 * day, now - 365 * day)
    # CRLs that list nothing come before the revocation, the others after it.
    root.crl("crl_empty", 1, now - 5 * day)
    root.crl("crl_pss_empty", 1, now - 5 * day, pss=True)
    root.revoke(revoked)
    root.crl("crl_revoking", 2, now - 4 * day)
    root.crl("crl_older", 3, now - 3 * day)
    root.crl("crl_newer", 4, now - day)
    root.crl("crl_tie_early", 5, now - 3 * day)
    root.crl("crl_tie_late", 5, now - day)
    root.crl("crl_pss_revoking", 6, now - day, pss=True)

    foreign = Authority(out, "foreign_root")
    foreign.make_root()
    foreign.issue("foreign_signer", *valid)
    foreign.crl("crl_foreign", 1, now - day)
    for authority in (root, foreign):
        shutil.rmtree(authority.dir)
