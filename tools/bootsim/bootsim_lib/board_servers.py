"""Inside a board: start the FTP servers of the board's peers, then become the command.

bwrap starts this as `/usr/bin/python3 -I -B board_servers.py ORDERS -- CMD [ARGS...]` when the
board's description names peers (see peers.py, which writes ORDERS). Each server runs in a
process of its own: detached into its own session (so a terminal's signals never reach it),
with its output in its log file and no other descriptor of the command. Once every server
listens, this process executes CMD in its own place, so CMD keeps the process bwrap started,
with its descriptors, environment and working directory: exit status, stdio and signals are
exactly what they are without servers. The servers end with the board's PID namespace, when
CMD ends.

A server that cannot start (an address in use, say) makes this exit with status 125 before
CMD starts, as bootsim does for any board it cannot set up.
"""
import json
import os
import select
import signal
import sys
import time
import traceback

SETUP_FAILURE = 125
READY_TIMEOUT = 30.0


class ServerError(Exception):
    pass


def _run_server(server, ready_fd):
    """In the server's process: redirect its output, serve; never returns."""
    null = os.open(os.devnull, os.O_RDONLY)
    log = os.open(server["log"], os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_APPEND, 0o644)
    os.dup2(null, 0)
    os.dup2(log, 1)
    os.dup2(log, 2)
    os.closerange(3, ready_fd)
    os.closerange(ready_fd + 1, os.sysconf("SC_OPEN_MAX"))
    sys.stdout = os.fdopen(1, "w", buffering=1)
    sys.stderr = os.fdopen(2, "w", buffering=1)

    def ready():
        os.write(ready_fd, b"ready\n")
        os.close(ready_fd)

    try:
        sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
        if server["script"] is not None:
            from bootsim_lib import ftp_script
            ftp_script.serve(server["script"], server["address"], server["port"],
                             server["record"], ready)
        else:
            from bootsim_lib import ftp_server
            ftp_server.serve(server["name"], server["address"], server["port"],
                             server["users"], server["home"], ready)
    except BaseException as e:  # the launcher reports it; the log keeps the details
        traceback.print_exc()
        try:
            os.write(ready_fd, f"error: {e}\n".encode("utf-8", errors="replace"))
        except OSError:
            pass
    os._exit(1)


def start(server):
    """Start SERVER detached; returns the read end of its readiness pipe."""
    read_fd, write_fd = os.pipe()
    pid = os.fork()
    if pid == 0:
        try:
            os.close(read_fd)
            os.setsid()
            if os.fork() == 0:
                _run_server(server, write_fd)
        finally:
            os._exit(0)
    os.close(write_fd)
    os.waitpid(pid, 0)
    return read_fd


def wait_ready(servers, fds):
    """Wait until every server said it listens; ServerError for the first that did not."""
    answers = {fd: b"" for fd in fds}
    open_fds = set(fds)
    deadline = time.monotonic() + READY_TIMEOUT
    while open_fds:
        left = deadline - time.monotonic()
        readable = select.select(list(open_fds), [], [], max(left, 0))[0] if left > 0 else []
        if not readable:
            break
        for fd in readable:
            chunk = os.read(fd, 4096)
            answers[fd] += chunk
            if not chunk:
                open_fds.discard(fd)
    for server, fd in zip(servers, fds):
        os.close(fd)
        answer = answers[fd].decode("utf-8", errors="replace").strip()
        where = f"{server['name']} at {server['address']}:{server['port']}"
        if answer == "ready":
            continue
        if answer.startswith("error: "):
            raise ServerError(f"cannot serve {where}: {answer[len('error: '):]}")
        if fd in open_fds:
            raise ServerError(f"the server of {where} did not listen within "
                              f"{READY_TIMEOUT:.0f} s (see {server['log']})")
        raise ServerError(f"the server of {where} ended at start (see {server['log']})")


def main(argv):
    if len(argv) < 4 or argv[2] != "--":
        print("usage: board_servers.py ORDERS -- CMD [ARGS...]", file=sys.stderr)
        return SETUP_FAILURE
    orders = json.loads(argv[1])
    command = argv[3:]
    try:
        fds = [start(server) for server in orders["servers"]]
        wait_ready(orders["servers"], fds)
    except (ServerError, OSError) as e:
        print(f"bootsim {orders['runner']}: error: {e}", file=sys.stderr)
        return SETUP_FAILURE
    for name, disposition in orders["signals"].items():
        signal.signal(getattr(signal, name),
                      signal.SIG_IGN if disposition == "ignore" else signal.SIG_DFL)
    try:
        os.execvp(command[0], command)
    except OSError as e:
        # bwrap's own words and status for a command it cannot start
        print(f"bwrap: execvp {command[0]}: {e.strerror}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv))
