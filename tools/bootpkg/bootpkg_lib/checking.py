"""`bootpkg check`: a package's layout, its file lists against its records, and (given the
root) the CMS signatures and the CRL of each signing scheme it carries."""
import os
import tempfile

from . import container as ct
from . import filelist, reading, signing
from .errors import BootpkgError


class Outcome:
    """What a check found: report lines for standard output, faults for standard error."""

    def __init__(self):
        self.lines = []
        self.faults = []


class Check:
    def __init__(self, package, ca, crl_check, exempt, workdir, unsigned=False):
        self.package = package
        self.unsigned = unsigned
        self.ca = ca
        self.crl_check = crl_check
        self.exempt = exempt
        self.workdir = workdir
        self.outcome = Outcome()
        self.by_name = {r.bin_name: r for r in package.records}
        self.digest_cache = {}

    def fault(self, text):
        self.outcome.faults.append(text)

    def digest(self, record):
        if record.index not in self.digest_cache:
            self.digest_cache[record.index] = reading.digests(self.package, record)[0]
        return self.digest_cache[record.index]

    def record_of(self, name):
        return self.by_name.get(ct.bin_name(name)) if name is not None else None

    def extracted(self, record, name):
        path = os.path.join(self.workdir, name)
        reading.copy_out(self.package, record, path, whole=False)
        return path

    def scheme(self, scheme):
        records = {name: self.record_of(name) for name in scheme.names()}
        present = [name for name, record in records.items() if record is not None]
        if not present:
            return False
        only_list = self.unsigned and present == [scheme.list_name]
        for name, record in records.items():
            if record is None and not only_list:
                self.fault(f"{scheme.name}: no {ct.shown(ct.bin_name(name))}")
        list_record = records[scheme.list_name]
        if list_record is not None:
            self.listed(scheme, list_record)
        if only_list:
            self.outcome.lines.append(f"{scheme.name} signature: none (--unsigned)")
        if list_record is not None and records[scheme.cms_name] is not None:
            self.signature(scheme, list_record, records[scheme.cms_name], records)
        if scheme.crl_name is not None and records[scheme.crl_name] is not None:
            self.crl(scheme, records[scheme.crl_name])
        return True

    def listed(self, scheme, record):
        label = ct.shown(record.bin_name)
        path = self.extracted(record, "list")
        with open(path, "rb") as text:
            try:
                files = filelist.parse(text.read())
            except BootpkgError as error:
                self.fault(f"{label}: {error}")
                return
        before = len(self.outcome.faults)
        names = set()
        for listed in files:
            self.listed_file(label, listed, names)
        for other in self.package.records:
            if (other.bin_name not in names and other.bin_name not in self.signature_bins()
                    and other.bin_name not in self.exempt):
                self.fault(f"{label}: record {ct.shown(other.bin_name)} is not listed")
        if len(self.outcome.faults) == before:
            files_text = "1 file" if len(files) == 1 else f"{len(files)} files"
            self.outcome.lines.append(f"{scheme.name} list: {files_text}, digests match")

    def listed_file(self, label, listed, names):
        name = ct.shown(listed.name)
        if listed.name in names:
            self.fault(f"{label}: {name} is listed twice")
        names.add(listed.name)
        record = self.by_name.get(listed.name)
        if record is None:
            self.fault(f"{label}: {name} is not a record of the package")
        elif listed.name in self.signature_bins():
            self.fault(f"{label}: lists the signature file {name}")
        elif self.digest(record) != listed.digest:
            self.fault(f"{label}: the digest of {name} does not match its record")

    @staticmethod
    def signature_bins():
        return {ct.bin_name(name) for name in signing.SIGNATURE_NAMES}

    def signature(self, scheme, list_record, cms_record, records):
        label = ct.shown(cms_record.bin_name)
        content = self.extracted(list_record, "content")
        cms = self.extracted(cms_record, "cms")
        try:
            found = signing.algorithm(cms)
        except BootpkgError as error:
            self.fault(f"{label}: {error}")
            return
        expected = signing.ALGORITHMS[scheme.pss]
        if found != expected:
            self.fault(f"{label}: signed with {found}, the {scheme.name} scheme signs with "
                       f"{expected}")
            return
        if self.ca is None:
            self.outcome.lines.append(f"{scheme.name} signature: {found}, not verified (no --ca)")
            return
        trusted, crl_check = self.ca, False
        if self.crl_check and scheme.crl_name is not None and records[scheme.crl_name]:
            trusted, crl_check = os.path.join(self.workdir, "trusted.pem"), True
            signing.trust_with_crl(self.ca, self.extracted(records[scheme.crl_name], "crl.der"),
                                   trusted)
        reason = signing.verify(cms, content, trusted, crl_check)
        if reason is not None:
            self.fault(f"{label}: does not verify against {self.ca}: {reason}")
            return
        checked = " and its CRL" if crl_check else ""
        self.outcome.lines.append(f"{scheme.name} signature: {found}, verified against "
                                  f"{self.ca}{checked}")

    def crl(self, scheme, record):
        if self.ca is None:
            self.outcome.lines.append(f"{scheme.name} CRL: not checked (no --ca)")
            return
        if signing.crl_issued_by(self.extracted(record, "issuer.der"), self.ca):
            self.outcome.lines.append(f"{scheme.name} CRL: issued by {self.ca}")
        else:
            self.fault(f"{ct.shown(record.bin_name)}: not issued by {self.ca}")


def check(path, ca=None, crl_check=False, exempt=(), unsigned=False):
    """Checks the package at PATH; an Outcome (faults empty when all is well)."""
    package = reading.read(path)
    if package.faults:
        outcome = Outcome()
        outcome.faults = list(package.faults)
        return outcome
    with tempfile.TemporaryDirectory(prefix="bootpkg-") as workdir:
        run = Check(package, ca, crl_check, {ct.bin_name(n) for n in exempt}, workdir,
                    unsigned)
        run.outcome.lines.append(f"layout: {len(package.records)} records, {package.size} "
                                 "bytes, no faults")
        found = [run.scheme(scheme) for scheme in signing.SCHEMES.values()]
        if not any(found):
            run.fault("the package carries no signature file list")
        return run.outcome
