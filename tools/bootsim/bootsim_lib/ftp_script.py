"""A scripted FTP server: answers each command as a script says, for faults at the reply level.

A script is a JSON object:

    {
      "address": "127.0.0.11",          where to listen (optional; bootsim's default is the
                                         board's [net] mmbN_address)
      "port": 21,                       optional, default 21
      "files": {"/opt/a": DATA, ...},   what a plain RETR of that path sends
      "steps": {"CONNECT": [STEP, ...], "USER": [STEP, ...], ...}
    }

"steps" lists, per command word (upper case; CONNECT is the greeting of a new control
connection), how its successive occurrences are answered: the first USER the server receives
(on any connection) gets the first USER step, and so on. Once a word's steps are used up, or
for a word without steps, the server answers as a plain server would (see DEFAULT_STEPS and
ScriptServer.next_step).

A STEP is an object with any of:

    "delay": SECONDS     wait before answering
    "reply": LINE(S)     reply lines, each sent with CRLF added; an empty list sends nothing,
                         so the command is never answered
    "raw": TEXT          bytes (latin-1) sent as they are after the reply lines: a line without
                         its end, say
    "listen": BOOL       PASV: open the data listener first (default true). It listens on the
                         control connection's own address only, at a new port; {h1} to {h4},
                         {p1} and {p2} in the reply lines stand for its address and port
    "data_port": PORT    PASV: the data listener's port (default: any free one)
    "transfer": HOW      RETR: use the data connection: "close" (send the data, then close it),
                         "reset" (send the data, then reset the connection) or "hold" (send the
                         data and keep the connection open); without it, no data is sent
    "data": DATA         RETR: what to send instead of the file of "files"
    "after": LINE(S)     RETR: reply lines after the transfer (default "226 Transfer complete"
                         after "close", nothing after "reset" and "hold")
    "close": BOOL        close the control connection at the end of the step

DATA is {"text": TEXT}, {"hex": HEX} or {"pattern": TEXT, "size": N} (TEXT repeated up to N
bytes).

The server records what it receives, one line each, in its record file: "connect from ADDR"
for a control connection, each command line as received (without its line end), "data
connection from ADDR" when a transfer takes the data connection and "no data connection" when
none came within DATA_TIMEOUT. A line is recorded before the server answers it.
"""
import os
import socket
import struct
import threading
import time

CRLF = b"\r\n"
DATA_TIMEOUT = 10.0
MAX_COMMAND = 4096
CHUNK = 65536

DEFAULT_STEPS = {
    "CONNECT": {"reply": "220 bootsim script server ready"},
    "USER": {"reply": "331 Password required"},
    "PASS": {"reply": "230 Logged in"},
    "TYPE": {"reply": "200 Type set to I"},
    "PASV": {"reply": "227 Entering Passive Mode ({h1},{h2},{h3},{h4},{p1},{p2})"},
    "QUIT": {"reply": "221 Goodbye", "close": True},
}
UNKNOWN_STEP = {"reply": "502 Command not implemented"}
MISSING_FILE_STEP = {"reply": "550 No such file"}
RETR_STEP = {"reply": "150 Opening BINARY mode data connection", "transfer": "close"}

STEP_KEYS = {"delay", "reply", "raw", "listen", "data_port", "transfer", "data", "after",
             "close"}
TRANSFERS = ("close", "reset", "hold")
SCRIPT_KEYS = {"address", "port", "files", "steps"}


# ----------------------------------------------------------------------------- checking

def _check_lines(value, where):
    lines = [value] if isinstance(value, str) else value
    if not isinstance(lines, list) or not all(isinstance(line, str) for line in lines):
        raise ValueError(f"{where} must be a line or a list of lines")
    for line in lines:
        if "\r" in line or "\n" in line:
            raise ValueError(f"{where}: a line must not hold a line end (use \"raw\")")


def _check_data(value, where):
    if not isinstance(value, dict) or len(value) == 0:
        raise ValueError(f"{where} must be {{\"text\": ...}}, {{\"hex\": ...}} or "
                         f"{{\"pattern\": ..., \"size\": N}}")
    if set(value) == {"text"} and isinstance(value["text"], str):
        return
    if set(value) == {"hex"} and isinstance(value["hex"], str):
        bytes.fromhex(value["hex"])
        return
    if set(value) == {"pattern", "size"} and isinstance(value["pattern"], str) and \
            value["pattern"] and isinstance(value["size"], int) and value["size"] >= 0:
        return
    raise ValueError(f"{where}: unusable data {value!r}")


def _check_step(step, where):
    if not isinstance(step, dict):
        raise ValueError(f"{where} must be an object")
    unknown = set(step) - STEP_KEYS
    if unknown:
        raise ValueError(f"{where}: unknown keys {', '.join(sorted(unknown))}")
    if "delay" in step and (not isinstance(step["delay"], (int, float)) or step["delay"] < 0):
        raise ValueError(f"{where}: delay must be a number of seconds")
    for key in ("reply", "after"):
        if key in step:
            _check_lines(step[key], f"{where}.{key}")
    if "raw" in step and not isinstance(step["raw"], str):
        raise ValueError(f"{where}.raw must be a text")
    if "transfer" in step and step["transfer"] not in TRANSFERS:
        raise ValueError(f"{where}.transfer must be one of {', '.join(TRANSFERS)}")
    if "data" in step:
        _check_data(step["data"], f"{where}.data")
    if "data_port" in step and (not isinstance(step["data_port"], int) or
                                not 0 < step["data_port"] < 65536):
        raise ValueError(f"{where}.data_port must be a port number")
    for key in ("listen", "close"):
        if key in step and not isinstance(step[key], bool):
            raise ValueError(f"{where}.{key} must be true or false")


def check(script):
    """Raise ValueError when SCRIPT is not a usable script."""
    if not isinstance(script, dict):
        raise ValueError("a script is a JSON object")
    unknown = set(script) - SCRIPT_KEYS
    if unknown:
        raise ValueError(f"unknown keys {', '.join(sorted(unknown))}")
    if "address" in script and not isinstance(script["address"], str):
        raise ValueError("address must be a text")
    files = script.get("files", {})
    if not isinstance(files, dict):
        raise ValueError("files must be an object")
    for path, data in files.items():
        _check_data(data, f"files[{path!r}]")
    steps = script.get("steps", {})
    if not isinstance(steps, dict):
        raise ValueError("steps must be an object")
    for word, listed in steps.items():
        if word != word.upper() or not word:
            raise ValueError(f"steps: command words are upper case, not {word!r}")
        if not isinstance(listed, list):
            raise ValueError(f"steps[{word!r}] must be a list of steps")
        for index, step in enumerate(listed):
            _check_step(step, f"steps[{word!r}][{index}]")


def data_bytes(data):
    """The bytes of a DATA object."""
    if "text" in data:
        return data["text"].encode("utf-8")
    if "hex" in data:
        return bytes.fromhex(data["hex"])
    pattern = data["pattern"].encode("utf-8")
    count, rest = divmod(data["size"], len(pattern))
    return pattern * count + pattern[:rest]


def _lines(value):
    return [value] if isinstance(value, str) else list(value)


# ----------------------------------------------------------------------------- serving

class ScriptServer:
    """Serves SCRIPT on a listening socket; one thread per control connection."""

    def __init__(self, script, address, port, record_path):
        self.script = script
        self.files = script.get("files", {})
        self.steps = script.get("steps", {})
        self.used = {}
        self.lock = threading.Lock()
        self.record_fd = os.open(record_path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_APPEND,
                                 0o644)
        self.listener = socket.create_server((address, port), backlog=16)

    def record(self, line):
        with self.lock:
            os.write(self.record_fd, line.encode("utf-8", errors="replace") + b"\n")

    def next_step(self, word, argument):
        with self.lock:
            listed = self.steps.get(word, [])
            index = self.used.get(word, 0)
            self.used[word] = index + 1
        if index < len(listed):
            return listed[index]
        if word == "RETR":
            return RETR_STEP if argument in self.files else MISSING_FILE_STEP
        return DEFAULT_STEPS.get(word, UNKNOWN_STEP)

    def serve_forever(self):
        while True:
            conn, peer = self.listener.accept()
            threading.Thread(target=self._session, args=(conn, peer), daemon=True).start()

    def _session(self, conn, peer):
        session = _Session(self, conn)
        try:
            self.record(f"connect from {peer[0]}")
            if session.perform(self.next_step("CONNECT", ""), "CONNECT", ""):
                session.dialogue()
        except OSError:
            pass  # the client went away
        finally:
            session.close()


class _Session:
    def __init__(self, server, conn):
        self.server = server
        self.conn = conn
        self.data_listener = None
        self.data_conn = None
        self.pending = b""

    def close(self):
        for sock in (self.data_conn, self.data_listener, self.conn):
            if sock is not None:
                sock.close()

    def read_line(self):
        while b"\n" not in self.pending:
            if len(self.pending) > MAX_COMMAND:
                break
            chunk = self.conn.recv(4096)
            if not chunk:
                return None
            self.pending += chunk
        line, _, self.pending = self.pending.partition(b"\n")
        return line.rstrip(b"\r").decode("latin-1")

    def dialogue(self):
        while True:
            line = self.read_line()
            if line is None:
                return
            self.server.record(line)
            word, _, argument = line.partition(" ")
            word = word.upper()
            if not self.perform(self.server.next_step(word, argument), word, argument):
                return

    def send_lines(self, lines):
        for line in _lines(lines):
            self.conn.sendall(self.expand(line).encode("latin-1") + CRLF)

    def expand(self, line):
        if self.data_listener is None:
            return line
        host, port = self.data_listener.getsockname()[:2]
        values = dict(zip(("{h1}", "{h2}", "{h3}", "{h4}"), host.split(".")))
        values.update({"{p1}": str(port // 256), "{p2}": str(port % 256)})
        for token, value in values.items():
            line = line.replace(token, value)
        return line

    def perform(self, step, word, argument):
        """Answer one command as STEP says; False once the control connection is closed."""
        time.sleep(step.get("delay", 0))
        if word == "PASV" and step.get("listen", True):
            self.open_data_listener(step.get("data_port", 0))
        self.send_lines(step.get("reply", []))
        if "raw" in step:
            self.conn.sendall(step["raw"].encode("latin-1"))
        transfer = step.get("transfer") if word == "RETR" else None
        if transfer is not None:
            data = step.get("data") or self.server.files.get(argument) or {"text": ""}
            default_after = ["226 Transfer complete"] if transfer == "close" else []
            if self.send_data(data_bytes(data), transfer):
                self.send_lines(step.get("after", default_after))
        if step.get("close", False):
            self.conn.close()
            return False
        return True

    def open_data_listener(self, port):
        if self.data_listener is not None:
            self.data_listener.close()
            self.data_listener = None
        address = self.conn.getsockname()[0]
        self.data_listener = socket.create_server((address, port), backlog=1)

    def send_data(self, payload, how):
        listener, self.data_listener = self.data_listener, None
        if listener is None:
            self.send_lines("425 Use PASV first")
            return False
        listener.settimeout(DATA_TIMEOUT)
        try:
            conn, peer = listener.accept()
        except socket.timeout:
            self.server.record("no data connection")
            self.send_lines("425 Cannot open data connection")
            return False
        finally:
            listener.close()
        self.server.record(f"data connection from {peer[0]}")
        conn.settimeout(None)
        try:
            view = memoryview(payload)
            for start in range(0, len(view), CHUNK):
                conn.sendall(view[start:start + CHUNK])
        except OSError:
            pass  # the client reset the data connection; the control connection tells
        if how == "reset":
            conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        if how == "hold":
            if self.data_conn is not None:
                self.data_conn.close()
            self.data_conn = conn
        else:
            conn.close()
        return True


def serve(script, address, port, record_path, ready):
    """Listen, call READY, serve until the process ends."""
    server = ScriptServer(script, address, port, record_path)
    print(f"script server listening at {address}:{port}", flush=True)
    ready()
    server.serve_forever()
