"""The main boards a board talks to: FTP servers started in the board's own network.

A board description may name its peers, the main management boards it downloads from:

    [peers]
    mmb1 = HOST_PATH          board root of main board 1, served over FTP
    mmb2 = HOST_PATH          board root of main board 2
    mmb1_script = HOST_PATH   instead of mmb1: a scripted FTP server (see ftp_script.py)
    mmb2_script = HOST_PATH   instead of mmb2

For every command that `run` and `exec` start in such a board, bootsim serves each peer inside
the board's private network namespace, where nothing else can reach it: a peer board's root at
the peer's [net] address and [ftp] port (default 21), with one account per [ftp] users entry
of the peer (password = user name, home = the peer's root, read only); a script at the
address the board itself knows for that main board ([net] mmb1_address / mmb2_address) unless
the script names one.

The peer roots are bound read-only onto mount points in the board's own /etc/bootsim/peers,
and the servers write their output to /etc/bootsim/peers/NAME.log there (a script server also
its record of the dialogue to NAME.commands). The launcher (board_servers.py) starts them
inside the sandbox, waits until they listen and then becomes the command itself.
"""
import json
import os
import signal
from dataclasses import asdict, dataclass, field

from . import ftp_script
from .board import Board
from .errors import BootsimError

SETUP_FAILURE = 125

SECTION = "peers"
PEER_NAMES = ("mmb1", "mmb2")
SCRIPT_SUFFIX = "_script"
PEER_DIR = "/etc/bootsim/peers"
DEFAULT_PORT = 21

PYTHON = "/usr/bin/python3"
LAUNCHER = os.path.join(os.path.dirname(os.path.realpath(__file__)), "board_servers.py")

# Signals Python itself ignores at start-up; the launcher hands the command the dispositions
# it would have had without it.
RESTORED_SIGNALS = tuple(getattr(signal, name) for name in ("SIGPIPE", "SIGXFSZ")
                         if hasattr(signal, name))


@dataclass
class Server:
    """One FTP server of the board's network, as the launcher inside the board gets it."""
    name: str                 # mmb1 or mmb2
    address: str
    port: int
    log: str                  # board path of the server's output
    home: str = ""            # board path of the peer root (board peers)
    users: list = field(default_factory=list)
    script: dict = None       # the script (script peers)
    record: str = ""          # board path of the dialogue record (script peers)


@dataclass
class Plan:
    servers: list
    binds: list               # (host peer root, board mount point), bound read-only


def _error(message):
    return BootsimError(message, SETUP_FAILURE)


def _port(text, where):
    try:
        port = int(str(text).strip(), 10)
    except ValueError:
        port = -1
    if not 0 < port < 65536:
        raise _error(f"{where} must be a number from 1 to 65535, not {text!r}")
    return port


def _users(text):
    """Account names of an [ftp] users value ("name:directory ..."), each once."""
    names = []
    for entry in (text or "").split():
        name = entry.split(":", 1)[0]
        if name and name not in names:
            names.append(name)
    return names


def _host_root(value, key):
    path = value.strip()
    if not os.path.isabs(path):
        raise _error(f"[{SECTION}] {key}: {value!r} is not an absolute host path")
    return os.path.normpath(path)


def _board_server(name, value):
    root = _host_root(value, name)
    peer = Board(root)
    if not peer.is_board():
        raise _error(f"[{SECTION}] {name}: {root} is not a board root")
    desc = peer.description()
    address = (desc.get("net", "address") or "").strip()
    if not address:
        raise _error(f"[{SECTION}] {name}: the board {root} has no [net] address")
    port = _port(desc.get("ftp", "port", str(DEFAULT_PORT)),
                 f"[{SECTION}] {name}: {root}: [ftp] port")
    home = f"{PEER_DIR}/{name}"
    server = Server(name=name, address=address, port=port, log=f"{PEER_DIR}/{name}.log",
                    home=home, users=_users(desc.get("ftp", "users")))
    return server, (peer.root, home)


def _script_server(name, value, desc):
    path = _host_root(value, name + SCRIPT_SUFFIX)
    try:
        with open(path, encoding="utf-8") as f:
            script = json.load(f)
    except OSError as e:
        raise _error(f"[{SECTION}] {name}{SCRIPT_SUFFIX}: cannot read {path}: "
                     f"{e.strerror}") from e
    except ValueError as e:
        raise _error(f"[{SECTION}] {name}{SCRIPT_SUFFIX}: {path} is not JSON: {e}") from e
    try:
        ftp_script.check(script)
    except ValueError as e:
        raise _error(f"[{SECTION}] {name}{SCRIPT_SUFFIX}: {path}: {e}") from e
    address = script.get("address") or (desc.get("net", f"{name}_address") or "").strip()
    if not address:
        raise _error(f"[{SECTION}] {name}{SCRIPT_SUFFIX}: the script names no address and "
                     f"the board has no [net] {name}_address")
    port = _port(script.get("port", DEFAULT_PORT),
                 f"[{SECTION}] {name}{SCRIPT_SUFFIX}: {path}: port")
    return Server(name=name, address=address, port=port, log=f"{PEER_DIR}/{name}.log",
                  script=script, record=f"{PEER_DIR}/{name}.commands")


def plan(board):
    """The servers and binds of BOARD's [peers] (no servers when it names none)."""
    desc = board.description()
    entries = desc.as_dict().get(SECTION, {})
    known = set(PEER_NAMES) | {name + SCRIPT_SUFFIX for name in PEER_NAMES}
    for key in entries:
        if key not in known:
            raise _error(f"[{SECTION}] {key}: unknown key (one of {', '.join(sorted(known))})")
    servers, binds = [], []
    for name in PEER_NAMES:
        root, script = entries.get(name, "").strip(), entries.get(name + SCRIPT_SUFFIX, "")
        if root and script.strip():
            raise _error(f"[{SECTION}] names both {name} and {name}{SCRIPT_SUFFIX}")
        if root:
            server, bind = _board_server(name, root)
            servers.append(server)
            binds.append(bind)
        elif script.strip():
            servers.append(_script_server(name, script, desc))
    if len(servers) == 2 and (servers[0].address, servers[0].port) == \
            (servers[1].address, servers[1].port):
        raise _error(f"[{SECTION}] mmb1 and mmb2 are both to be served at "
                     f"{servers[0].address}:{servers[0].port}")
    for server in servers:
        os.makedirs(board.host_path(PEER_DIR), 0o755, exist_ok=True)
        if server.home:
            os.makedirs(board.host_path(server.home), 0o755, exist_ok=True)
    return Plan(servers=servers, binds=binds)


def signal_dispositions(restored):
    """{signal name: "ignore" | "default"} the command is to start with.

    RESTORED: whether the command would be started with Python's ignored signals set back to
    their defaults (subprocess does that; an exec from bootsim itself does not)."""
    result = {}
    for signum in RESTORED_SIGNALS:
        ignored = not restored and signal.getsignal(signum) == signal.SIG_IGN
        result[signal.Signals(signum).name] = "ignore" if ignored else "default"
    return result


def launcher_command(servers, command, runner, restored_signals):
    """The argv that starts SERVERS inside the board and then becomes COMMAND."""
    orders = {"runner": runner, "signals": signal_dispositions(restored_signals),
              "servers": [asdict(server) for server in servers]}
    return [PYTHON, "-I", "-B", LAUNCHER, json.dumps(orders, separators=(",", ":")), "--"] + \
        list(command)
