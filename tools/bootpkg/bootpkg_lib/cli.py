"""bootpkg's command line."""
import argparse
import os
import sys
import time

from . import build, checking, pki, reading, signing
from . import container as ct
from .errors import BootpkgError


def command_pki(args):
    pki.make(args.out)
    return 0


def u32(text):
    try:
        value = int(text, 0)
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is not a number") from None
    if not 0 <= value <= ct.MAX_U32:
        raise argparse.ArgumentTypeError(f"{text} does not fit 32 bits")
    return value


def kind(text):
    name, sep, number = text.rpartition("=")
    if not sep or not name:
        raise argparse.ArgumentTypeError(f"{text!r} is not NAME=NUMBER")
    return os.fsencode(name), u32(number)


def creation_time(args):
    if args.time is not None:
        return args.time
    epoch = os.environ.get("SOURCE_DATE_EPOCH")
    if epoch is not None:
        try:
            return u32(epoch)
        except argparse.ArgumentTypeError as error:
            raise BootpkgError(f"SOURCE_DATE_EPOCH: {error}") from None
    return int(time.time()) & ct.MAX_U32


def name_or_none(text):
    return None if text is None else os.fsencode(text)


def command_build(args):
    req = build.Request(args.out, args.files)
    req.kinds = dict(args.kind or [])
    req.default_kind = args.default_kind
    req.created = creation_time(args)
    req.scheme = signing.SCHEMES[args.sign] if args.sign else None
    req.signer, req.key, req.crl, req.ca = args.signer, args.key, args.crl, args.ca
    req.with_list = not args.no_list
    req.list_only = [os.fsencode(n) for n in args.list_only] if args.list_only else None
    req.rule = args.rule
    req.target = name_or_none(args.target)
    req.firmware = name_or_none(args.firmware)
    req.size, req.byte = args.size, args.byte
    build.build(req)
    return 0


def report_faults(path, faults):
    for fault in faults:
        print(f"bootpkg: {path}: {fault}", file=sys.stderr)
    return 1 if faults else 0


def dash(value):
    return "-" if value is None else str(value)


def command_list(args):
    package = reading.read(args.package)
    for record in package.records:
        whole, contents = reading.digests(package, record)
        header = record.header
        columns = [record.index, record.entry.offset, record.entry.length]
        if header is None:
            columns += [None] * 4
        else:
            columns += [header.actual_length, header.kind, ct.shown(header.bin_name),
                        ct.shown(header.actual_name)]
        print("\t".join(dash(value) for value in columns + [whole, contents]))
    sys.stdout.flush()
    return report_faults(args.package, package.faults)


def command_check(args):
    outcome = checking.check(args.package, ca=args.ca, crl_check=args.crl_check,
                             exempt=[os.fsencode(n) for n in args.exempt or []],
                             unsigned=args.unsigned)
    for line in outcome.lines:
        print(line)
    sys.stdout.flush()
    return report_faults(args.package, outcome.faults)


def safe_file_name(name):
    return name not in (b"", b".", b"..") and b"/" not in name


def command_extract(args):
    package = reading.read(args.package)
    if package.faults:
        return report_faults(args.package, package.faults)
    wanted = {os.fsencode(n) for n in args.names}
    found = set()
    os.makedirs(args.out, exist_ok=True)
    for record in package.records:
        header = record.header
        names = {header.actual_name, header.bin_name}
        if wanted and not names & wanted:
            continue
        found |= names & wanted
        name = header.bin_name if args.whole else header.actual_name
        if not safe_file_name(name):
            raise BootpkgError(f"record {record.index}: {ct.shown(name)} is no file name to "
                               "write")
        destination = os.path.join(args.out, os.fsdecode(name))
        reading.copy_out(package, record, destination, args.whole)
        print(destination)
    missing = sorted(wanted - found)
    if missing:
        raise BootpkgError(f"{args.package}: no record named {ct.shown(missing[0])}")
    return 0


def build_parser(commands):
    p = commands.add_parser(
        "build", help="write a package of files, optionally signed, optionally broken on purpose",
        description="Writes a boot package of FILE... (options first, files last).")
    p.add_argument("--out", metavar="PKG", required=True, help="package file to write")
    p.add_argument("--kind", metavar="NAME=NUMBER", type=kind, action="append",
                   help="fileKind of the record named NAME (actual name or binName)")
    p.add_argument("--default-kind", metavar="NUMBER", type=u32, default=1,
                   help="fileKind of every other record (default 1)")
    p.add_argument("--time", metavar="SECONDS", type=u32,
                   help="creation time written into the headers (default: SOURCE_DATE_EPOCH, "
                        "else now)")
    p.add_argument("--sign", choices=sorted(signing.SCHEMES), help="signing scheme")
    p.add_argument("--signer", metavar="PEM", help="signer certificate")
    p.add_argument("--key", metavar="KEY", help="signer private key")
    p.add_argument("--crl", metavar="CRL", help="DER CRL carried by the classic scheme")
    p.add_argument("--ca", metavar="ROOT", help="root the signature is proven against")
    p.add_argument("--no-list", action="store_true", help="add no file list")
    p.add_argument("--list-only", metavar="NAME", action="append",
                   help="list only the records so named (repeatable)")
    p.add_argument("--break", dest="rule", metavar="RULE", choices=build.RULES,
                   help="write a package that breaks RULE: " + ", ".join(build.RULES))
    p.add_argument("--target", metavar="NAME", help="record a --break rule applies to")
    p.add_argument("--size", metavar="N", type=u32, help="byte count of a --break rule")
    p.add_argument("--byte", metavar="N", type=u32,
                   help="byte of the record that --break changed-byte changes")
    p.add_argument("--firmware", metavar="NAME",
                   help="input file that --break duplicate-exempt doubles")
    p.add_argument("files", metavar="FILE", nargs="*", help="files to package, in order")
    p.set_defaults(run=command_build)


def parser():
    top = argparse.ArgumentParser(
        prog="bootpkg", description="Builds, signs and lists boot packages; makes test PKIs.")
    commands = top.add_subparsers(dest="command", required=True, metavar="COMMAND")
    p = commands.add_parser(
        "pki", help="make a throwaway test PKI (root CA, signers, CRLs) in a directory")
    p.add_argument("--out", metavar="DIR", required=True,
                   help="directory to write (replaced when it exists)")
    p.set_defaults(run=command_pki)

    build_parser(commands)

    p = commands.add_parser("list", help="one line per record; layout faults on stderr")
    p.add_argument("package", metavar="PKG")
    p.set_defaults(run=command_list)

    p = commands.add_parser("check", help="check layout, file lists, signatures and CRLs")
    p.add_argument("package", metavar="PKG")
    p.add_argument("--ca", metavar="ROOT", help="root certificate (PEM) to verify against")
    p.add_argument("--crl-check", action="store_true",
                   help="verify the classic signature with the package's CRL too")
    p.add_argument("--exempt", metavar="NAME", action="append",
                   help="a record that need not be listed (repeatable)")
    p.add_argument("--unsigned", action="store_true",
                   help="accept a file list that carries no signature")
    p.set_defaults(run=command_check)

    p = commands.add_parser("extract", help="write records' files into a directory")
    p.add_argument("package", metavar="PKG")
    p.add_argument("--out", metavar="DIR", required=True, help="directory to write into")
    p.add_argument("--whole", action="store_true",
                   help="write whole records under their binNames")
    p.add_argument("names", metavar="NAME", nargs="*", help="records to write (default all)")
    p.set_defaults(run=command_extract)
    top.command_parsers = commands.choices
    return top


def parse(argv):
    """The arguments of ARGV. Each command's own parser reads its part with options and
    operands in any order (FILE... may come before or after the options)."""
    top = parser()
    if argv and argv[0] in top.command_parsers:
        args = top.command_parsers[argv[0]].parse_intermixed_args(argv[1:])
        args.command = argv[0]
        return args
    return top.parse_args(argv)


def main(argv):
    args = parse(argv)
    try:
        return args.run(args)
    except BootpkgError as error:
        print(f"bootpkg: {error}", file=sys.stderr)
        return 1
    except OSError as error:
        print(f"bootpkg: {error}", file=sys.stderr)
        return 1
