"""Tests of the FTP servers bootsim runs for a board's peers: main boards served with pyftpdlib
and the scripted server (tools/bootsim/bootsim_lib/ftp_script.py). Clients are Python's own
(ftplib, sockets) run inside the boards."""
import json
import os
import subprocess
import time
import uuid

import pytest

from bootsim_helpers import _bootsim_lib, bootsim, bootsim_path

USERS = "bootfile:/opt swmdata:/var/lib"
PEER_LOG = "/etc/bootsim/peers/mmb1.log"
RECORD = "/etc/bootsim/peers/mmb1.commands"

FETCH = r"""
import ftplib, sys
host, port, user, password, path = sys.argv[1:6]
ftp = ftplib.FTP()
ftp.connect(host, int(port), timeout=10)
ftp.login(user, password)
chunks = []
ftp.retrbinary("RETR " + path, chunks.append)
sys.stdout.buffer.write(b"".join(chunks))
ftp.quit()
"""

# Drives control connections by hand, one after the other. Actions of a connection: a command
# line to send, "<" to read one reply line, "data" to connect to the port of the last PASV
# reply (at the control connection's peer address) and "recv" to read the data connection to
# its end. Prints, per connection, the lines read and the data received (or the error) as JSON.
CLIENT = r"""
import json, re, socket, sys
host, port, sessions = sys.argv[1], int(sys.argv[2]), json.loads(sys.argv[3])
outputs = []
for actions in sessions:
    ctrl = socket.create_connection((host, port), timeout=10)
    reader = ctrl.makefile("rb")
    out, last, data = [], "", None
    outputs.append(out)
    for action in actions:
        if action == "<":
            last = reader.readline().decode("latin-1")
            out.append(last)
        elif action == "data":
            numbers = [int(n) for n in re.search(r"\(([\d,]+)\)", last).group(1).split(",")]
            data_port = numbers[4] * 256 + numbers[5]
            data = socket.create_connection((ctrl.getpeername()[0], data_port), timeout=10)
            out.append("data from " + data.getsockname()[0] + " to " + data.getpeername()[0])
        elif action == "recv":
            received = b""
            try:
                while True:
                    chunk = data.recv(65536)
                    if not chunk:
                        break
                    received += chunk
                out.append({"data": received.decode("latin-1")})
            except OSError as e:
                out.append({"data": received.decode("latin-1"), "error": e.errno})
        else:
            ctrl.sendall(action.encode("latin-1") + b"\r\n")
    ctrl.close()
print(json.dumps(outputs))
"""


def main_board(board, name, address, files=None, **settings):
    made = board(name, settings={"net.address": address, "ftp.users": USERS, **settings})
    for path, data in (files or {}).items():
        made.put(path, data)
    return made


def python_inside(made, code, *args, **kwargs):
    return made.run("/usr/bin/python3", "-c", code, *map(str, args), **kwargs)


def fetch(made, host, path, user="bootfile", password=None, port=21):
    return python_inside(made, FETCH, host, port, user, password or user, path)


def dialogues(made, sessions, host="127.0.0.11", port=21):
    """What the client saw on each of SESSIONS (lists of actions), run in one command."""
    result = python_inside(made, CLIENT, host, port, json.dumps(sessions))
    assert result.returncode == 0, result.stderr
    return json.loads(result.stdout)


def dialogue(made, actions, host="127.0.0.11", port=21):
    return dialogues(made, [actions], host, port)[0]


def script_board(board, tmp_path, script, name="lc", **settings):
    path = tmp_path / f"{name}-script.json"
    path.write_text(json.dumps(script))
    return board(name, kind="lc", settings={"peers.mmb1_script": str(path),
                                            "net.mmb1_address": "127.0.0.11", **settings})


# --------------------------------------------------------------------------- main boards


def test_peer_root_is_served_read_only_with_name_as_password(board):
    mmb1 = main_board(board, "mmb1", "127.0.0.11", {"/opt/boot/a.bin": b"\x00\x01data\xff",
                                                    "/var/lib/b.txt": "bee"})
    lc = board("lc", kind="lc", settings={"peers.mmb1": str(mmb1.root)})
    result = fetch(lc, "127.0.0.11", "/opt/boot/a.bin")
    assert (result.returncode, result.stdout) == (0, b"\x00\x01data\xff"), result.stderr
    assert fetch(lc, "127.0.0.11", "/var/lib/b.txt", user="swmdata").stdout == b"bee"
    refused = python_inside(lc, (
        "import ftplib, io\n"
        "ftp = ftplib.FTP(); ftp.connect('127.0.0.11', 21, timeout=10)\n"
        "try:\n"
        "    ftp.login('bootfile', 'secret')\n"
        "except ftplib.error_perm as e:\n"
        "    print(str(e)[:3])\n"
        "ftp.login('bootfile', 'bootfile')\n"
        "for call in (lambda: ftp.storbinary('STOR /opt/new', io.BytesIO(b'x')),\n"
        "             lambda: ftp.delete('/opt/boot/a.bin'), lambda: ftp.mkd('/opt/d')):\n"
        "    try:\n"
        "        call()\n"
        "    except ftplib.error_perm as e:\n"
        "        print(str(e)[:3])\n"
        "print(ftp.sendcmd('PASV'))\n"))
    assert refused.returncode == 0, refused.stderr
    lines = refused.stdout.decode().splitlines()
    assert lines[:4] == ["530", "550", "550", "550"]
    assert lines[4].startswith("227 Entering passive mode (127,0,0,11,")
    assert mmb1.read_bytes("/opt/boot/a.bin") == b"\x00\x01data\xff"
    assert not mmb1.exists("/opt/new") and not mmb1.exists("/opt/d")
    # the server's output goes to its log in the board, not to the command's
    assert refused.stderr == b""
    log = lc.read(PEER_LOG)
    assert "starting FTP server on 127.0.0.11:21" in log
    assert "USER 'bootfile' logged in." in log


def test_two_peers_at_their_own_addresses_and_ports(board):
    mmb1 = main_board(board, "mmb1", "127.0.0.11", {"/opt/f": "one"})
    mmb2 = main_board(board, "mmb2", "127.0.0.12", {"/opt/f": "two"}, **{"ftp.port": "2121"})
    lc = board("lc", kind="lc", settings={"peers.mmb1": str(mmb1.root),
                                          "peers.mmb2": str(mmb2.root)})
    assert fetch(lc, "127.0.0.11", "/opt/f").stdout == b"one"
    assert fetch(lc, "127.0.0.12", "/opt/f", port=2121).stdout == b"two"
    assert fetch(lc, "127.0.0.12", "/opt/f").returncode != 0  # nothing at port 21
    assert sorted(os.listdir(lc.path("/etc/bootsim/peers"))) == ["mmb1", "mmb1.log", "mmb2",
                                                                 "mmb2.log"]


def test_peer_accounts_are_the_peers_users(board):
    mmb1 = main_board(board, "mmb1", "127.0.0.11", {"/opt/f": "x"},
                      **{"ftp.users": "only:/opt only:/var/lib"})
    lc = board("lc", kind="lc", settings={"peers.mmb1": str(mmb1.root)})
    assert fetch(lc, "127.0.0.11", "/opt/f", user="only").stdout == b"x"
    assert fetch(lc, "127.0.0.11", "/opt/f").returncode != 0


def test_a_board_can_serve_itself(board):
    own = board("mmb2", kind="mmb-standby", settings={"net.address": "127.0.0.12",
                                                      "ftp.users": USERS})
    own.put("/opt/self", "me")
    own.set(f"peers.mmb2={own.root}")
    assert fetch(own, "127.0.0.12", "/opt/self").stdout == b"me"


def test_exec_serves_peers(board):
    mmb1 = main_board(board, "mmb1", "127.0.0.11", {"/opt/f": "exec"})
    result = bootsim("exec", "--kind", "lc", "--set", f"peers.mmb1={mmb1.root}", "--",
                     "/usr/bin/python3", "-c", FETCH, "127.0.0.11", "21", "bootfile",
                     "bootfile", "/opt/f", check=False)
    assert (result.returncode, result.stdout) == (0, b"exec"), result.stderr


PROBE = ('env | LC_ALL=C sort; grep -E "^Sig(Ign|Blk)" /proc/self/status; ls /proc/self/fd; '
         'echo "pid $$ in $(pwd)"; cat; echo err >&2')


def test_command_runs_as_without_servers(board, tmp_path):
    mmb1 = main_board(board, "mmb1", "127.0.0.11")
    plain = board("plain", kind="lc")
    served = board("served", kind="lc", settings={"peers.mmb1": str(mmb1.root)})
    # a descriptor open in the caller reaches the command either way
    extra = os.open(tmp_path / "extra", os.O_WRONLY | os.O_CREAT, 0o600)
    try:
        for runner in ("run", "exec"):
            outputs = []
            for made in (plain, served):
                if runner == "run":
                    argv = [bootsim_path(), "run", made.root, "--", "sh", "-c", PROBE]
                else:
                    argv = [bootsim_path(), "exec", "--kind", "lc"] + (
                        ["--set", f"peers.mmb1={mmb1.root}"] if made is served else []) + \
                        ["--", "sh", "-c", PROBE]
                result = subprocess.run(argv, input=b"in\n", stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, pass_fds=(extra,), timeout=60)
                text = "\n".join(line for line in result.stdout.decode().split("\n")
                                 if not line.startswith("BOOTSIM_ROOT="))
                outputs.append((result.returncode, text, result.stderr))
            assert outputs[0] == outputs[1], runner
            assert outputs[1][2] == b"err\n"
            assert f"\n{extra}\n" in outputs[1][1] and "pid 2 in " in outputs[1][1]
    finally:
        os.close(extra)
    assert served.sh("exit 42").returncode == 42
    assert served.sh("kill -KILL $$").returncode == 128 + 9
    assert served.sh("kill -TERM $$").returncode == 128 + 15
    missing = served.run("/nonexistent/program")
    assert (missing.returncode, missing.stderr) == (
        1, b"bwrap: execvp /nonexistent/program: No such file or directory\n")


def test_servers_end_with_the_command(board, tmp_path):
    marker = uuid.uuid4().hex  # in the script, so in the server's command line
    lc = script_board(board, tmp_path, {"files": {"/opt/" + marker: {"text": "x"}}})

    def server_processes():
        found = []
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{pid}/cmdline", "rb") as f:
                    arguments = f.read().split(b"\0")
            except OSError:
                continue
            if arguments[:3] == [b"/usr/bin/python3", b"-I", b"-B"] and \
                    any(marker.encode() in argument for argument in arguments):
                found.append(pid)
        return found

    def wait_for(condition):
        deadline = time.monotonic() + 20
        while not condition() and time.monotonic() < deadline:
            time.sleep(0.1)
        return condition()

    command = subprocess.Popen([str(bootsim_path()), "run", str(lc.root), "--", "sh", "-c",
                                "ps -e -o args | grep -c '^/usr/bin/python3 -I -B '; read x"],
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    try:
        # inside: one process left of the launcher, the server (the command became itself)
        assert command.stdout.readline() == b"1\n"
        assert len(server_processes()) == 1
    finally:
        command.communicate(b"\n", timeout=60)
    assert command.returncode == 0
    assert wait_for(lambda: server_processes() == [])


# --------------------------------------------------------------------------- set-up errors


def without(made, *names):
    """MADE without the description entries NAMES (defaults of its kind included)."""
    bootsim("set", made.root, *[arg for name in names for arg in ("--unset", name)])
    return made


# Descriptions that cannot be served, with bootsim's message: {name} stands for the host path
# of a board or file made by the test.
UNSERVABLE = [
    ({"peers.mmb1": "relative/root"},
     "[peers] mmb1: 'relative/root' is not an absolute host path"),
    ({"peers.mmb3": "/x"}, "[peers] mmb3: unknown key (one of mmb1, mmb1_script, mmb2, "
                           "mmb2_script)"),
    ({"peers.mmb1": "{mmb1}", "peers.mmb1_script": "{script}"},
     "[peers] names both mmb1 and mmb1_script"),
    ({"peers.mmb2": "{nothing}"}, "[peers] mmb2: {nothing} is not a board root"),
    ({"peers.mmb1": "{bare}"}, "[peers] mmb1: the board {bare} has no [net] address"),
    ({"peers.mmb1": "{badport}"}, "[peers] mmb1: {badport}: [ftp] port must be a number from 1 "
                                  "to 65535, not '70000'"),
    ({"peers.mmb1": "{mmb1}", "peers.mmb2": "{same}"},
     "[peers] mmb1 and mmb2 are both to be served at 127.0.0.11:21"),
    ({"peers.mmb1": "{far}"}, "cannot serve mmb1 at 10.0.0.5:21: [Errno 99] Cannot assign "
                              "requested address"),
    ({"peers.mmb1_script": "{script}"}, "[peers] mmb1_script: the script names no address and "
                                        "the board has no [net] mmb1_address"),
    ({"peers.mmb1_script": "{badscript}", "net.mmb1_address": "127.0.0.11"},
     "[peers] mmb1_script: {badscript}: steps['USER'][0]: unknown keys answer"),
    ({"peers.mmb1_script": "{notjson}", "net.mmb1_address": "127.0.0.11"},
     "[peers] mmb1_script: {notjson} is not JSON: Expecting value: line 1 column 1 (char 0)"),
]


def test_peers_that_cannot_be_served_stop_the_command(board, tmp_path):
    paths = {
        "mmb1": main_board(board, "mmb1", "127.0.0.11").root,
        "same": main_board(board, "same", "127.0.0.11").root,
        "far": main_board(board, "far", "10.0.0.5").root,
        "bare": without(board("bare"), "net.address").root,
        "badport": main_board(board, "badport", "127.0.0.13", **{"ftp.port": "70000"}).root,
    }
    for name, text in {"script": "{}", "notjson": "",
                       "badscript": json.dumps({"steps": {"USER": [{"answer": "331"}]}})}.items():
        paths[name] = tmp_path / f"{name}.json"
        paths[name].write_text(text)
    paths["nothing"] = tmp_path / "nothing"
    paths["nothing"].mkdir()
    lc = board("lc", kind="lc")
    keys = {key for settings, _ in UNSERVABLE for key in settings} | {"net.mmb1_address"}
    for settings, message in UNSERVABLE:
        without(lc, *keys)
        lc.set(*[f"{key}={value.format(**paths)}" for key, value in settings.items()])
        result = lc.sh("touch /opt/ran")
        expected = f"bootsim run: error: {message.format(**paths)}\n"
        assert (result.returncode, result.stderr.decode()) == (125, expected), settings
        assert not lc.exists("/opt/ran")


# --------------------------------------------------------------------------- scripted server


def test_script_default_dialogue_and_record(board, tmp_path):
    lc = script_board(board, tmp_path, {"files": {"/opt/f": {"text": "payload"}}},
                      **{"net.address": "127.0.0.21"})
    out = dialogue(lc, ["<", "USER bootfile", "<", "PASS bootfile", "<", "TYPE I", "<",
                        "PASV", "<", "data", "RETR /opt/f", "<", "recv", "<", "NOOP", "<",
                        "RETR /opt/none", "<", "QUIT", "<", "<"])
    pasv = out[4]
    assert out[:4] == ["220 bootsim script server ready\r\n", "331 Password required\r\n",
                       "230 Logged in\r\n", "200 Type set to I\r\n"]
    assert pasv.startswith("227 Entering Passive Mode (127,0,0,11,")
    assert out[5:] == ["data from 127.0.0.1 to 127.0.0.11",
                       "150 Opening BINARY mode data connection\r\n", {"data": "payload"},
                       "226 Transfer complete\r\n", "502 Command not implemented\r\n",
                       "550 No such file\r\n", "221 Goodbye\r\n", ""]
    assert lc.read(RECORD) == ("connect from 127.0.0.1\nUSER bootfile\nPASS bootfile\n"
                               "TYPE I\nPASV\nRETR /opt/f\ndata connection from 127.0.0.1\n"
                               "NOOP\nRETR /opt/none\nQUIT\n")
    assert lc.read(PEER_LOG) == "script server listening at 127.0.0.11:21\n"


def test_script_steps_in_order_then_defaults(board, tmp_path):
    script = {
        "port": 2100,
        "files": {"/opt/big": {"pattern": "0123456789", "size": 100003}},
        "steps": {
            "CONNECT": [{"reply": ["220-Welcome", " second line", "220 ready"]}],
            "USER": [{"reply": [], "delay": 0.2}, {"raw": "331 no line end"}],
            "PASV": [{"reply": "227 Entering Passive Mode (10,0,0,9,{p1},{p2})"}],
            "RETR": [{"reply": "150 partial", "transfer": "reset", "data": {"hex": "6162"}},
                     {"reply": "125 go", "transfer": "close", "after": "250 not 226"}],
            "QUIT": [{"reply": "500 what", "close": True}],
        },
    }
    lc = script_board(board, tmp_path, script)
    out = dialogue(lc, ["<", "<", "<", "USER a", "USER b", "PASV", "<", "data",
                        "RETR /opt/big", "<", "recv", "PASV", "<", "data", "RETR /opt/big",
                        "<", "recv", "<", "QUIT", "<", "<"], port=2100)
    assert out[:3] == ["220-Welcome\r\n", " second line\r\n", "220 ready\r\n"]
    # the first USER is never answered; the second one's reply has no line end
    assert out[3].startswith("331 no line end227 Entering Passive Mode (10,0,0,9,")
    assert out[3].endswith(")\r\n")
    assert out[4] == "data from 127.0.0.1 to 127.0.0.11"
    assert out[5:7] == ["150 partial\r\n", {"data": "ab", "error": 104}]
    assert out[7].startswith("227 Entering Passive Mode (127,0,0,11,")
    assert out[9] == "125 go\r\n"
    assert out[10] == {"data": "0123456789" * 10000 + "012"}
    assert out[11:] == ["250 not 226\r\n", "500 what\r\n", ""]
    assert lc.read(RECORD).split("\n") == [
        "connect from 127.0.0.1", "USER a", "USER b", "PASV", "RETR /opt/big",
        "data connection from 127.0.0.1", "PASV", "RETR /opt/big",
        "data connection from 127.0.0.1", "QUIT", ""]


def test_script_counts_steps_across_connections(board, tmp_path):
    script = {"steps": {"CONNECT": [{"reply": "421 busy", "close": True},
                                    {"reply": "220 second"}]}}
    lc = script_board(board, tmp_path, script)
    assert dialogues(lc, [["<", "<"], ["<", "QUIT", "<"], ["<"]]) == [
        ["421 busy\r\n", ""], ["220 second\r\n", "221 Goodbye\r\n"],
        ["220 bootsim script server ready\r\n"]]
    assert lc.read(RECORD) == ("connect from 127.0.0.1\nconnect from 127.0.0.1\nQUIT\n"
                               "connect from 127.0.0.1\n")
    # every command starts the servers afresh, with a new record
    assert dialogue(lc, ["<"]) == ["421 busy\r\n"]
    assert lc.read(RECORD) == "connect from 127.0.0.1\n"


def test_script_data_port_and_foreign_pasv_address(board, tmp_path):
    script = {"files": {"/opt/f": {"text": "via 5001"}},
              "steps": {"PASV": [{"reply": "227 Entering Passive Mode (10,0,0,9,19,137)",
                                  "data_port": 5001}]}}
    lc = script_board(board, tmp_path, script)
    out = dialogue(lc, ["<", "PASV", "<", "data", "RETR /opt/f", "<", "recv", "<"])
    assert out[1:] == ["227 Entering Passive Mode (10,0,0,9,19,137)\r\n",
                       "data from 127.0.0.1 to 127.0.0.11",
                       "150 Opening BINARY mode data connection\r\n", {"data": "via 5001"},
                       "226 Transfer complete\r\n"]


def test_script_at_its_own_address(board, tmp_path):
    lc = script_board(board, tmp_path, {"address": "127.0.0.30"},
                      **{"net.mmb1_address": "127.0.0.99"})
    assert dialogue(lc, ["<"], host="127.0.0.30") == ["220 bootsim script server ready\r\n"]


@pytest.mark.parametrize("script, message", [
    ([], "a script is a JSON object"),
    ({"greeting": "220"}, "unknown keys greeting"),
    ({"files": {"/a": {"text": 1}}}, "files['/a']: unusable data {'text': 1}"),
    ({"files": {"/a": {"pattern": "", "size": 3}}},
     "files['/a']: unusable data {'pattern': '', 'size': 3}"),
    ({"steps": {"user": []}}, "steps: command words are upper case, not 'user'"),
    ({"steps": {"USER": {}}}, "steps['USER'] must be a list of steps"),
    ({"steps": {"USER": [{"reply": "a\r\nb"}]}},
     "steps['USER'][0].reply: a line must not hold a line end (use \"raw\")"),
    ({"steps": {"USER": [{"reply": 331}]}}, "steps['USER'][0].reply must be a line or a list "
                                            "of lines"),
    ({"steps": {"RETR": [{"transfer": "abort"}]}},
     "steps['RETR'][0].transfer must be one of close, reset, hold"),
    ({"steps": {"USER": [{"delay": -1}]}}, "steps['USER'][0]: delay must be a number of "
                                           "seconds"),
    ({"steps": {"QUIT": [{"close": "yes"}]}}, "steps['QUIT'][0].close must be true or false"),
    ({"steps": {"PASV": [{"data_port": 0}]}}, "steps['PASV'][0].data_port must be a port number"),
])
def test_script_check(script, message):
    _bootsim_lib()
    from bootsim_lib import ftp_script
    with pytest.raises(ValueError) as caught:
        ftp_script.check(script)
    assert str(caught.value) == message
