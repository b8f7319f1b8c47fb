"""Tests of the board sandbox itself (bootsim); they use only shell tools inside the boards."""
import json
import os
import shutil
import stat
import struct
import subprocess
import uuid

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


def python_inside(board, code, *args):
    return board.run("/usr/bin/python3", "-c", code, *args)


# --------------------------------------------------------------------------- create


def test_create_makes_the_board_layout(board):
    b = board()
    root = b.root
    for rel in ["opt", "var/lib", "etc", "usr/local/conf", "boot", "dev/shm", "tmp"]:
        assert (root / rel).is_dir() and not (root / rel).is_symlink(), rel
    assert stat.S_IMODE((root / "tmp").stat().st_mode) == 0o1777
    for name, target in {"fd": "/proc/self/fd", "stdin": "/proc/self/fd/0",
                         "stdout": "/proc/self/fd/1", "stderr": "/proc/self/fd/2"}.items():
        assert os.readlink(root / "dev" / name) == target
    assert (root / "etc/bootsim/board.ini").read_text() == "[board]\nname=demo\n\n"


def test_etc_is_a_real_copy(board):
    b = board()
    host = os.stat("/etc/hostname" if os.path.exists("/etc/hostname") else "/etc/passwd")
    name = "hostname" if os.path.exists("/etc/hostname") else "passwd"
    copy = os.stat(b.root / "etc" / name)
    assert (copy.st_dev, copy.st_ino) != (host.st_dev, host.st_ino)
    assert copy.st_nlink == 1
    assert sorted(os.listdir(b.root / "etc")) == sorted(listing("/etc") | {"bootsim"})


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
    assert "[board]\nname=mb2\nslot=3\n" in text
    assert "[tpm]\nport=2321\n" in text
    assert "[ftp]\naddress=127.0.0.11\n" in text
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
    assert listing("/tmp") - host_tmp == set()
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
    result = bootsim("exec", "--board", desc, "--set", "net.address=127.0.0.21", "--",
                     "cat", "/etc/bootsim/board.ini")
    assert result.stdout.decode() == "[board]\nname=lc1\n\n[net]\naddress=127.0.0.21\n\n"


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
    assert "address" not in text and "user=a=b" in text
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


# --------------------------------------------------------------------------- help


@pytest.mark.parametrize("command", ["create", "run", "exec", "remove", "set", "show", "log",
                                     "path"])
def test_help(command):
    overview = bootsim("--help").stdout.decode()
    assert f"\n  {command} " in overview
    assert bootsim(command, "--help").stdout.decode().startswith(f"usage: bootsim {command}")
