"""The bootinit front-end in a board: dispatch results, standard streams and the boot log."""
import os
import stat

import pytest

from boot_log import NO_USER_CFG, messages

DEFAULT_LOG_DIR = "/var/lib/swm/workdir/var/log"
MAIN_LOG = DEFAULT_LOG_DIR + "/app_boot.log"
NOT_RIGHT = "[BOOT_INIT][ERROR]:BOOT_INIT do operation, operType = {} is not right."
INVALID = "[BOOT_INIT][ERROR]:Operation type value is invalid, operType = {}."
CAN_NOT_FIND = "[BOOT_INIT][ERROR]:Can not find operation func by type = {}"


@pytest.fixture
def configured(board):
    """A board whose user configuration names the default log directory, so the front-end's
    log preparation writes nothing and only the operation's lines are in the log."""
    made = board()
    made.write("/etc/swm_user.conf", f"swm_log_path={DEFAULT_LOG_DIR}\n")
    return made


def run_and_log(made, *args):
    result = made.bootinit(*args)
    return result, messages(made.log_lines())


def test_operation_4_logs_only_the_missing_function(configured):
    result, log = run_and_log(configured, "4")
    assert (result.returncode, result.stdout, result.stderr) == (1, b"", b"")
    assert log == [CAN_NOT_FIND.format(4)]


@pytest.mark.parametrize("number", ["20", "99"])
def test_numbers_outside_the_table_log_both_lines(configured, number):
    result, log = run_and_log(configured, number)
    assert (result.returncode, result.stdout) == (1, b"")
    assert log == [INVALID.format(number), CAN_NOT_FIND.format(number)]


@pytest.mark.parametrize("number", ["1a", "-1", ""])
def test_non_digit_numbers_are_not_right(configured, number):
    result, log = run_and_log(configured, number)
    assert (result.returncode, result.stdout) == (1, b"")
    assert log == [NOT_RIGHT.format(number)]


def test_number_beyond_32_bits_wraps(configured):
    result, log = run_and_log(configured, "4294967296")
    assert result.returncode == 1
    # operation 0, which refuses to run without its four arguments
    assert log == ["[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 4"]
    result, log = run_and_log(configured, "4294967300")
    assert log[-1:] == [CAN_NOT_FIND.format(4)] and len(log) == 2


def test_leading_zeros_select_the_operation(configured):
    _, log = run_and_log(configured, "004")
    assert log == [CAN_NOT_FIND.format(4)]


def test_options_of_the_front_end(configured):
    result = configured.bootinit("--print-result", "4")
    assert result.returncode == 1
    assert result.stdout == b""
    assert result.stderr == b"bootinit: result 4294967295 (0xFFFFFFFF)\n"
    result = configured.bootinit("--", "-1")
    assert result.returncode == 1
    assert messages(configured.log_lines())[-1] == NOT_RIGHT.format("-1")


def test_help_and_usage_error_do_not_touch_the_log(board):
    made = board()
    result = made.bootinit("--help")
    assert result.returncode == 0
    assert result.stdout.startswith(b"usage: bootinit [--print-result] [--] OPERATION")
    result = made.bootinit()
    assert (result.returncode, result.stdout) == (2, b"")
    assert result.stderr.startswith(b"usage: bootinit")
    assert not made.exists("/var/lib/swm")


def test_log_preparation_without_user_configuration(board):
    made = board()
    result, log = run_and_log(made, "4")
    assert result.returncode == 1
    assert log == NO_USER_CFG + [CAN_NOT_FIND.format(4)]


def test_configured_log_path_moves_the_logs(board):
    made = board()
    made.write("/etc/swm_user.conf", "swm_log_path = /opt/mylogs\n")
    made.bootinit("20")
    assert messages(made.log_lines(path="/opt/mylogs/app_boot.log")) == [
        INVALID.format(20), CAN_NOT_FIND.format(20)]
    assert not made.exists("/var/lib/swm")


def test_relative_log_path_is_refused_with_the_warning(board):
    made = board()
    made.write("/etc/swm_user.conf", "swm_log_path=mylogs\n")
    _, log = run_and_log(made, "4")
    assert log == [
        "[BOOT_INIT][WARNING]:Get log path from cfg, key is: swm_log_path, value is: mylogs. "
        "Using default.",
        CAN_NOT_FIND.format(4)]


def test_root_path_of_startup_ini_moves_the_default_directory(board):
    made = board()
    made.write("/opt/startup.ini", "[RootPath]\nRootPath=/opt/root\n")
    made.bootinit("4")
    path = "/opt/root/swm/workdir/var/log/app_boot.log"
    assert messages(made.log_lines(path=path)) == NO_USER_CFG + [CAN_NOT_FIND.format(4)]
    assert not made.exists(MAIN_LOG)


def test_log_files_belong_to_the_swm_account(configured):
    configured.bootinit("4")
    log = os.stat(configured.path(MAIN_LOG))
    assert (stat.S_IMODE(log.st_mode), log.st_uid, log.st_gid) == (0o640, 2000, 2000)
    for directory in ["/var/lib/swm", "/var/lib/swm/workdir", "/var/lib/swm/workdir/var",
                      DEFAULT_LOG_DIR]:
        info = os.stat(configured.path(directory))
        assert (stat.S_IMODE(info.st_mode), info.st_uid) == (0o750, 2000), directory


def test_header_counts_the_text_of_every_run(configured):
    for number in ["4", "20", "1a"]:
        configured.bootinit(number)
    text = configured.log_text()
    assert configured.log_header()["curLen"] == len(text)
    assert os.path.getsize(configured.path(MAIN_LOG)) == 8 + len(text)
    assert messages(configured.log_lines()) == [
        CAN_NOT_FIND.format(4), INVALID.format(20), CAN_NOT_FIND.format(20), NOT_RIGHT.format("1a")]


def test_concurrent_front_ends_share_one_log(configured, bootinit):
    # Eight writers in parallel, each running the front-end 30 times (two lines a run).
    script = (f'for w in 1 2 3 4 5 6 7 8; do (for i in $(seq 30); do "{bootinit}" 2$w$w$w >/dev/null; '
              "done) & done; wait")
    assert configured.sh(script).returncode == 0
    log = messages(configured.log_lines())
    assert len(log) == 8 * 30 * 2
    for writer in range(1, 9):
        number = f"2{writer}{writer}{writer}"
        assert log.count(INVALID.format(number)) == 30
        assert log.count(CAN_NOT_FIND.format(number)) == 30
    assert configured.log_header()["curLen"] == len(configured.log_text())


def test_nothing_reaches_the_host(configured):
    before = os.path.exists("/var/lib/swm")
    configured.bootinit("4")
    assert os.path.exists("/var/lib/swm") == before
    assert not os.path.exists("/opt/kytv8")
