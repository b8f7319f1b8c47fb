"""bootpkg's command line."""
import argparse
import sys

from . import pki
from .errors import BootpkgError


def command_pki(args):
    pki.make(args.out)
    return 0


def parser():
    top = argparse.ArgumentParser(
        prog="bootpkg", description="Builds, signs and lists boot packages; makes test PKIs.")
    commands = top.add_subparsers(dest="command", required=True, metavar="COMMAND")
    p = commands.add_parser(
        "pki", help="make a throwaway test PKI (root CA, signers, CRLs) in a directory")
    p.add_argument("--out", metavar="DIR", required=True,
                   help="directory to write (replaced when it exists)")
    p.set_defaults(run=command_pki)
    return top


def main(argv):
    args = parser().parse_args(argv)
    try:
        return args.run(args)
    except BootpkgError as error:
        print(f"bootpkg: {error}", file=sys.stderr)
        return 1
