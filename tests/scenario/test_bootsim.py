"""Tests of the board sandbox itself (bootsim); they use only shell tools inside the boards."""
import json
import os
import shutil
import stat
import struct
import subprocess
import time
import uuid
import zlib

import pytest

from bootsim_helpers import Board, bootsim, bootsim_path, build_dir

# Directories replaced by the board, with a writable spot in each (as seen inside the board).
BOARD_DIRS = ["/opt", "/etc", "/var/lib", "/usr/local/conf", "/boot", "/dev/shm", "/tmp"]

# Host directories in which the sandbox must never leave anything (no mount points either).
WATCHED_HOST_DIRS = ["/", "/usr/local", "/dev", "/opt", "/boot"]


def unique(prefix="bootsim-test"):
    return f"{prefix}-{uuid.uuid4().hex[:12]}"


def listing(directory):
    return set(os.listdir(directory))


def lasting_new_entries(directory, before, wait=5.0):
    """Entries of DIRECTORY not in BEFORE that are still there after up to WAIT seconds.

    Other test runs on the same host (unit tests launched through `bootsim exec`) make
    short-lived bootsim-XXXXXXXX boards in the host's /tmp; whatever this test left stays."""
    deadline = time.monotonic() + wait
    new = listing(directory) - before
    while new and time.monotonic() < deadline:
        time.sleep(0.2)
        new &= listing(directory)
    return new


def python_inside(board, code, *args):
    return board.run("/usr/bin/python3", "-c", code, *args)


# --------------------------------------------------------------------------- create


def test_create_makes_the_board_layout(board):
    b = board()
    root = b.root
    for rel in ["opt", "var/lib", "etc", "usr/local/conf", "boot", "dev/shm", "tmp", "run/lock",
                "opt/kytv8/home", "opt/kytv8/backup", "boot/bootsim", "etc/bootsim/lib"]:
        assert (root / rel).is_dir() and not (root / rel).is_symlink(), rel
    for rel in ["tmp", "dev/shm", "run/lock"]:
        assert stat.S_IMODE((root / rel).stat().st_mode) == 0o1777, rel
    for name, target in {"fd": "/proc/self/fd", "stdin": "/proc/self/fd/0",
                         "stdout": "/proc/self/fd/1", "stderr": "/proc/self/fd/2"}.items():
        assert os.readlink(root / "dev" / name) == target
    assert (root / "etc/bootsim/board.ini").read_text() == (
        "[board]\nname=demo\nrole=1\nactive_state=0\nslot=1\nlogic_cpu_id=0\nhard_type=0x1A2B\n\n"
        "[support]\nbackup_dir=/opt/kytv8/backup\n\n"
        "[net]\naddress=127.0.0.11\nmmb1_address=127.0.0.11\nmmb2_address=127.0.0.12\n\n"
        "[ftp]\nusers=bootfile:/opt swmdata:/var/lib\n\n")


def test_etc_is_a_real_copy(board):
    b = board()
    host = os.stat("/etc/hostname" if os.path.exists("/etc/hostname") else "/etc/passwd")
    name = "hostname" if os.path.exists("/etc/hostname") else "passwd"
    copy = os.stat(b.root / "etc" / name)
    assert (copy.st_dev, copy.st_ino) != (host.st_dev, host.st_ino)
    assert copy.st_nlink == 1
    assert sorted(os.listdir(b.root / "etc")) == sorted(listing("/etc") | {"bootsim",
                                                                           "fw_env.config"})


def test_board_has_the_swm_account_and_host_does_not_change(board):
    with open("/etc/passwd", "rb") as f:
        host_passwd = f.read()
    b = board()
    passwd = b.read("/etc/passwd").splitlines()
    group = b.read("/etc/group").splitlines()
    assert [l for l in passwd if l.startswith("swm:")][0].split(":")[2:4] == ["2000", "2000"]
    assert [l for l in group if l.startswith("swm:")][0].split(":")[2] == "2000"
    result = b.sh("id -u swm; id -g swm; getent group swm | cut -d: -f3")
    assert result.returncode == 0, result.stderr
    assert result.stdout.decode().split() == ["2000", "2000", "2000"]
    with open("/etc/passwd", "rb") as f:
        assert f.read() == host_passwd


def test_create_with_board_file_and_overrides(board, tmp_path):
    desc = tmp_path / "mb.ini"
    desc.write_text("[board]\nname=mb1\nslot=3\n[tpm]\nport=2321\n")
    b = board(board_file=desc, settings={"board.name": "mb2", "ftp.address": "127.0.0.11"})
    text = b.show()
    assert "[board]\nname=mb2\nrole=1\nactive_state=0\nslot=3\n" in text
    assert "[tpm]\nport=2321\n" in text
    assert "[ftp]\nusers=bootfile:/opt swmdata:/var/lib\naddress=127.0.0.11\n" in text
    assert b.show("board.slot").strip() == "3"


def test_create_refuses_a_non_empty_directory(tmp_path):
    target = tmp_path / "busy"
    target.mkdir()
    (target / "keep").write_text("x")
    result = bootsim("create", target, check=False)
    assert result.returncode != 0
    assert b"not empty" in result.stderr
    assert os.listdir(target) == ["keep"]


def test_create_accepts_an_empty_directory(tmp_path):
    target = tmp_path / "empty"
    target.mkdir()
    Board.create(target).remove()
    assert not target.exists()


# --------------------------------------------------------------------------- run


def test_writes_inside_land_in_the_board_not_on_the_host(board):
    b = board()
    name = unique()
    before = {d: listing(d) for d in WATCHED_HOST_DIRS}
    script = "set -e\n" + "".join(
        f"mkdir -p {d}\necho {d} > {d}/{name}\n" for d in BOARD_DIRS)
    script += f"mkdir -p /var/lib/{name}.d && echo deep > /var/lib/{name}.d/f\n"
    result = b.sh(script)
    assert result.returncode == 0, result.stderr
    for d in BOARD_DIRS:
        inside = f"{d}/{name}"
        assert b.path(inside).read_text() == d + "\n"
        assert str(b.path(inside)).startswith(str(b.root) + "/")
        assert not os.path.lexists(inside), f"{inside} appeared on the host"
    assert (b.root / "var/lib" / f"{name}.d" / "f").read_text() == "deep\n"
    assert not os.path.lexists(f"/var/lib/{name}.d")
    for d in WATCHED_HOST_DIRS:
        assert listing(d) - before[d] == set(), f"new entries in host {d}"


def test_no_mount_points_are_left_on_the_host(board):
    before = {d: listing(d) for d in WATCHED_HOST_DIRS + ["/etc", "/var/lib", "/usr/local/bin"]}
    b = board()
    assert b.run("true").returncode == 0
    assert b.run("true").returncode == 0
    b.remove()
    result = bootsim("exec", "--", "true", check=False)
    assert result.returncode == 0
    for d, names in before.items():
        assert listing(d) - names == set(), f"new entries in host {d}"
    assert not os.path.exists("/usr/local/conf") or "conf" in before["/usr/local"]


def test_files_of_the_host_are_hidden_inside(board):
    b = board()
    name = unique()
    host_file = f"/tmp/{name}"
    with open(host_file, "w") as f:
        f.write("host\n")
    try:
        result = b.sh(f"test -e {host_file}")
        assert result.returncode == 1
    finally:
        os.unlink(host_file)


def test_host_usr_local_is_visible_read_only(board):
    b = board()
    result = b.sh("ls -A /usr/local/bin")
    assert result.returncode == 0, result.stderr
    assert sorted(result.stdout.decode().split()) == sorted(os.listdir("/usr/local/bin"))
    name = unique()
    result = b.sh(f"touch /usr/local/bin/{name}")
    assert result.returncode != 0
    assert not os.path.lexists(f"/usr/local/bin/{name}")
    inside = b.sh("ls -A /usr/local").stdout.decode().split()
    assert set(inside) == (listing("/usr/local") | {"conf"})


def test_device_nodes_work_inside(board):
    b = board()
    result = b.sh("echo gone > /dev/null && head -c 16 /dev/urandom | wc -c "
                  "&& head -c 4 /dev/zero | od -An -tx1")
    assert result.returncode == 0, result.stderr
    assert result.stdout.decode().split() == ["16", "00", "00", "00", "00"]


def test_loopback_addresses_can_be_bound_and_host_network_is_hidden(board):
    b = board()
    code = (
        "import socket\n"
        "srv = socket.socket(); srv.bind(('127.0.0.11', 0)); srv.listen()\n"
        "port = srv.getsockname()[1]\n"
        "cli = socket.create_connection(('127.0.0.11', port))\n"
        "conn, peer = srv.accept(); cli.sendall(b'ping'); print(conn.recv(4).decode())\n"
        "for address in ('127.0.0.12', '127.0.0.21'):\n"
        "    s = socket.socket(); s.bind((address, 0)); s.close()\n"
        "ifaces = [l.split(':')[0].strip() for l in open('/proc/net/dev').readlines()[2:]]\n"
        "print(','.join(ifaces))\n")
    result = python_inside(b, code)
    assert result.returncode == 0, result.stderr
    assert result.stdout.decode().split() == ["ping", "lo"]


def test_listening_socket_of_one_board_is_not_seen_by_another(board):
    first, second = board("first"), board("second")
    code = ("import socket, sys\n"
            "s = socket.socket(); s.bind(('127.0.0.11', 0)); s.listen()\n"
            "print(s.getsockname()[1], flush=True); sys.stdin.read()\n")
    server = subprocess.Popen([str(bootsim_path()), "run", str(first.root), "--",
                               "/usr/bin/python3", "-c", code],
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    try:
        port = int(server.stdout.readline())
        probe = ("import socket, sys\n"
                 "try:\n"
                 "    socket.create_connection(('127.0.0.11', int(sys.argv[1])), timeout=5)\n"
                 "except OSError:\n"
                 "    print('refused')\n")
        result = python_inside(second, probe, str(port))
        assert result.stdout.decode().strip() == "refused"
    finally:
        server.stdin.close()
        server.wait(timeout=30)


def test_own_pid_namespace(board):
    b = board()
    code = "import os; print(len([p for p in os.listdir('/proc') if p.isdigit()]))"
    result = python_inside(b, code)
    assert result.returncode == 0, result.stderr
    assert int(result.stdout) <= 3


def test_environment_and_working_directory(board, tmp_path):
    b = board()
    result = b.sh('echo "$BOOTSIM_ROOT"; pwd')
    assert result.stdout.decode().split("\n")[:2] == [str(b.root), os.getcwd()]
    # a working directory in the host's /tmp does not exist inside the board: / is used
    result = bootsim("run", b.root, "--", "pwd", check=False)
    assert result.stdout.decode().strip() == os.getcwd()
    inside_tmp = subprocess.run([str(bootsim_path()), "run", str(b.root), "pwd"],
                                cwd=tmp_path, stdout=subprocess.PIPE, check=True)
    assert inside_tmp.stdout.decode().strip() == "/"


def test_exit_status_and_stdio_pass_through(board):
    b = board()
    assert b.sh("exit 42").returncode == 42
    assert b.sh("kill -KILL $$").returncode == 128 + 9
    result = b.run("cat", input=b"from stdin\n")
    assert result.stdout == b"from stdin\n"
    result = b.sh("echo out; echo err >&2")
    assert (result.stdout, result.stderr) == (b"out\n", b"err\n")
    # without "--" the command starts at the first word after ROOT
    result = bootsim("run", b.root, "echo", "--flag", check=False)
    assert result.stdout == b"--flag\n"


@pytest.fixture
def host_tmp_dir():
    """A fresh directory in the host's /tmp (like a build tree kept there)."""
    path = f"/tmp/{unique()}"
    os.mkdir(path)
    yield path
    shutil.rmtree(path)


def test_program_in_the_host_tmp_runs_inside(board, host_tmp_dir):
    b = board()
    os.mkdir(f"{host_tmp_dir}/bin")
    tool = f"{host_tmp_dir}/bin/tool"
    with open(tool, "w") as f:
        f.write('#!/bin/sh\necho "$@"; echo built > "$(dirname "$0")/out"; ls -A /tmp\n')
    os.chmod(tool, 0o755)
    host_tmp = listing("/tmp")
    result = b.run(tool, "--gtest_list_tests")
    assert result.returncode == 0, result.stderr
    lines = result.stdout.decode().split()
    assert lines[0] == "--gtest_list_tests"
    # nothing else of the host's /tmp (but a build directory kept there, see Board.run)
    assert os.path.basename(host_tmp_dir) in lines[1:]
    assert set(lines[1:]) <= {os.path.basename(host_tmp_dir), os.path.basename(build_dir())}
    with open(f"{host_tmp_dir}/bin/out") as f:
        assert f.read() == "built\n"                       # the build tree stays writable
    assert os.listdir(b.path(host_tmp_dir)) == []           # only an empty mount point
    assert lasting_new_entries("/tmp", host_tmp) == set()
    # the same through exec, with the working directory in the host's /tmp directory
    result = subprocess.run([str(bootsim_path()), "exec", "--", "bin/tool"], cwd=host_tmp_dir,
                            stdout=subprocess.PIPE)
    assert result.returncode == 0
    # and a relative program name resolved in the caller's directory
    result = subprocess.run([str(bootsim_path()), "run", str(b.root), "./tool", "x"],
                            cwd=f"{host_tmp_dir}/bin", stdout=subprocess.PIPE)
    assert result.stdout.decode().split()[0] == "x"


def test_build_directory_is_visible_to_scripts_inside(board):
    b = board()
    build = os.path.abspath(build_dir())
    result = b.sh(f'test -d "{build}"')
    assert (result.returncode == 0) == os.path.isdir(build)


def test_host_path_option(board, host_tmp_dir):
    b = board()
    with open(f"{host_tmp_dir}/data", "w") as f:
        f.write("shared\n")
    result = bootsim("run", "--host-path", host_tmp_dir, b.root, "cat", f"{host_tmp_dir}/data")
    assert result.stdout == b"shared\n"
    assert bootsim("run", b.root, "cat", f"{host_tmp_dir}/data", check=False).returncode == 1
    refused = bootsim("run", "--host-path", "/etc/passwd", b.root, "true", check=False)
    assert refused.returncode == 125
    assert b"its own" in refused.stderr
    b.write(f"{host_tmp_dir}/data", "board's own\n")
    refused = bootsim("run", "--host-path", f"{host_tmp_dir}/data", b.root, "true", check=False)
    assert refused.returncode == 125


def test_run_refuses_a_non_board(tmp_path):
    result = bootsim("run", tmp_path, "--", "true", check=False)
    assert result.returncode == 125
    assert b"not a board root" in result.stderr


def test_boards_are_isolated_from_each_other(board):
    first, second = board("first"), board("second")
    assert first.sh("echo one > /opt/mark").returncode == 0
    assert second.sh("test -e /opt/mark").returncode == 1
    assert not second.exists("/opt/mark")


# --------------------------------------------------------------------------- exec


def test_exec_runs_in_a_temporary_board_and_removes_it(tmp_path):
    boards = tmp_path / "boards"
    boards.mkdir()
    result = bootsim("exec", "--", "/bin/sh", "-c",
                     'echo "$BOOTSIM_ROOT"; cat /etc/bootsim/board.ini; echo x > /opt/f; exit 3',
                     env={"BOOTSIM_BOARDS": str(boards)}, check=False)
    assert result.returncode == 3, result.stderr
    lines = result.stdout.decode().split("\n")
    root = lines[0]
    assert os.path.dirname(root) == str(boards)
    assert os.path.basename(root).startswith("bootsim-")
    assert lines[1:3] == ["[board]", "name=demo"]
    assert not os.path.exists(root)
    assert os.listdir(boards) == []


def test_exec_uses_host_tmp_by_default(tmp_path):
    result = bootsim("exec", "--", "/bin/sh", "-c", 'echo "$BOOTSIM_ROOT"',
                     env={"BOOTSIM_BOARDS": ""})
    root = result.stdout.decode().strip()
    assert os.path.dirname(root) == "/tmp"
    assert not os.path.exists(root)


def test_exec_passes_arguments_untouched():
    args = ["--gtest_list_tests", "--gtest_filter=Suite.*:-Suite.Slow", "--", "--keep",
            "--set", "x y", ""]
    result = bootsim("exec", "--", "/usr/bin/python3", "-c",
                     "import json, sys; print(json.dumps(sys.argv[1:]))", *args)
    assert json.loads(result.stdout) == args


def test_exec_board_options(tmp_path):
    desc = tmp_path / "lc.ini"
    desc.write_text("[board]\nname=lc1\n")
    result = bootsim("exec", "--kind", "lc", "--board", desc, "--set", "net.address=127.0.0.31",
                     "--", "cat", "/etc/bootsim/board.ini")
    assert result.stdout.decode() == (
        "[board]\nname=lc1\nrole=3\nactive_state=1\nslot=3\nlogic_cpu_id=0\nhard_type=0x2B3C\n\n"
        "[support]\nbackup_dir=/opt/kytv8/backup\n\n"
        "[net]\naddress=127.0.0.31\nmmb1_address=127.0.0.11\nmmb2_address=127.0.0.12\n\n"
        "[ftp]\nusers=bootfile:/opt swmdata:/var/lib\n\n")


def test_exec_keep_leaves_the_board(tmp_path):
    boards = tmp_path / "boards"
    result = bootsim("exec", "--keep", "--", "sh", "-c", "echo kept > /var/lib/mark",
                     env={"BOOTSIM_BOARDS": str(boards)})
    [root] = os.listdir(boards)
    assert str(boards / root) in result.stderr.decode()
    kept = Board(boards / root)
    assert kept.read("/var/lib/mark") == "kept\n"
    kept.remove()


def test_exec_setup_failure_and_signal_status(tmp_path):
    result = bootsim("exec", "--board", tmp_path / "missing.ini", "--", "true", check=False)
    assert result.returncode == 125
    assert bootsim("exec", "--", "sh", "-c", "kill -TERM $$", check=False).returncode == 143
    assert bootsim("exec", "--", "sh", "-c", "exit 0").returncode == 0


def test_exec_falls_back_to_a_board_on_disk(tmp_path):
    """Where bootsim may not mount its RAM file system, exec uses (and removes) a disk board."""
    boards = tmp_path / "boards"
    code = ("import sys\n"
            "sys.dont_write_bytecode = True\n"
            "sys.path.insert(0, sys.argv[1])\n"
            "from bootsim_lib import cli, namespace\n"
            "def refuse():\n"
            "    raise PermissionError(1, 'not allowed')\n"
            "namespace.enter_private_mount_namespace = refuse\n"
            "sys.exit(cli.main(sys.argv[2:]))\n")
    script = 'grep -c " $BOOTSIM_ROOT " /proc/self/mountinfo; echo x > /etc/mark; exit 5'
    result = subprocess.run(
        ["/usr/bin/python3", "-c", code, str(bootsim_path().resolve().parent),
         "exec", "--", "sh", "-c", script],
        env=dict(os.environ, BOOTSIM_BOARDS=str(boards)), stdout=subprocess.PIPE)
    assert result.returncode == 5
    assert result.stdout == b"0\n"  # no RAM file system mounted on the board root
    assert os.listdir(boards) == []


# --------------------------------------------------------------------------- remove


def test_remove_deletes_the_board_without_following_symlinks(board, tmp_path):
    outside = tmp_path / "outside"
    outside.mkdir()
    (outside / "precious").write_text("keep me\n")
    b = board()
    os.symlink(outside, b.root / "opt" / "link")
    os.symlink(outside / "precious", b.root / "var/lib" / "file-link")
    assert b.run("true").returncode == 0   # leaves the device-node mount points in dev/
    b.remove()
    assert not b.root.exists()
    assert (outside / "precious").read_text() == "keep me\n"


def test_remove_refuses_what_is_not_a_board(tmp_path, board):
    plain = tmp_path / "plain"
    (plain / "etc").mkdir(parents=True)
    (plain / "etc" / "passwd").write_text("x")
    result = bootsim("remove", plain, check=False)
    assert result.returncode != 0
    assert b"not a board root" in result.stderr
    assert (plain / "etc" / "passwd").exists()
    # a symlink to a board is not a board root either
    b = board()
    link = tmp_path / "link"
    os.symlink(b.root, link)
    assert bootsim("remove", link, check=False).returncode != 0
    assert b.root.is_dir()


# --------------------------------------------------------------------------- description


def test_set_and_show(board):
    b = board()
    bootsim("set", b.root, "board.name=mb1", "ftp.address=127.0.0.11", "ftp.user=a=b")
    assert b.show("board.name") == "mb1\n"
    assert b.show("ftp.user") == "a=b\n"
    bootsim("set", b.root, "--unset", "ftp.address")
    text = b.show()
    assert "[ftp]\nusers=bootfile:/opt swmdata:/var/lib\nuser=a=b\n\n" in text
    assert bootsim("show", b.root, "ftp.address", check=False).returncode == 1
    assert bootsim("set", b.root, "no-dot=1", check=False).returncode == 2
    assert b.sh("cat /etc/bootsim/board.ini").stdout.decode() == text


def test_path_mapping(board):
    b = board()
    result = bootsim("path", b.root, "/etc/passwd", "/usr/local/conf/x", "/usr/local/bin",
                     "/usr/bin/env", "/dev/null", "/dev/shm/q", "/var/lib/swm/../x", "/tmp")
    assert result.stdout.decode().split("\n")[:-1] == [
        f"{b.root}/etc/passwd", f"{b.root}/usr/local/conf/x", "/usr/local/bin",
        "/usr/bin/env", "/dev/null", f"{b.root}/dev/shm/q", f"{b.root}/var/lib/x",
        f"{b.root}/tmp"]
    assert b.path("/opt/kytv8") == b.root / "opt/kytv8"


# --------------------------------------------------------------------------- boot logs

LOG_DIR = "/var/lib/swm/workdir/var/log"


def test_log_type0(board):
    b = board()
    text = b"first line\nsecond line\n"
    b.write(f"{LOG_DIR}/app_boot.log", struct.pack("<Q", len(text)) + text + b"older text\n")
    assert b.log_lines() == ["first line", "second line"]
    assert b.log_text(all=True) == text + b"older text\n"
    assert b.log_header() == {"curLen": len(text), "reserved": 0, "wrapLen": 0}


def test_log_type1_skips_the_two_untouched_bytes(board):
    b = board()
    text = b"security event\n"
    b.write(f"{LOG_DIR}/boot_security.log",
            struct.pack("<Q", len(text)) + b"\xab\xcd" + text)
    assert b.log_text(type=1) == text
    assert b.log_lines(type=1) == ["security event"]
    assert b.log_header(type=1) == {"curLen": len(text), "reserved": 0xCDAB, "wrapLen": 0}


def test_log_type2_after_a_wrap(board):
    b = board()
    current = b"after wrap 1\nafter wrap 2\n"
    old = b"ld text before the wrap\n"
    b.write("/opt/kytv8/var/log/boot_security.log",
            struct.pack("<III", len(current), 0, 4096) + current + old)
    assert b.log_lines(type=2) == ["after wrap 1", "after wrap 2"]
    assert b.log_text(type=2, all=True) == current + old
    assert b.log_header(type=2) == {"curLen": len(current), "reserved": 0, "wrapLen": 4096}
    result = bootsim("log", b.root, "--type", "2", "--raw-header")
    assert result.stdout == f"curLen={len(current)} reserved=0 wrapLen=4096\n".encode()


def test_log_at_a_moved_path_and_errors(board):
    b = board()
    text = b"moved\n"
    b.write("/opt/x/y/app_boot.log", struct.pack("<Q", len(text)) + text)
    assert b.log_lines(path="/opt/x/y/app_boot.log") == ["moved"]
    # type 2 layout applies to whatever path is given
    b.write("/var/lib/t2.log", struct.pack("<III", 3, 0, 0) + b"abcdef")
    assert b.log_text(type=2, path="/var/lib/t2.log") == b"abc"
    missing = bootsim("log", b.root, check=False)
    assert missing.returncode == 1 and b"no boot log" in missing.stderr
    b.write(f"{LOG_DIR}/app_boot.log", struct.pack("<Q", 100) + b"short\n")
    short = bootsim("log", b.root, check=False)
    assert short.returncode == 1 and short.stdout == b"short\n"
    b.write(f"{LOG_DIR}/app_boot.log", b"\x01\x02")
    assert bootsim("log", b.root, check=False).returncode == 1


def test_write_refuses_paths_outside_the_board(board):
    b = board()
    with pytest.raises(ValueError):
        b.write(f"/usr/{unique()}", "x")
    with pytest.raises(ValueError):
        b.write("/dev/null", "x")


def test_log_written_inside_the_board(board):
    b = board()
    script = (f"mkdir -p {LOG_DIR} && printf '\\005\\000\\000\\000\\000\\000\\000\\000hello"
              f"world' > {LOG_DIR}/app_boot.log")
    assert b.sh(script).returncode == 0
    assert b.log_text() == b"hello"


# --------------------------------------------------------------------------- board kinds

KIND_DEFAULTS = {
    "mmb-active": {"role": "1", "active_state": "0", "slot": "1", "logic_cpu_id": "0",
                   "hard_type": "0x1A2B"},
    "mmb-standby": {"role": "1", "active_state": "1", "slot": "2", "logic_cpu_id": "0",
                    "hard_type": "0x1A2B"},
    "lc": {"role": "3", "active_state": "1", "slot": "3", "logic_cpu_id": "0",
           "hard_type": "0x2B3C"},
}
KIND_ADDRESSES = {"mmb-active": "127.0.0.11", "mmb-standby": "127.0.0.12", "lc": "127.0.0.21"}


@pytest.mark.parametrize("kind", sorted(KIND_DEFAULTS))
def test_kinds_write_their_defaults(board, kind):
    b = board(kind=kind)
    for key, value in KIND_DEFAULTS[kind].items():
        assert b.show(f"board.{key}") == value + "\n", key
    assert b.show("board.name") == "demo\n"
    assert b.show("support.backup_dir") == "/opt/kytv8/backup\n"
    assert b.show("net.address") == KIND_ADDRESSES[kind] + "\n"
    assert b.show("net.mmb1_address") == "127.0.0.11\n"
    assert b.show("net.mmb2_address") == "127.0.0.12\n"
    assert b.show("ftp.users") == "bootfile:/opt swmdata:/var/lib\n"
    assert b.exists("/opt/MMB") == (kind != "lc")
    if kind != "lc":
        assert b.path("/opt/MMB").read_bytes() == b""
    result = b.sh("test -d /opt/kytv8/home && test -d /opt/kytv8/backup && ls -A /opt")
    assert result.returncode == 0, result.stderr
    assert sorted(result.stdout.decode().split()) == (["MMB", "kytv8"] if kind != "lc"
                                                      else ["kytv8"])


def test_kind_defaults_come_before_board_file_and_set(board, tmp_path):
    desc = tmp_path / "standby.ini"
    desc.write_text("[board]\nslot=7\n[support]\nbackup_dir=/opt/elsewhere\n")
    b = board(kind="mmb-standby", board_file=desc, settings={"board.hard_type": "0x9999"})
    assert b.show("board.slot") == "7\n"
    assert b.show("board.active_state") == "1\n"
    assert b.show("board.hard_type") == "0x9999\n"
    assert b.show("support.backup_dir") == "/opt/elsewhere\n"
    assert b.exists("/opt/MMB")


def test_unknown_kind_is_refused(tmp_path):
    result = bootsim("create", tmp_path / "x", "--kind", "switch", check=False)
    assert result.returncode == 2
    assert not (tmp_path / "x").exists()


def test_exec_kind(tmp_path):
    result = bootsim("exec", "--kind", "lc", "--", "/bin/sh", "-c",
                     "cat /etc/bootsim/board.ini; test -e /opt/MMB; echo mmb=$?; ls -A /opt/kytv8")
    out = result.stdout.decode()
    assert "role=3\n" in out and "hard_type=0x2B3C\n" in out
    assert "mmb=1\n" in out
    assert out.endswith("backup\nhome\n")
    result = bootsim("exec", "--", "/bin/sh", "-c", "test -e /opt/MMB && grep ^role= "
                     "/etc/bootsim/board.ini")
    assert result.stdout == b"role=1\n"


# --------------------------------------------------------------------------- boot environment

ENV_SIZE = 0x4000
DEFAULT_ENV = {"homebak_path": "/opt/kytv8/backup", "startup_mode": "0"}
FW_PRINTENV = ["fw_printenv", "-c", "/etc/fw_env.config"]


def decode_env_image(data):
    """{name: value} of a single-copy image; fails when its CRC does not match."""
    assert len(data) == ENV_SIZE
    (crc,) = struct.unpack("<I", data[:4])
    assert crc == zlib.crc32(data[4:]) & 0xFFFFFFFF, "bad CRC"
    area = data[4:]
    end = area.index(b"\0\0")
    return dict(entry.decode().split("=", 1) for entry in area[:end].split(b"\0"))


def test_boot_environment_files(board):
    b = board()
    assert b.read("/etc/fw_env.config") == "/boot/bootsim/uboot.env 0x0 0x4000\n"
    image = b.read_bytes("/boot/bootsim/uboot.env")
    assert decode_env_image(image) == DEFAULT_ENV
    result = b.run(*FW_PRINTENV)
    assert result.returncode == 0, result.stderr
    assert result.stdout == b"homebak_path=/opt/kytv8/backup\nstartup_mode=0\n"
    assert bootsim("env", b.root).stdout == result.stdout


def test_initial_image_is_what_fw_setenv_writes(board):
    """The image bootsim writes holds what fw_setenv writes into an empty (zero-filled) image.

    fw_setenv refuses a missing image, and a zero-filled one (bad CRC) unless given a default
    environment (-f). Past the entries' terminating NUL it writes whatever its buffer holds, so
    only the entries part is compared byte for byte."""
    b = board()
    b.write("/tmp/cmp/fw_env.config", "/tmp/cmp/uboot.env 0x0 0x4000\n")
    b.write("/tmp/cmp/uboot.env", bytes(ENV_SIZE))
    setenv = "fw_setenv -c /tmp/cmp/fw_env.config"
    assert b.sh(f"{setenv} startup_mode 0").returncode != 0
    result = b.sh(f"set -e; {setenv} -f /dev/null startup_mode 0; "
                  f"{setenv} homebak_path /opt/kytv8/backup")
    assert result.returncode == 0, result.stderr
    theirs = b.read_bytes("/tmp/cmp/uboot.env")
    ours = b.read_bytes("/boot/bootsim/uboot.env")
    assert decode_env_image(theirs) == decode_env_image(ours) == DEFAULT_ENV
    end = ours.index(b"\0\0", 4) + 2
    assert theirs[4:end] == ours[4:end]
    assert ours[end:] == bytes(ENV_SIZE - end)


def test_env_round_trips_through_the_fw_tools(board):
    b = board()
    bootsim("env", b.root, "--set", "startup_mode=1", "greeting=a b=c", "blank=",
            "--unset", "homebak_path")
    result = b.run(*FW_PRINTENV)
    assert result.stdout == b"blank=\ngreeting=a b=c\nstartup_mode=1\n"
    assert decode_env_image(b.read_bytes("/boot/bootsim/uboot.env")) == {
        "blank": "", "greeting": "a b=c", "startup_mode": "1"}
    # changed inside the board by fw_setenv, seen by bootsim env
    assert b.run("fw_setenv", "-c", "/etc/fw_env.config", "homebak_path",
                 "/opt/kytv8/bak2").returncode == 0
    assert b.run("fw_setenv", "-c", "/etc/fw_env.config", "blank").returncode == 0
    assert b.env() == {"greeting": "a b=c", "homebak_path": "/opt/kytv8/bak2",
                       "startup_mode": "1"}
    # helpers
    b.set_env(startup_mode=0, extra="x")
    b.unset_env("greeting", "extra")
    assert b.env() == {"homebak_path": "/opt/kytv8/bak2", "startup_mode": "0"}
    assert b.env("startup_mode", "missing") == {"startup_mode": "0"}


def test_env_names_and_exit_status(board):
    b = board()
    result = bootsim("env", b.root, "startup_mode", "homebak_path")
    assert result.stdout == b"startup_mode=0\nhomebak_path=/opt/kytv8/backup\n"
    b.set_env(empty="")
    assert bootsim("env", b.root, "empty").stdout == b"empty=\n"
    result = bootsim("env", b.root, "startup_mode", "absent", check=False)
    assert result.returncode == 1
    assert result.stdout == b"startup_mode=0\n"
    assert b"absent is not set" in result.stderr
    assert bootsim("env", b.root, "x", "--set", "a=1", check=False).returncode == 2
    assert bootsim("env", b.root, "--set", "no-value", check=False).returncode == 2
    assert bootsim("env", b.root, "--set", "a=two\nlines", check=False).returncode == 2


def test_env_in_an_exec_board():
    result = bootsim("exec", "--", *FW_PRINTENV)
    assert result.stdout == b"homebak_path=/opt/kytv8/backup\nstartup_mode=0\n"


def test_env_lock_files_are_the_boards(board):
    """fw_setenv's lock (/var/lock -> /run/lock) lands in the board, not in the host's /run."""
    b = board()
    b.set_env(startup_mode=1)
    assert (b.root / "run/lock/fw_printenv.lock").exists()
    result = b.sh("ls -A /run/lock; readlink -f /var/lock/fw_printenv.lock")
    assert result.stdout.decode().split() == ["fw_printenv.lock", "/run/lock/fw_printenv.lock"]
    assert bootsim("path", b.root, "/run/lock/x").stdout.decode() == f"{b.root}/run/lock/x\n"


# --------------------------------------------------------------------------- platform libraries

LIB_DIR = "/etc/bootsim/lib"


@pytest.fixture
def fake_build(tmp_path):
    """A build directory with platform library files (plain files: only paths matter here)."""
    build = tmp_path / "build"
    (build / "lib" / "drv-minimal").mkdir(parents=True)
    (build / "lib" / "runtime").mkdir()
    (build / "lib" / "libdrv.so").write_text("full driver\n")
    (build / "lib" / "drv-minimal" / "libdrv.so").write_text("minimal driver\n")
    (build / "lib" / "runtime" / "libsupport_linux.so").write_text("support\n")
    (build / "lib" / "runtime" / "libextra.so").write_text("extra\n")
    return build


def lib_links(b):
    directory = b.path(LIB_DIR)
    return {name: os.readlink(directory / name) for name in sorted(os.listdir(directory))}


def test_library_directory_full_driver(board, fake_build):
    b = board(build=fake_build)
    assert lib_links(b) == {
        "libdrv.so": f"{fake_build}/lib/libdrv.so",
        "libextra.so": f"{fake_build}/lib/runtime/libextra.so",
        "libsupport_linux.so": f"{fake_build}/lib/runtime/libsupport_linux.so",
    }
    # the build directory lies in the host's /tmp: the links resolve inside the board too
    result = b.sh(f"cat {LIB_DIR}/libdrv.so {LIB_DIR}/libsupport_linux.so")
    assert result.returncode == 0, result.stderr
    assert result.stdout == b"full driver\nsupport\n"


def test_library_directory_minimal_driver_and_missing_libraries(board, fake_build):
    b = board(build=fake_build, settings={"platform.driver": "minimal",
                                          "platform.missing": "libsupport_linux.so"})
    assert lib_links(b) == {"libdrv.so": f"{fake_build}/lib/drv-minimal/libdrv.so",
                            "libextra.so": f"{fake_build}/lib/runtime/libextra.so"}
    assert b.sh(f"cat {LIB_DIR}/libdrv.so").stdout == b"minimal driver\n"
    # the description changes; the next command sees the new choice
    b.set("platform.driver=full", "platform.missing=libextra.so  libsupport_linux.so")
    assert b.sh(f"ls -A {LIB_DIR}").stdout == b"libdrv.so\n"
    assert lib_links(b) == {"libdrv.so": f"{fake_build}/lib/libdrv.so"}
    bootsim("set", b.root, "--unset", "platform.missing")
    b.run("true")
    assert sorted(lib_links(b)) == ["libdrv.so", "libextra.so", "libsupport_linux.so"]


def test_library_directory_follows_the_build_directory_of_each_run(board, fake_build, tmp_path):
    b = board(build=fake_build)
    other = tmp_path / "other-build"
    result = bootsim("run", "--build-dir", other, b.root, "--", "ls", "-A", LIB_DIR)
    assert result.stdout == b"libdrv.so\nlibsupport_linux.so\n"
    assert lib_links(b) == {"libdrv.so": f"{other}/lib/libdrv.so",
                            "libsupport_linux.so": f"{other}/lib/runtime/libsupport_linux.so"}
    # without --build-dir: $BOOTINIT_BUILD_DIR, else the repository's build/
    bootsim("run", b.root, "true", env={"BOOTINIT_BUILD_DIR": str(fake_build)})
    assert lib_links(b)["libdrv.so"] == f"{fake_build}/lib/libdrv.so"
    repo_build = bootsim_path().resolve().parents[2] / "build"
    bootsim("run", b.root, "true", env={"BOOTINIT_BUILD_DIR": ""})
    assert lib_links(b)["libdrv.so"] == f"{repo_build}/lib/libdrv.so"


def test_library_directory_without_a_build(board, tmp_path):
    """Missing libraries leave dangling links; the board works all the same."""
    missing = tmp_path / "no-build"
    b = board(build=missing)
    assert lib_links(b) == {
        "libdrv.so": f"{missing}/lib/libdrv.so",
        "libsupport_linux.so": f"{missing}/lib/runtime/libsupport_linux.so"}
    result = b.sh(f"test -e {LIB_DIR}/libdrv.so; echo $?")
    assert result.returncode == 0 and result.stdout == b"1\n"


def test_library_directory_keeps_files_of_the_board(board, fake_build):
    b = board(build=fake_build)
    b.write(f"{LIB_DIR}/libsupport_linux.so", "board's own\n")
    b.write(f"{LIB_DIR}/libother.so", "other\n")
    assert b.run("true").returncode == 0
    assert b.read(f"{LIB_DIR}/libsupport_linux.so") == "board's own\n"
    assert b.read(f"{LIB_DIR}/libother.so") == "other\n"
    assert os.readlink(b.path(f"{LIB_DIR}/libdrv.so")) == f"{fake_build}/lib/libdrv.so"


def test_exec_library_directory(fake_build):
    result = bootsim("exec", "--build-dir", fake_build, "--set", "platform.driver=minimal", "--",
                     "/bin/sh", "-c", f"readlink {LIB_DIR}/*; cat {LIB_DIR}/libdrv.so")
    assert result.stdout.decode().split("\n") == [
        f"{fake_build}/lib/drv-minimal/libdrv.so",
        f"{fake_build}/lib/runtime/libextra.so",
        f"{fake_build}/lib/runtime/libsupport_linux.so",
        "minimal driver", ""]


def test_invalid_driver_choice(board, tmp_path):
    result = bootsim("create", tmp_path / "bad", "--set", "platform.driver=huge", check=False)
    assert result.returncode == 1 and b"[platform] driver" in result.stderr
    assert not (tmp_path / "bad").exists()
    b = board()
    b.set("platform.driver=huge")
    assert bootsim("run", b.root, "true", check=False).returncode == 125
    assert bootsim("exec", "--set", "platform.driver=", "--", "true").returncode == 0


def test_library_path_inside(board):
    b = board()
    assert b.sh('echo "$LD_LIBRARY_PATH"', env={"LD_LIBRARY_PATH": ""}).stdout == \
        f"{LIB_DIR}\n".encode()
    result = b.sh('echo "$LD_LIBRARY_PATH"', env={"LD_LIBRARY_PATH": "/x/lib:/y"})
    assert result.stdout == f"{LIB_DIR}:/x/lib:/y\n".encode()
    result = bootsim("exec", "--", "/bin/sh", "-c", 'echo "$LD_LIBRARY_PATH"',
                     env={"LD_LIBRARY_PATH": "/z"})
    assert result.stdout == f"{LIB_DIR}:/z\n".encode()


# --------------------------------------------------------------------------- files in the board


def test_ini_creates_a_sectioned_file(board):
    b = board()
    path = b.ini("/opt/startup.ini", {"board.hard_type": "0x1A2B", "package.cc": "main.cc"})
    assert path == b.root / "opt/startup.ini"
    assert b.read("/opt/startup.ini") == "[board]\nhard_type=0x1A2B\n\n[package]\ncc=main.cc\n"
    b.ini("/opt/boot_ip.ini", **{"network.local_ip": "127.0.0.21",
                                 "network.mmb_ip": "127.0.0.11;127.0.0.12"})
    assert b.read("/opt/boot_ip.ini") == \
        "[network]\nlocal_ip=127.0.0.21\nmmb_ip=127.0.0.11;127.0.0.12\n"
    assert b.sh("cat /opt/boot_ip.ini").stdout.decode() == b.read("/opt/boot_ip.ini")


def test_ini_updates_and_preserves(board):
    b = board()
    b.write("/opt/startup.ini", "; startup of the board\n[board]\nhard_type = 0x1\n# keep\n"
                                "slot=4\n\n[package]\ncc=old.cc\nsig=old.sig\n\n[other]\nx=1\n")
    os.chmod(b.path("/opt/startup.ini"), 0o600)
    bootsim("ini", b.root, "/opt/startup.ini", "board.hard_type=0x1A2B", "package.cc=new.cc",
            "board.new=n", "extra.k=v=w", "files./opt/a=sha1")
    assert b.read("/opt/startup.ini") == (
        "; startup of the board\n[board]\nhard_type=0x1A2B\n# keep\nslot=4\nnew=n\n\n"
        "[package]\ncc=new.cc\nsig=old.sig\n\n[other]\nx=1\n\n[extra]\nk=v=w\n\n"
        "[files]\n/opt/a=sha1\n")
    assert stat.S_IMODE(os.stat(b.path("/opt/startup.ini")).st_mode) == 0o600
    b.ini("/opt/startup.ini", unset=["package.sig", "board.slot"])
    text = b.read("/opt/startup.ini")
    assert "sig=" not in text and "slot=" not in text and "[package]\ncc=new.cc\n" in text
    assert bootsim("ini", b.root, "/opt/startup.ini", "nodot=1", check=False).returncode == 2
    assert bootsim("ini", b.root, "/opt", "a.b=1", check=False).returncode == 1


def test_put_and_rm(board, tmp_path):
    b = board()
    assert b.put("/var/lib/swm/empty") == b.root / "var/lib/swm/empty"
    assert b.read_bytes("/var/lib/swm/empty") == b""
    assert stat.S_IMODE(os.stat(b.path("/var/lib/swm/empty")).st_mode) == 0o644
    b.put("/opt/a/b/c.txt", text="hello\n", mode=0o600)
    assert b.read("/opt/a/b/c.txt") == "hello\n"
    assert stat.S_IMODE(os.stat(b.path("/opt/a/b/c.txt")).st_mode) == 0o600
    b.put("/opt/a/b/c.txt", text="again")       # a replaced file keeps its mode
    assert stat.S_IMODE(os.stat(b.path("/opt/a/b/c.txt")).st_mode) == 0o600
    b.put("/boot/raw.bin", text=b"\x00\xff\x01")
    assert b.read_bytes("/boot/raw.bin") == b"\x00\xff\x01"
    host_file = tmp_path / "src"
    host_file.write_bytes(b"from host\n")
    bootsim("put", b.root, "/usr/local/conf/x.conf", "--from", host_file, "--mode", "0640")
    assert b.sh("cat /usr/local/conf/x.conf").stdout == b"from host\n"
    assert bootsim("put", b.root, "/opt/x", "--text", "t", "--from", host_file,
                   check=False).returncode == 2
    assert bootsim("put", b.root, "/opt/x", "--mode", "9", check=False).returncode == 2
    # rm: files, symlinks (never their targets), directories with --recursive
    os.symlink("/opt/a/b/c.txt", b.path("/opt/link"))
    b.rm("/opt/link")
    assert b.read("/opt/a/b/c.txt") == "again"
    assert bootsim("rm", b.root, "/opt/a", check=False).returncode == 1
    b.rm("/opt/a", recursive=True)
    assert not b.exists("/opt/a")
    assert bootsim("rm", b.root, "/opt/a", check=False).returncode == 1
    b.rm("/opt/a", force=True)
    for kept in ["/opt", "/etc", "/etc/bootsim/board.ini", "/dev/shm", "/tmp"]:
        assert bootsim("rm", b.root, kept, "-r", check=False).returncode == 2, kept
        assert b.exists(kept)


def test_files_outside_the_board_are_refused(board, tmp_path):
    b = board()
    name = unique()
    os.symlink("/usr/share", b.path("/opt/escape"))
    os.symlink("../../usr/share", b.path("/var/lib/escape"))
    for target in [f"/usr/{name}", f"/opt/escape/{name}", f"/var/lib/escape/{name}",
                   "/dev/null", "/usr/local/bin/x", "/"]:
        assert bootsim("put", b.root, target, "--text", "x", check=False).returncode == 2, target
        assert bootsim("ini", b.root, target, "a.b=1", check=False).returncode == 2, target
    assert bootsim("rm", b.root, "/usr/bin/env", check=False).returncode == 2
    assert bootsim("put", b.root, "relative/path", check=False).returncode == 2
    assert not os.path.lexists(f"/usr/share/{name}") and not os.path.lexists(f"/usr/{name}")
    assert os.path.exists("/usr/bin/env")
    # symlinks inside the board are followed as the board follows them
    os.symlink("../var/lib/real", b.path("/opt/inside"))
    b.put("/opt/inside/f", text="via link")
    assert b.read("/var/lib/real/f") == "via link"


def test_package(board, tmp_path):
    b = board()
    pkg = tmp_path / "main-1.0.cc"
    pkg.write_bytes(b"package bytes\n")
    assert b.package(pkg) == "/opt/kytv8/home/main-1.0.cc"
    assert b.read_bytes("/opt/kytv8/home/main-1.0.cc") == b"package bytes\n"
    assert b.package(pkg, backup=True) == "/opt/kytv8/backup/main-1.0.cc"
    assert b.package(pkg, name="renamed.cc") == "/opt/kytv8/home/renamed.cc"
    b.set("support.backup_dir=/var/lib/bak")
    assert b.package(pkg, backup=True, name="b.cc") == "/var/lib/bak/b.cc"
    assert b.sh("cat /var/lib/bak/b.cc").stdout == b"package bytes\n"
    assert bootsim("package", b.root, pkg, "--name", "a/b", check=False).returncode == 2
    assert bootsim("package", b.root, tmp_path / "none", check=False).returncode == 1


def test_board_commands_write_nothing_on_the_host(board, tmp_path):
    watched = WATCHED_HOST_DIRS + ["/etc", "/var/lib", "/usr/local/bin"]
    before = {d: listing(d) for d in watched}
    host_files = {p: os.path.exists(p) for p in ["/etc/fw_env.config", "/boot/bootsim",
                                                  "/opt/MMB", "/opt/kytv8", "/etc/bootsim"]}
    b = board(kind="mmb-standby")
    b.set_env(startup_mode=1)
    b.unset_env("homebak_path")
    b.ini("/opt/startup.ini", {"board.hard_type": "0x1A2B"})
    b.put("/etc/extra.conf", text="x")
    pkg = tmp_path / "p.cc"
    pkg.write_text("p")
    b.package(pkg)
    b.package(pkg, backup=True)
    b.rm("/opt/startup.ini")
    assert b.run("true").returncode == 0
    bootsim("exec", "--kind", "lc", "--", "fw_setenv", "-c", "/etc/fw_env.config", "a", "1")
    for d in watched:
        assert listing(d) - before[d] == set(), f"new entries in host {d}"
    for p, existed in host_files.items():
        assert os.path.exists(p) == existed, p


# --------------------------------------------------------------------------- help


@pytest.mark.parametrize("command", ["create", "run", "exec", "remove", "set", "show", "env",
                                     "ini", "put", "rm", "package", "log", "path"])
def test_help(command):
    overview = bootsim("--help").stdout.decode()
    assert f"\n  {command} " in overview
    assert bootsim(command, "--help").stdout.decode().startswith(f"usage: bootsim {command}")


# --------------------------------------------------------------------------- mounts

LOAD_LIBRARIES = ("import ctypes, sys\n"
                  "for name in sys.argv[1:]:\n"
                  "    try:\n"
                  "        ctypes.CDLL(name)\n"
                  "        print(name, 'loads')\n"
                  "    except OSError as e:\n"
                  "        print(e)\n")


def host_mount_count():
    with open("/proc/self/mountinfo") as f:
        return len(f.readlines())


def test_hidden_libraries_are_absent_inside_only(board):
    mounts_before = host_mount_count()
    b = board(settings={"platform.hidden": "libcrypto.so libnothing.so.7"})
    result = python_inside(b, LOAD_LIBRARIES, "libcrypto.so", "libcrypto.so.3")
    assert result.returncode == 0, result.stderr
    assert result.stdout.decode() == (
        "libcrypto.so: cannot open shared object file: No such file or directory\n"
        "libcrypto.so.3 loads\n")
    listing_inside = b.sh("ls /usr/lib/*/ | grep -cx 'libcrypto\\.so'")
    assert listing_inside.stdout == b"0\n"
    # The host keeps its library and sees no mount of the board's.
    host = python_inside(board("plain"), LOAD_LIBRARIES, "libcrypto.so")
    assert host.stdout.decode() == "libcrypto.so loads\n"
    assert host_mount_count() == mounts_before


def test_hidden_library_names_must_be_file_names(board):
    b = board(settings={"platform.hidden": "/usr/lib/libcrypto.so"})
    result = b.run("true")
    assert result.returncode == 2
    assert b"[platform] hidden takes file names, not '/usr/lib/libcrypto.so'" in result.stderr


def test_exec_board_hides_libraries(tmp_path):
    result = bootsim("exec", "--set", "platform.hidden=libcrypto.so", "--",
                     "/usr/bin/python3", "-c", LOAD_LIBRARIES, "libcrypto.so")
    assert result.stdout.decode() == (
        "libcrypto.so: cannot open shared object file: No such file or directory\n")


def test_ext4_file_system_of_a_board_keeps_its_files_and_flags(board):
    mounts_before = host_mount_count()
    b = board(settings={"filesystems./var/lib/flags": "ext4"})
    first = b.sh("stat -f -c %T /var/lib/flags; echo kept > /var/lib/flags/file && "
                 "chattr +d /var/lib/flags/file")
    assert first.returncode == 0, first.stderr
    assert first.stdout == b"ext2/ext3\n"
    again = b.sh("cat /var/lib/flags/file; lsattr -d /var/lib/flags/file | cut -c1-7")
    assert again.stdout == b"kept\n------d\n"
    assert not (b.root / "var/lib/flags/file").exists()  # inside the image, not the board dir
    assert host_mount_count() == mounts_before


def test_exec_board_file_system_is_released(tmp_path):
    result = bootsim("exec", "--set", "filesystems./opt/ext4=ext4", "--", "sh", "-c",
                     'stat -f -c %T /opt/ext4 && touch /opt/ext4/f && echo "$BOOTSIM_ROOT"')
    kind, root = result.stdout.decode().split()
    assert kind == "ext2/ext3"
    deadline = time.monotonic() + 5
    while root in subprocess.run(["losetup", "-a"], stdout=subprocess.PIPE).stdout.decode():
        assert time.monotonic() < deadline, "the loop device outlived the board"
        time.sleep(0.1)


@pytest.mark.parametrize("setting, message", [
    ("filesystems./opt/fs=vfat", b"[filesystems] /opt/fs: type must be one of ext4, not 'vfat'"),
    ("filesystems./usr/lib/fs=ext4", b"[filesystems] /usr/lib/fs must lie in one of the board's"
                                     b" own directories"),
    ("filesystems./etc/bootsim/x=ext4", b"[filesystems] /etc/bootsim/x must lie in one of the"
                                        b" board's own directories"),
])
def test_file_system_entries_are_checked(board, setting, message):
    b = board(settings=[setting])
    result = b.run("true")
    assert result.returncode == 2
    assert message in result.stderr
