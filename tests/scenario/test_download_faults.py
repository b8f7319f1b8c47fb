"""Operation 2 against a misbehaving FTP server: bootsim's scripted server stands in for main
board 1 and answers as each test's script says, recording every command it receives.

The downloading line card has main board 2's address set to its own, so main board 1 is its
only server (unless a test gives it a real main board 2)."""
import pytest

from ftp_boards import (BOTH_MMBS, HOME, LC_IP, MMB1_OK, NO_SERVER_CONF, download, downloader,
                        main_board, not_prepared, record, result_line, retr_refused, succeeded,
                        try_next)

REMOTE = "/opt/f.bin"
LOCAL = f"{HOME}/f.bin"
CONTENT = {"pattern": "0123456789abcdef", "size": 5000}
FILES = {REMOTE: CONTENT}
OLD = b"older file of that name\n"

ONLY_MMB1 = [NO_SERVER_CONF, MMB1_OK]
LOGIN = [f"connect from {LC_IP}", "USER bootfile", "PASS bootfile", "TYPE I"]
FETCHED = ["PASV", f"RETR {REMOTE}", f"data connection from {LC_IP}"]
LOGIN_FAILED = "[BOOT_INIT][ERROR]:Failed to login ftp server"
NO_DATA_CONN = ["[BOOT_INIT][ERROR]:Failed to data conn ip addr",
                "[BOOT_INIT][ERROR]:Failed to get ftp data conn, return [1]."]
READ_FAILED = "[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed."
GENERATE_FAILED = "[BOOT_INIT][ERROR]:Generate local file failed, reply code=1"
# The transfer after three attempts that never reached RETR reads from no data connection.
NO_TRANSFER = [READ_FAILED, f"[BOOT_INIT][ERROR]:Failed to open file {LOCAL}, errno:9.",
               GENERATE_FAILED]


def content():
    pattern = CONTENT["pattern"].encode()
    return (pattern * (CONTENT["size"] // len(pattern) + 1))[:CONTENT["size"]]


def only_mmb1(board, tmp_path, steps, old=None):
    """A line card whose one server is a script with STEPS (and FILES); OLD: an older local
    file of the downloaded name."""
    lc = downloader(board, tmp_path, mmb1={"files": FILES, "steps": steps},
                    settings={"net.mmb2_address": LC_IP})
    if old is not None:
        lc.write(LOCAL, old)
    return lc


def failed(lc, code, log):
    """Operation 2 fails with CODE, logging LOG after the choice of the server."""
    result, messages = download(lc, REMOTE, LOCAL)
    assert (result.returncode, result.stdout, result.stderr) == (1, b"", result_line(code))
    assert messages == ONLY_MMB1 + log


def succeeded_with(lc, log):
    result, messages = download(lc, REMOTE, LOCAL)
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", result_line(0))
    assert messages == ONLY_MMB1 + log + [succeeded(REMOTE, LOCAL, 0)]
    assert lc.read_bytes(LOCAL) == content()


def test_dialogue_of_a_download(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {}, old=OLD)
    succeeded_with(lc, [])
    # the client binds to its own address; the password is the account's name
    assert record(lc) == LOGIN + FETCHED + ["QUIT"]


def test_multi_line_greeting_leaves_its_continuation_for_user(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"CONNECT": [{"reply": [
        "220-Welcome to the main board", "220-Files for the boards", "220 Ready"]}]})
    failed(lc, 1, ["[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:220",
                   LOGIN_FAILED, try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN[:2]
    assert not lc.exists(LOCAL)


def test_greeting_refused_then_accepted(board, tmp_path):
    busy = {"reply": "421 Too many connections", "close": True}
    lc = only_mmb1(board, tmp_path, {"CONNECT": [busy, busy]})
    succeeded_with(lc, [
        "[BOOT_INIT][ERROR]:Failed to establlish ctrl conn, FTP the unexpected reply: 421",
        "[BOOT_INIT][INFO]:Failed to establish ctrl connection, uiRet:1, errno:0, try times:0",
        "[BOOT_INIT][ERROR]:Failed to establlish ctrl conn, FTP the unexpected reply: 421",
        "[BOOT_INIT][INFO]:Failed to establish ctrl connection, uiRet:1, errno:0, try times:1"])
    assert record(lc) == [f"connect from {LC_IP}"] * 2 + LOGIN + FETCHED + ["QUIT"]


def test_pasv_address_is_ignored_for_the_control_peer(board, tmp_path):
    # 10.0.0.9 is nowhere in the board's network; the data listener is on 127.0.0.11 only
    lc = only_mmb1(board, tmp_path, {"PASV": [{
        "reply": "227 Entering Passive Mode (10,0,0,9,19,137)", "data_port": 5001}]})
    succeeded_with(lc, [])
    assert record(lc) == LOGIN + FETCHED + ["QUIT"]


@pytest.mark.parametrize("reply, messages", [
    ("227 Entering Passive Mode 127,0,0,11,19,137",
     ["[BOOT_INIT][ERROR]:PASV response without '(', reply msg = {reply}",
      "[BOOT_INIT][ERROR]:Failed to get data conn server port, reply msg={reply}"]),
    ("227 Entering Passive Mode (127,0,0,11,19)",
     ["[BOOT_INIT][ERROR]:PASV response with invalid address or port, reply msg = {reply}",
      "[BOOT_INIT][ERROR]:Failed to get data conn server port, reply msg={reply}"]),
    ("227 Entering Passive Mode (a,b,c,d,e,f)",
     ["[BOOT_INIT][ERROR]:PASV response with invalid address or port, reply msg = {reply}",
      "[BOOT_INIT][ERROR]:Failed to get data conn server port, reply msg={reply}"]),
    ("502 Passive mode not offered",
     ["[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=502"]),
])
def test_unusable_pasv_replies(board, tmp_path, reply, messages):
    lc = only_mmb1(board, tmp_path, {"PASV": [{"reply": reply}] * 3}, old=OLD)
    attempt = [m.format(reply=reply) for m in messages] + NO_DATA_CONN
    failed(lc, 1, attempt * 3 + NO_TRANSFER + [try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN + ["PASV"] * 3
    assert not lc.exists(LOCAL)  # the transfer had begun: the older file is gone too


def test_pasv_reply_longer_than_its_buffer(board, tmp_path):
    reply = "227 Entering Passive Mode (127,0,0,11,19,137) " + "y" * 250
    lc = only_mmb1(board, tmp_path, {"PASV": [{"reply": reply, "listen": False}] * 3})
    attempt = [f"[BOOT_INIT][ERROR]:Msg buff is not enough, replymsg len = 256, bufflen = "
               f"{len(reply)}",
               "[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=1"] + NO_DATA_CONN
    failed(lc, 1, attempt * 3 + NO_TRANSFER + [try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN + ["PASV"] * 3


def test_retr_550_is_tried_three_times_with_a_new_pasv_each(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"RETR": [{"reply": "550 Not now"}] * 3}, old=OLD)
    failed(lc, 550, [retr_refused(550, 0), retr_refused(550, 1), retr_refused(550, 2),
                     not_prepared(REMOTE), f"[BOOT_INIT][INFO]:[{REMOTE}] not exit in MMB"])
    assert record(lc) == LOGIN + ["PASV", f"RETR {REMOTE}"] * 3
    assert lc.read_bytes(LOCAL) == OLD


def test_retr_451_aborts_at_once(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"RETR": [{"reply": "451 Local error"}]}, old=OLD)
    failed(lc, 451, [retr_refused(451, 0), "[BOOT_INIT][ERROR]:Response 451 - aborting transfer.",
                     not_prepared(REMOTE), try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN + ["PASV", f"RETR {REMOTE}"]
    assert lc.read_bytes(LOCAL) == OLD


def test_421_from_main_board_1_is_retried_on_main_board_2(board, tmp_path):
    mmb2 = main_board(board, "mmb2", kind="mmb-standby", files={REMOTE: content()})
    lc = downloader(board, tmp_path, mmb1={"steps": {"RETR": [{"reply": "421 Going down"}]}},
                    mmb2=mmb2)
    result, messages = download(lc, REMOTE, LOCAL)
    assert (result.returncode, result.stdout) == (0, b"")
    assert messages == BOTH_MMBS + [
        retr_refused(421, 0), "[BOOT_INIT][ERROR]:Response 421 - aborting transfer.",
        not_prepared(REMOTE), try_next(REMOTE, LOCAL, 0), succeeded(REMOTE, LOCAL, 1)]
    assert record(lc) == LOGIN + ["PASV", f"RETR {REMOTE}"]
    assert lc.read_bytes(LOCAL) == content()


def test_data_connection_reset_in_mid_transfer(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"RETR": [{
        "reply": "150 Opening BINARY mode data connection", "transfer": "reset",
        "data": {"pattern": "partial", "size": 300000}}]}, old=OLD)
    failed(lc, 1, [READ_FAILED, f"[BOOT_INIT][ERROR]:Failed to open file {LOCAL}, errno:104.",
                   GENERATE_FAILED, try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN + FETCHED
    assert not lc.exists(LOCAL)


def test_data_connection_that_stalls(board, tmp_path):
    # part of the file, then nothing: the read gives up after its 5-second timeout
    lc = only_mmb1(board, tmp_path, {"RETR": [{
        "reply": "150 Opening BINARY mode data connection", "transfer": "hold",
        "data": {"pattern": "stalled", "size": 200000}}]}, old=OLD)
    failed(lc, 1, [READ_FAILED, f"[BOOT_INIT][ERROR]:Failed to open file {LOCAL}, errno:11.",
                   GENERATE_FAILED, try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN + FETCHED
    assert not lc.exists(LOCAL)


def test_control_connection_closed_instead_of_226(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"RETR": [{
        "reply": "150 Opening BINARY mode data connection", "transfer": "close", "after": [],
        "close": True}]})
    failed(lc, 1, ["[BOOT_INIT][ERROR]:Ctrl conn unexpected eof.",
                   "[BOOT_INIT][ERROR]:Get Ftp Server Connect Response Failed, retcode [1]",
                   try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN + FETCHED
    assert not lc.exists(LOCAL)  # the whole file had arrived, but was never confirmed


def test_completion_reply_other_than_226(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"RETR": [{
        "reply": "150 Opening BINARY mode data connection", "transfer": "close",
        "after": "250 Requested file action okay"}]})
    failed(lc, 250, ["[BOOT_INIT][ERROR]:Get Ftp Server Connect Response Failed, retcode [250]",
                     try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN + FETCHED
    assert not lc.exists(LOCAL)


def test_no_reply_within_five_seconds(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"USER": [{"reply": []}]})
    failed(lc, 1, ["[BOOT_INIT][ERROR]:Read failed, errno 11.",
                   "[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:1",
                   LOGIN_FAILED, try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN[:2]


def test_over_long_reply_line_leaves_its_rest_for_the_next_reply(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"CONNECT": [{"reply": "220 " + "x" * 600}]})
    failed(lc, 1, ["[BOOT_INIT][ERROR]:Failed to get status code from response msg",
                   "[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:1",
                   LOGIN_FAILED, try_next(REMOTE, LOCAL, 0)])
    assert record(lc) == LOGIN[:2]


def test_quit_answered_otherwise_still_succeeds(board, tmp_path):
    lc = only_mmb1(board, tmp_path, {"QUIT": [{"reply": "500 Unknown command", "close": True}]})
    succeeded_with(lc, ["[BOOT_INIT][ERROR]:FTP CMD QUIT failed, the reply:500",
                        "[BOOT_INIT][WARNING]:Break ctrl conn unsuccessfully"])
    assert record(lc) == LOGIN + FETCHED + ["QUIT"]
