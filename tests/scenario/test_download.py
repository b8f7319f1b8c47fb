"""Operation 2: a board fetches one file from a main board's FTP server.

The main boards are real boards whose roots bootsim serves with pyftpdlib inside the
downloading board's network (see ftp_boards.py); a scripted server stands in where a test must
prove that a main board was never contacted (its record of the dialogue stays empty)."""
import hashlib
import os
import stat

import pytest

from bootsim_helpers import Board
from ftp_boards import (ACCOUNTS, BOOT_LOGS, BOTH_MMBS, HOME, MMB1_IP, MMB1_OK, MMB2_IP, MMB2_OK,
                        NO_SERVER_CONF, PARAM_COUNT, SERVER_CONF, SERVER_LOG, boot_log_bytes,
                        download, downloader, main_board, not_prepared, record, result_line,
                        retr_refused, succeeded, with_log_path)

MASTER = "[BOOT_INIT][ERROR]:My role is master, do not need to download."
NO_ADDRESSES = "[BOOT_INIT][ERROR]:Failed to get ftp sock addr"
NO_ACCOUNT = "[BOOT_INIT][ERROR]:Failed to get ftp account info for sswm"
OLD = b"older file of that name\n"

# A script for a main board that must never be asked: its record shows any connection.
UNTOUCHED = {}


@pytest.fixture(scope="module")
def mains(tmp_path_factory):
    """Main boards 1 and 2, shared by the tests of this file (each uses files of its own)."""
    base = tmp_path_factory.mktemp("mains")
    made = (Board.create(base / "mmb1", kind="mmb-active"),
            Board.create(base / "mmb2", kind="mmb-standby"))
    yield made
    if not os.environ.get("BOOTSIM_KEEP_BOARDS"):
        for main in made:
            main.remove()


def sizes_file(size):
    """SIZE bytes that differ from one position to the next (no pattern hides a lost block)."""
    return hashlib.shake_256(str(size).encode()).digest(size) if size else b""


def test_files_land_byte_identical(board, tmp_path, mains):
    mmb1, mmb2 = mains
    # around the 1024-byte reads and the 102400-byte block written at once
    sizes = [0, 1, 1023, 1024, 1025, 101376, 101377, 102399, 102400, 102401, 204800,
             1048576 + 17]
    for size in sizes:
        mmb1.write(f"/opt/sizes/{size}.bin", sizes_file(size))
    lc = downloader(board, tmp_path, mmb1=mmb1, mmb2=mmb2)
    for size in sizes:
        remote, local = f"/opt/sizes/{size}.bin", f"{HOME}/{size}.bin"
        result, log = download(lc, remote, local)
        assert (result.returncode, result.stdout, result.stderr) == (0, b"", result_line(0))
        assert log == BOTH_MMBS + [succeeded(remote, local, 0)]
        assert lc.read_bytes(local) == sizes_file(size), size
        info = os.stat(lc.path(local))
        assert (stat.S_IMODE(info.st_mode), info.st_uid) == (0o640, 0)
    # the server's log (of the last command) shows the account that owns /opt
    assert lc.read(SERVER_LOG.format("mmb1")).count("USER 'bootfile' logged in.") == 1


def test_file_of_256_mib_lands_byte_identical(board, tmp_path, mains):
    mmb1, mmb2 = mains
    block = os.urandom(1 << 20)
    digest = hashlib.sha256()
    with open(mmb1.path("/opt/big.bin"), "wb") as f:
        for index in range(256):
            chunk = index.to_bytes(4, "little") + block[4:]
            digest.update(chunk)
            f.write(chunk)
    try:
        lc = downloader(board, tmp_path, mmb1=mmb1, mmb2=mmb2)
        local = f"{HOME}/big.bin"
        result, log = download(lc, "/opt/big.bin", local)
        assert (result.returncode, result.stdout) == (0, b"")
        assert log == BOTH_MMBS + [succeeded("/opt/big.bin", local, 0)]
        got = hashlib.sha256()
        with open(lc.path(local), "rb") as f:
            while chunk := f.read(1 << 22):
                got.update(chunk)
        assert (os.path.getsize(lc.path(local)), got.hexdigest()) == (256 << 20,
                                                                      digest.hexdigest())
    finally:
        os.unlink(mmb1.path("/opt/big.bin"))


def test_second_account_for_its_directory(board, tmp_path, mains):
    mmb1, mmb2 = mains
    mmb1.write("/var/lib/data/second.txt", "of swmdata\n")
    lc = downloader(board, tmp_path, mmb1=mmb1, mmb2=mmb2)
    result, log = download(lc, "/var/lib/data/second.txt", f"{HOME}/second.txt")
    assert (result.returncode, log[-1]) == (0, succeeded("/var/lib/data/second.txt",
                                                         f"{HOME}/second.txt", 0))
    assert lc.read(f"{HOME}/second.txt") == "of swmdata\n"
    assert "USER 'swmdata' logged in." in lc.read(SERVER_LOG.format("mmb1"))


def test_port_from_the_server_configuration(board, tmp_path):
    files = {"/opt/port.txt": "at 2121\n"}
    mmb1 = main_board(board, "mmb1", files=files, settings={"ftp.port": "2121"})
    mmb2 = main_board(board, "mmb2", kind="mmb-standby", files=files,
                      settings={"ftp.port": "2121"})
    lc = downloader(board, tmp_path, mmb1=mmb1, mmb2=mmb2)
    lc.write(SERVER_CONF, "port=2121\n")
    result, log = download(lc, "/opt/port.txt", f"{HOME}/port.txt")
    assert (result.returncode, result.stdout) == (0, b"")
    assert log == [MMB1_OK, MMB2_OK, succeeded("/opt/port.txt", f"{HOME}/port.txt", 0)]
    assert lc.read(f"{HOME}/port.txt") == "at 2121\n"


@pytest.mark.parametrize("kind, own, servers, source", [
    # a line card that has main board 1's address: main board 2 is the only server
    ("lc", MMB1_IP, [MMB2_OK], "mmb2"),
    # the standby main board (main board 2, at its own default address) asks main board 1 only
    ("mmb-standby", MMB2_IP, [MMB1_OK], "mmb1"),
])
def test_own_address_is_never_a_server(board, tmp_path, mains, kind, own, servers, source):
    mmb1, mmb2 = mains
    mmb1.write("/opt/which.txt", "mmb1\n")
    mmb2.write("/opt/which.txt", "mmb2\n")
    made = downloader(board, tmp_path, kind=kind, mmb1=mmb1, mmb2=mmb2,
                      settings={"net.address": own})
    result, log = download(made, "/opt/which.txt", f"{HOME}/which.txt")
    assert (result.returncode, result.stdout) == (0, b"")
    assert log == [NO_SERVER_CONF] + servers + [succeeded("/opt/which.txt",
                                                          f"{HOME}/which.txt", 0)]
    assert made.read(f"{HOME}/which.txt") == f"{source}\n"


def test_missing_file_is_not_asked_of_the_other_main_board(board, tmp_path, mains):
    mmb1, _ = mains
    lc = downloader(board, tmp_path, mmb1=mmb1, mmb2=UNTOUCHED)
    local = f"{HOME}/missing.bin"
    lc.write(local, OLD)
    result, log = download(lc, "/opt/missing.bin", local)
    assert (result.returncode, result.stdout, result.stderr) == (1, b"", result_line(550))
    assert log == BOTH_MMBS + [retr_refused(550, 0), retr_refused(550, 1), retr_refused(550, 2),
                               not_prepared("/opt/missing.bin"),
                               "[BOOT_INIT][INFO]:[/opt/missing.bin] not exit in MMB"]
    assert record(lc, "mmb2") == []
    assert lc.read_bytes(local) == OLD  # the failure came before any transfer


def test_remote_path_under_no_account_fails_before_any_connection(board, tmp_path):
    lc = downloader(board, tmp_path, mmb1=UNTOUCHED, mmb2=UNTOUCHED)
    local = f"{HOME}/nobody.txt"
    lc.write(local, OLD)
    result, log = download(lc, "/usr/share/nobody.txt", local)
    assert (result.returncode, result.stdout, result.stderr) == (1, b"", result_line(1))
    assert log == BOTH_MMBS + [
        "[BOOT_INIT][ERROR]:file /usr/share/nobody.txt failed to get valid user.", NO_ACCOUNT]
    assert (record(lc, "mmb1"), record(lc, "mmb2")) == ([], [])
    assert lc.read_bytes(local) == OLD


def test_active_main_board_refuses(board, tmp_path):
    made = downloader(board, tmp_path, name="mmb1", kind="mmb-active", mmb2=UNTOUCHED)
    local = f"{HOME}/master.txt"
    made.write(local, OLD)
    result, log = download(made, "/opt/master.txt", local)
    assert (result.returncode, result.stdout, result.stderr) == (1, b"", result_line(1))
    assert log == [MASTER, NO_ADDRESSES]
    assert record(made, "mmb2") == []
    assert made.read_bytes(local) == OLD


def test_board_in_master_role_that_is_no_main_board_downloads(board, tmp_path, mains):
    mmb1, mmb2 = mains
    mmb1.write("/opt/role0.txt", "role 0\n")
    lc = downloader(board, tmp_path, mmb1=mmb1, mmb2=mmb2, settings={"board.ha_role": "0"})
    result, log = download(lc, "/opt/role0.txt", f"{HOME}/role0.txt")
    assert (result.returncode, log) == (0, BOTH_MMBS + [succeeded("/opt/role0.txt",
                                                                  f"{HOME}/role0.txt", 0)])


def test_stacked_system_uses_the_stack_master(board, tmp_path):
    master = main_board(board, "master", kind="mmb-standby", files={"/opt/stack.txt": "stack\n"},
                        settings={"net.address": "127.0.0.31"})
    lc = downloader(board, tmp_path, mmb1=UNTOUCHED, mmb2=master,
                    settings={"net.stack": "1", "net.stack_master": "127.0.0.31"})
    result, log = download(lc, "/opt/stack.txt", f"{HOME}/stack.txt")
    assert (result.returncode, result.stdout) == (0, b"")
    assert log == [NO_SERVER_CONF, "[BOOT_INIT][INFO]:Stack master Ip:127.0.0.31.",
                   "[BOOT_INIT][INFO]:Get Stack master ftp server sock addr success, "
                   "masterIp:127.0.0.31.",
                   succeeded("/opt/stack.txt", f"{HOME}/stack.txt", 0)]
    assert lc.read(f"{HOME}/stack.txt") == "stack\n"
    assert record(lc, "mmb1") == []


@pytest.mark.parametrize("args", [(), ("/opt/a",), ("/opt/a", f"{HOME}/a", "extra")])
def test_wrong_argument_count(board, args):
    made = with_log_path(board("lc", kind="lc"))
    result, log = download(made, *args)
    assert (result.returncode, result.stdout, result.stderr) == (1, b"", result_line(1))
    assert log == [PARAM_COUNT]
    assert not made.exists(f"{HOME}/a")


def test_account_never_reaches_the_boot_logs(board, tmp_path, mains):
    mmb1, mmb2 = mains
    mmb1.write("/opt/secret.txt", "s\n")
    mmb1.write("/var/lib/secret.txt", "s\n")
    lc = downloader(board, tmp_path, mmb1=mmb1, mmb2=mmb2)
    runs = [("/opt/secret.txt", 0, "bootfile"), ("/var/lib/secret.txt", 0, "swmdata"),
            ("/opt/absent.txt", 1, "bootfile")]
    for index, (remote, status, account) in enumerate(runs):
        assert download(lc, remote, f"{HOME}/{index}")[0].returncode == status
        # the account did log in, with its name as password (the server's log of this run)
        assert f"USER '{account}' logged in." in lc.read(SERVER_LOG.format("mmb1"))
    # operation 2 writes the main log only; the security logs never come into being
    logs = boot_log_bytes(lc)
    assert list(logs) == [BOOT_LOGS[0]]
    for path, data in logs.items():
        for account in ACCOUNTS:
            assert account.encode() not in data, (path, account)
