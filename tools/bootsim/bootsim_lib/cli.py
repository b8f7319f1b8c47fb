"""Command line of bootsim."""
import argparse
import os
import shlex
import signal
import subprocess
import sys
import tempfile

from . import platform
from .board import Board, remove_tree
from .description import DEFAULT_KIND, KINDS, Description, parse_name
from .errors import BootsimError

# Exit status of run/exec when bootsim itself fails before the command starts.
SETUP_FAILURE = 125

OVERVIEW = """\
Board sandbox of libbootinit. A board root is a directory holding one board's /opt, /var/lib,
/etc (a copy of the host's), /usr/local/conf, /boot, /dev (with shm/), /tmp, /run/lock and its
description /etc/bootsim/board.ini. Commands run inside a board see those directories in place of
the host's, in private mount, PID and network namespaces (loopback only); the rest of the host
(/usr, /work, ...) stays visible so that built binaries run. The board's platform libraries are
symlinks in /etc/bootsim/lib (LD_LIBRARY_PATH inside) to those of the build directory; its boot
environment is a U-Boot environment image (/etc/fw_env.config, /boot/bootsim/uboot.env).
"""

COMMANDS_HELP = """\
commands:
  create ROOT [--kind KIND] [--board FILE] [--set SECTION.KEY=VALUE ...] [--build-dir DIR]
                         create a board root (KIND: mmb-active, mmb-standby, lc)
  run [--host-path PATH] [--build-dir DIR] ROOT [--] CMD [ARGS...]
                         run CMD inside the board; exits with CMD's status
  exec [--keep] [--kind KIND] [--board FILE] [--set ...] [--host-path PATH] [--build-dir DIR]
       -- CMD [ARGS...]  run CMD in a temporary board, then remove the board
  remove ROOT            delete a board root
  set ROOT SECTION.KEY=VALUE ... [--unset SECTION.KEY ...]
                         change the board description
  show ROOT [SECTION.KEY]
                         print the board description (or one value)
  env ROOT [NAME...] | env ROOT [--set NAME=VALUE ...] [--unset NAME ...]
                         print or change the board's boot environment
  ini ROOT BOARD_PATH SECTION.KEY=VALUE ... [--unset SECTION.KEY ...]
                         create or update an INI file inside the board
  put ROOT BOARD_PATH [--from HOST_FILE | --text TEXT] [--mode OCTAL]
                         write a file inside the board
  rm ROOT BOARD_PATH... [--recursive] [--force]
                         remove files inside the board
  package ROOT HOST_FILE [--backup] [--name NAME]
                         copy a package into the board; prints its path inside
  log ROOT [--type 0|1|2] [--path BOARD_PATH] [--all | --raw-header]
                         print the text of a boot log of the board
  path ROOT BOARD_PATH...
                         print where a path inside the board lies on the host
  flash ROOT AREA (--write HOST_FILE | --erase | --remove | --read HOST_FILE)
                         store, erase, remove or read the CRL of a flash area (crl, pss_crl)

`bootsim COMMAND --help` describes one command. run and exec exit with 125 when the board cannot
be set up, otherwise with the command's status (128+N when it was killed by signal N).

environment:
  BOOTINIT_BUILD_DIR     build directory when --build-dir is not given (default: the
                         repository's build/)
  BOOTSIM_BOARDS         directory for the temporary boards of exec (default /tmp)
  BOOTSIM_BWRAP          bwrap program to use (default: bwrap from PATH)
  BOOTSIM_ROOT           set inside a board to its board root
  LD_LIBRARY_PATH        inside a board: /etc/bootsim/lib, then the caller's value
"""

BOARD_OPTIONS_HELP = {
    "kind": "kind of board, one of mmb-active (default), mmb-standby, lc: decides the "
            "description's defaults (written before --board and --set) and the marker /opt/MMB "
            "of main boards",
    "board": "INI file with the board description (merged over the defaults of the kind)",
    "set": "set one description entry, e.g. --set board.name=mb1 (repeatable; applied after "
           "--board)",
}


class _Formatter(argparse.RawDescriptionHelpFormatter):
    """Fills the paragraphs of descriptions; lines indented by two spaces are kept as they are."""

    def __init__(self, prog):
        super().__init__(prog, max_help_position=32, width=100)

    def _fill_text(self, text, width, indent):
        if text in (OVERVIEW, COMMANDS_HELP):
            return super()._fill_text(text, width, indent)
        out = []
        for paragraph in text.split("\n\n"):
            if paragraph.startswith("  "):
                out.append(paragraph)
            else:
                out.append(argparse.HelpFormatter._fill_text(self, paragraph, width, indent))
        return "\n\n".join(out)


def _add_board_options(parser):
    parser.add_argument("--kind", choices=tuple(KINDS), default=DEFAULT_KIND,
                        help=BOARD_OPTIONS_HELP["kind"])
    parser.add_argument("--board", metavar="FILE", help=BOARD_OPTIONS_HELP["board"])
    parser.add_argument("--set", metavar="SECTION.KEY=VALUE", action="append", default=[],
                        help=BOARD_OPTIONS_HELP["set"])


def _add_build_dir_option(parser):
    parser.add_argument("--build-dir", metavar="DIR",
                        help="build directory whose platform libraries the board's "
                             "/etc/bootsim/lib points to (default: $BOOTINIT_BUILD_DIR, else "
                             "the repository's build/)")


def _add_host_path_option(parser):
    parser.add_argument("--host-path", metavar="PATH", action="append", default=[],
                        help="bind this host path, which lies in a directory the board replaces "
                             "(/tmp, /opt, /var/lib, /boot, /usr/local/conf), into the board at "
                             "the same place (repeatable). A CMD in the host's /tmp gets the top "
                             "entry of its path (e.g. /tmp/build-x) bound automatically.")


def build_parser():
    parser = argparse.ArgumentParser(prog="bootsim", description=OVERVIEW, epilog=COMMANDS_HELP,
                                     formatter_class=_Formatter)
    sub = parser.add_subparsers(dest="cmd", metavar="COMMAND", help="one of the commands below")

    p = sub.add_parser("create", formatter_class=_Formatter,
                       description="Create the board root ROOT (which must not exist or be an "
                       "empty directory): its opt/, var/lib/, etc/ (a cp -a copy of the host's "
                       "/etc with an account swm, uid/gid 2000), usr/local/conf/, boot/, dev/ "
                       "(shm/, fd, stdin, stdout, stderr, an empty module_crl), tmp/ and "
                       "run/lock/ (mode 1777), the description etc/bootsim/board.ini, the "
                       "directories /opt/kytv8/home and "
                       "/opt/kytv8/backup, the marker /opt/MMB on main boards, the boot "
                       "environment (/etc/fw_env.config and the image /boot/bootsim/uboot.env "
                       "holding startup_mode=0 and homebak_path=/opt/kytv8/backup) and the "
                       "platform library directory /etc/bootsim/lib.")
    p.add_argument("root", metavar="ROOT")
    _add_board_options(p)
    _add_build_dir_option(p)

    p = sub.add_parser("run", formatter_class=_Formatter,
                       usage="bootsim run [-h] [--host-path PATH] [--build-dir DIR] ROOT [--] "
                             "CMD [ARGS...]",
                       description="Run CMD inside the board ROOT. stdin, stdout and stderr pass "
                       "through; the exit status is CMD's. Inside, BOOTSIM_ROOT names the board "
                       "root, the working directory is the caller's (or / when that lies in "
                       "a directory the board replaces and does not exist in the board) and "
                       "LD_LIBRARY_PATH starts with /etc/bootsim/lib, whose symlinks are first "
                       "pointed at the platform libraries of the build directory chosen by the "
                       "description ([platform] driver and missing). When the description "
                       "names [peers] (main boards, or scripts, see docs/bootsim.md), their FTP "
                       "servers listen in the board's network while CMD runs.")
    p.add_argument("root", metavar="ROOT")
    _add_host_path_option(p)
    _add_build_dir_option(p)
    p.add_argument("command", metavar="CMD [ARGS...]", nargs="*",
                   help="command and its arguments, passed on untouched")

    p = sub.add_parser("exec", formatter_class=_Formatter,
                       usage="bootsim exec [-h] [--keep] [--kind KIND] [--board FILE] "
                             "[--set SECTION.KEY=VALUE] [--host-path PATH] [--build-dir DIR] -- "
                             "CMD [ARGS...]",
                       description="Create a temporary board under $BOOTSIM_BOARDS (default "
                       "/tmp, named bootsim-XXXXXXXX), run CMD in it like `run`, remove the "
                       "board and exit with CMD's status. Without --keep the board lives in a "
                       "RAM file system private to this command (nothing is written to disk). "
                       "Used as the launcher of the unit tests; everything after -- is passed on "
                       "untouched.")
    p.add_argument("--keep", action="store_true",
                   help="create the board on disk and keep it; its root is printed to stderr")
    _add_board_options(p)
    _add_host_path_option(p)
    _add_build_dir_option(p)
    p.add_argument("command", metavar="CMD [ARGS...]", nargs="*",
                   help="command and its arguments, passed on untouched")

    p = sub.add_parser("remove", formatter_class=_Formatter,
                       description="Delete the board root ROOT. Refuses a directory without "
                       "etc/bootsim/board.ini and anything mounted inside it; symlinks are "
                       "removed, never followed.")
    p.add_argument("root", metavar="ROOT")

    p = sub.add_parser("set", formatter_class=_Formatter,
                       description="Set entries of the board description "
                       "(ROOT/etc/bootsim/board.ini). SECTION ends at the first dot.")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("assignments", metavar="SECTION.KEY=VALUE", nargs="*")
    p.add_argument("--unset", metavar="SECTION.KEY", action="append", default=[],
                   help="remove an entry (repeatable)")

    p = sub.add_parser("show", formatter_class=_Formatter,
                       description="Print the board description, or the value of one entry "
                       "(exit status 1 when it is not set).")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("name", metavar="SECTION.KEY", nargs="?")

    p = sub.add_parser("env", formatter_class=_Formatter,
                       usage="bootsim env [-h] ROOT [NAME...] | "
                             "bootsim env ROOT [--set NAME=VALUE ...] [--unset NAME ...]",
                       description="Print or change the boot environment of the board, with "
                       "fw_printenv / fw_setenv -c /etc/fw_env.config run inside it. Without "
                       "NAME all variables are printed as fw_printenv prints them; with NAMEs "
                       "one NAME=value line each (exit status 1 when one is not set). --set and "
                       "--unset change variables instead (a value may be empty).")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("names", metavar="NAME", nargs="*")
    p.add_argument("--set", metavar="NAME=VALUE", nargs="+", action="extend", default=[],
                   dest="assignments", help="set variables")
    p.add_argument("--unset", metavar="NAME", nargs="+", action="extend", default=[],
                   help="remove variables")

    p = sub.add_parser("ini", formatter_class=_Formatter,
                       description="Create or update the INI file BOARD_PATH inside the board: "
                       "each SECTION.KEY=VALUE becomes a key=value line in [SECTION], replacing "
                       "the key's value or added after the section's last entry (a missing "
                       "section is appended). Other sections, keys and comments stay as they "
                       "are. SECTION ends at the first dot.")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("board_path", metavar="BOARD_PATH")
    p.add_argument("assignments", metavar="SECTION.KEY=VALUE", nargs="*")
    p.add_argument("--unset", metavar="SECTION.KEY", nargs="+", action="extend", default=[],
                   help="remove keys")

    p = sub.add_parser("put", formatter_class=_Formatter,
                       description="Write the file BOARD_PATH inside the board (parent "
                       "directories are created): the contents of HOST_FILE, TEXT, or nothing. "
                       "Only the board's own directories are written; symlinks of the board are "
                       "followed as inside the board.")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("board_path", metavar="BOARD_PATH")
    group = p.add_mutually_exclusive_group()
    group.add_argument("--from", metavar="HOST_FILE", dest="from_file",
                       help="copy the contents of this host file")
    group.add_argument("--text", metavar="TEXT", help="write TEXT (no newline is added)")
    p.add_argument("--mode", metavar="OCTAL",
                   help="permissions, e.g. 0600 (default: a replaced file keeps its mode and "
                        "owner, a new one gets 0644)")

    p = sub.add_parser("rm", formatter_class=_Formatter,
                       description="Remove files (or symlinks, never their targets) inside the "
                       "board. The board's top directories and its description are refused.")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("board_paths", metavar="BOARD_PATH", nargs="+")
    p.add_argument("-r", "--recursive", action="store_true",
                   help="remove directories with their contents")
    p.add_argument("-f", "--force", action="store_true", help="ignore missing paths")

    p = sub.add_parser("package", formatter_class=_Formatter,
                       description="Copy the package file HOST_FILE into /opt/kytv8/home of the "
                       "board (with --backup: into the directory named by the description's "
                       "[support] backup_dir) and print its path inside the board.")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("host_file", metavar="HOST_FILE")
    p.add_argument("--backup", action="store_true",
                   help="copy into the backup directory instead")
    p.add_argument("--name", metavar="NAME", help="file name in the board (default: HOST_FILE's)")

    p = sub.add_parser("log", formatter_class=_Formatter,
                       description="Print the current text of a boot log of the board: exactly "
                       "curLen bytes after the header.\n\n"
                       "  type 0  /var/lib/swm/workdir/var/log/app_boot.log\n"
                       "          curLen (u64 LE); text at byte 8\n"
                       "  type 1  /var/lib/swm/workdir/var/log/boot_security.log\n"
                       "          curLen (u64 LE), 2 untouched bytes; text at byte 10\n"
                       "  type 2  /opt/kytv8/var/log/boot_security.log\n"
                       "          curLen, reserved, wrap length (u32 LE each); text at byte 12\n\n"
                       "Exit status 1 when the file is missing or shorter than its curLen "
                       "(the bytes present are printed).")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("--type", type=int, choices=(0, 1, 2), default=0,
                   help="log type; decides the header layout and the default file (default 0)")
    p.add_argument("--path", metavar="BOARD_PATH",
                   help="the log file as seen inside the board (when moved by configuration)")
    group = p.add_mutually_exclusive_group()
    group.add_argument("--all", action="store_true",
                       help="print everything after the header, including older text left "
                            "beyond curLen by a wrap")
    group.add_argument("--raw-header", action="store_true",
                       help="print only the header: curLen=N reserved=N wrapLen=N (reserved is "
                            "the two untouched bytes for type 1; 0 where a type has no field)")

    p = sub.add_parser("path", formatter_class=_Formatter,
                       description="Print, one a line, the host path of each BOARD_PATH as "
                       "seen inside the board.")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("board_paths", metavar="BOARD_PATH", nargs="+")

    p = sub.add_parser("flash", formatter_class=_Formatter,
                       description="Store, erase, remove or read the CRL of the board's flash "
                       "area AREA (crl or pss_crl), kept as the image /etc/bootsim/flash/AREA: "
                       "131072 bytes holding a 32-bit little-endian length, the CRL and erased "
                       "bytes (0xFF). Without an image the area was never written.")
    p.add_argument("root", metavar="ROOT")
    p.add_argument("area", metavar="AREA", choices=("crl", "pss_crl"),
                   help="crl (classic scheme) or pss_crl (PSS scheme)")
    group = p.add_mutually_exclusive_group(required=True)
    group.add_argument("--write", metavar="HOST_FILE",
                       help="store the bytes of HOST_FILE (1 to 131068 bytes)")
    group.add_argument("--erase", action="store_true",
                       help="erase the area (it then holds a CRL of length 0)")
    group.add_argument("--remove", action="store_true",
                       help="remove the image (the area was never written)")
    group.add_argument("--read", metavar="HOST_FILE",
                       help="write the stored CRL to HOST_FILE; exit status 1 when the area "
                            "holds none")
    return parser


# Commands that end with a command line passed on untouched: (positionals before it,
# options taking a value).
_COMMAND_RUNNERS = {
    "run": (1, ("--host-path", "--build-dir")),
    "exec": (0, ("--kind", "--board", "--set", "--host-path", "--build-dir")),
}


def split_command_line(argv, positionals, value_options):
    """Split ARGV into bootsim's own part and the command: at "--", or at the first word after
    the POSITIONALS that is not an option."""
    own = []
    seen = 0
    i = 0
    while i < len(argv):
        word = argv[i]
        if word == "--":
            return own, argv[i + 1:]
        if word.startswith("-") and word != "-":
            own.append(word)
            if word in value_options and i + 1 < len(argv):
                own.append(argv[i + 1])
                i += 1
        elif seen < positionals:
            own.append(word)
            seen += 1
        else:
            return own, argv[i:]
        i += 1
    return own, []


def parse(argv):
    parser = build_parser()
    if argv and argv[0] in _COMMAND_RUNNERS:
        positionals, value_options = _COMMAND_RUNNERS[argv[0]]
        own, command = split_command_line(argv[1:], positionals, value_options)
        args = parser.parse_args([argv[0]] + own)
        args.command = command
    else:
        args = parser.parse_args(argv)
    if not args.cmd:
        parser.print_help(sys.stderr)
        raise SystemExit(2)
    return args


def _description(args):
    desc = Description.default(args.kind)
    if args.board:
        desc.merge_file(args.board)
    desc.apply(args.set)
    return desc


# ----------------------------------------------------------------------------- commands

def cmd_create(args):
    Board(args.root).create(_description(args), kind=args.kind,
                            build=platform.build_dir(args.build_dir))
    return 0


def cmd_run(args):
    from . import sandbox
    board = Board(args.root).require_board()
    argv = sandbox.bwrap_args(board, args.command, host_paths=args.host_path,
                              build=platform.build_dir(args.build_dir), runner="run")
    sys.stdout.flush()
    sys.stderr.flush()
    try:
        os.execv(argv[0], argv)
    except OSError as e:
        raise BootsimError(f"cannot start {argv[0]}: {e.strerror}", SETUP_FAILURE) from e


def run_child(argv):
    """Run ARGV with all file descriptors inherited; forward termination signals to it."""
    child = subprocess.Popen(argv, close_fds=False)
    forwarded = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)

    def forward(signum, _frame):
        try:
            child.send_signal(signum)
        except OSError:
            pass

    previous = {s: signal.signal(s, forward) for s in forwarded}
    try:
        status = child.wait()
    finally:
        for s, handler in previous.items():
            signal.signal(s, handler)
    return 128 - status if status < 0 else status


def cmd_exec(args):
    from . import mounts, namespace, sandbox
    if not args.command:
        raise BootsimError("no command given (bootsim exec [options] -- CMD [ARGS...])", 2)
    desc = _description(args)
    build = platform.build_dir(args.build_dir)
    sandbox.check_host_dirs()
    base = os.path.abspath(os.environ.get("BOOTSIM_BOARDS") or "/tmp")
    try:
        os.makedirs(base, exist_ok=True)
        root = tempfile.mkdtemp(prefix="bootsim-", dir=base)
        os.chmod(root, 0o755)
    except OSError as e:
        raise BootsimError(f"cannot create a board under {base}: {e.strerror}",
                           SETUP_FAILURE) from e

    in_ram = False
    if not args.keep:
        # A tmpfs in a mount namespace of our own: creating and dropping the board costs
        # (almost) nothing and the host's disk never sees it. Fall back to disk if not allowed.
        try:
            namespace.enter_private_mount_namespace()
            mounts.mark_entered()
            namespace.mount_tmpfs(root)
            in_ram = True
        except OSError:
            pass
    board = Board(root)
    try:
        board.create(desc, kind=args.kind, build=build)
        # create() has just made the library directory: no second refresh
        status = run_child(sandbox.bwrap_args(board, args.command, host_paths=args.host_path,
                                              build=build, refresh=False, runner="exec",
                                              restored_signals=True))
    finally:
        if args.keep:
            print(f"bootsim: board kept at {root}", file=sys.stderr)
        elif in_ram:
            namespace.detach(root)
            os.rmdir(root)
        elif board.is_board():
            board.remove()
        else:
            remove_tree(root)
    return status


def cmd_remove(args):
    Board(args.root).remove()
    return 0


def cmd_set(args):
    if not args.assignments and not args.unset:
        raise BootsimError("nothing to set (SECTION.KEY=VALUE or --unset SECTION.KEY)", 2)
    board = Board(args.root).require_board()
    desc = board.description()
    desc.apply(args.assignments)
    for name in args.unset:
        desc.unset(*parse_name(name))
    board.save_description(desc)
    return 0


def cmd_show(args):
    desc = Board(args.root).require_board().description()
    if args.name is None:
        sys.stdout.write(desc.dumps())
        return 0
    value = desc.get(*parse_name(args.name))
    if value is None:
        print(f"bootsim: {args.name} is not set", file=sys.stderr)
        return 1
    print(value)
    return 0


def _in_board(board, command, capture=False):
    """Run COMMAND inside BOARD (a bootsim tool, not a program of the build)."""
    from . import sandbox
    argv = sandbox.bwrap_args(board, command, cwd="/")
    sys.stdout.flush()
    if capture:
        return subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    return run_child(argv)


def cmd_env(args):
    from . import ubootenv
    board = Board(args.root).require_board()
    if args.assignments or args.unset:
        if args.names:
            raise BootsimError("NAMEs to print cannot be combined with --set/--unset", 2)
        commands = ubootenv.setenv_commands(args.assignments, args.unset)
        script = "set -e\n" + "".join(shlex.join(c) + "\n" for c in commands)
        return _in_board(board, ["/bin/sh", "-c", script])
    if not args.names:
        return _in_board(board, ubootenv.printenv_command())
    for name in args.names:
        ubootenv.check_name(name)
    result = _in_board(board, ubootenv.printenv_command(), capture=True)
    if result.returncode != 0:
        raise BootsimError(f"fw_printenv failed with status {result.returncode}")
    variables = ubootenv.parse_listing(result.stdout.decode("utf-8", errors="surrogateescape"))
    status = 0
    for name in args.names:
        if name in variables:
            print(f"{name}={variables[name]}")
        else:
            print(f"bootsim: {name} is not set", file=sys.stderr)
            status = 1
    return status


def cmd_ini(args):
    from . import boardfiles
    board = Board(args.root).require_board()
    boardfiles.update_ini(board, args.board_path, args.assignments, args.unset)
    return 0


def cmd_put(args):
    from . import boardfiles
    board = Board(args.root).require_board()
    mode = boardfiles.parse_mode(args.mode) if args.mode is not None else None
    if args.from_file is not None:
        data = boardfiles.read_host_file(args.from_file)
    elif args.text is not None:
        data = args.text.encode("utf-8", errors="surrogateescape")
    else:
        data = b""
    boardfiles.put(board, args.board_path, data, mode)
    return 0


def cmd_rm(args):
    from . import boardfiles
    board = Board(args.root).require_board()
    for path in args.board_paths:
        boardfiles.remove(board, path, recursive=args.recursive, force=args.force)
    return 0


def cmd_package(args):
    from . import boardfiles
    board = Board(args.root).require_board()
    print(boardfiles.package(board, args.host_file, backup=args.backup, name=args.name))
    return 0


def cmd_log(args):
    from . import logfile
    board = Board(args.root).require_board()
    board_path = args.path or logfile.log_type(args.type).default_path
    log = logfile.read(board.host_path(board_path), args.type)
    out = sys.stdout.buffer
    if args.raw_header:
        out.write(log.header_line().encode() + b"\n")
        return 0
    out.write(log.all_text() if args.all else log.current_text())
    out.flush()
    if log.truncated:
        print(f"bootsim: {board_path}: curLen {log.cur_len} but only {log.available} text "
              f"bytes in the file", file=sys.stderr)
        return 1
    return 0


def cmd_path(args):
    board = Board(args.root)
    for path in args.board_paths:
        print(board.host_path(path))
    return 0


def cmd_flash(args):
    from . import boardfiles, flash
    board = Board(args.root).require_board()
    if args.write is not None:
        flash.write(board, args.area, boardfiles.read_host_file(args.write))
    elif args.erase:
        flash.erase(board, args.area)
    elif args.remove:
        flash.remove(board, args.area)
    else:
        crl = flash.read(board, args.area)
        if not crl:
            state = "was never written" if crl is None else "is erased"
            raise BootsimError(f"the {args.area} area {state}: it holds no CRL")
        try:
            with open(args.read, "wb") as f:
                f.write(crl)
        except OSError as e:
            raise BootsimError(f"cannot write {args.read}: {e.strerror}") from e
    return 0


COMMANDS = {
    "create": cmd_create,
    "run": cmd_run,
    "exec": cmd_exec,
    "remove": cmd_remove,
    "set": cmd_set,
    "show": cmd_show,
    "env": cmd_env,
    "ini": cmd_ini,
    "put": cmd_put,
    "rm": cmd_rm,
    "package": cmd_package,
    "log": cmd_log,
    "path": cmd_path,
    "flash": cmd_flash,
}


def main(argv=None):
    args = parse(sys.argv[1:] if argv is None else argv)
    try:
        return COMMANDS[args.cmd](args)
    except BootsimError as e:
        print(f"bootsim {args.cmd}: error: {e}", file=sys.stderr)
        if args.cmd in _COMMAND_RUNNERS and e.status == 1:
            return SETUP_FAILURE  # the command never started
        return e.status
    except KeyboardInterrupt:
        return 130
    except BrokenPipeError:
        # The reader went away (e.g. `bootsim log ROOT | head`): no traceback at exit.
        devnull = os.open(os.devnull, os.O_WRONLY)
        os.dup2(devnull, sys.stdout.fileno())
        return 1
