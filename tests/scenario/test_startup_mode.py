"""Operations 9, 10 and 11: startup mode and backup path through the support library."""
import pytest

from boot_log import messages

LOG_DIR = "/var/lib/swm/workdir/var/log"
LOADED_GET = ["[BOOT_INIT][INFO]:dlopen libsupport_linux.so success.",
              "[BOOT_INIT][INFO]:load PSSP_GetStartupMode success."]
LOADED_SET = ["[BOOT_INIT][INFO]:dlopen libsupport_linux.so success.",
              "[BOOT_INIT][INFO]:load PSSP_SetStartupMode success."]
MISSING = "libsupport_linux.so: cannot open shared object file: No such file or directory"


def make(board, **kwargs):
    made = board(**kwargs)
    made.write("/etc/swm_user.conf", f"swm_log_path={LOG_DIR}\n")
    return made


def log_lines(made):
    return made.log_lines() if made.exists(LOG_DIR + "/app_boot.log") else []


def run(made, *args):
    before = len(log_lines(made))
    result = made.bootinit(*args)
    return result, messages(log_lines(made)[before:])


def test_new_board_starts_from_the_network(board):
    made = make(board)
    result, log = run(made, "10")
    assert (result.returncode, result.stdout) == (0, b"\nSTARTUP_MODE:network\n")
    assert log == LOADED_GET + ["[BOOT_INIT][INFO]:Get startup mode :0"]


def test_set_local_then_read_it_back(board):
    made = make(board)
    result, log = run(made, "11", "local")
    assert (result.returncode, result.stdout) == (0, b"")
    assert log == ["[BOOT_INIT][INFO]:set startup mode start",
                   "[BOOT_INIT][INFO]:ppacArgv[0] = local"] + LOADED_SET
    assert made.env("startup_mode") == {"startup_mode": "1"}
    result, log = run(made, "10")
    assert result.stdout == b"\nSTARTUP_MODE:local\n"
    assert log[-1] == "[BOOT_INIT][INFO]:Get startup mode :1"
    result, _ = run(made, "11", "network")
    assert result.returncode == 0
    assert run(made, "10")[0].stdout == b"\nSTARTUP_MODE:network\n"


@pytest.mark.parametrize("word", ["Local", "NETWORK", "", "2"])
def test_wrong_words_set_nothing(board, word):
    made = make(board)
    result, log = run(made, "11", word)
    assert (result.returncode, result.stdout) == (1, b"")
    assert log == ["[BOOT_INIT][INFO]:set startup mode start",
                   f"[BOOT_INIT][INFO]:ppacArgv[0] = {word}",
                   "[BOOT_INIT][ERROR]:Set startup mode is invalid, enStartupMode = 2"]
    assert made.env("startup_mode") == {"startup_mode": "0"}


def test_set_with_two_arguments_logs_both_first(board):
    made = make(board)
    result, log = run(made, "11", "local", "network")
    assert result.returncode == 1
    assert log == ["[BOOT_INIT][INFO]:set startup mode start",
                   "[BOOT_INIT][INFO]:ppacArgv[0] = local",
                   "[BOOT_INIT][INFO]:ppacArgv[1] = network",
                   "[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 1"]


@pytest.mark.parametrize("operation", ["9", "10"])
def test_queries_take_no_argument(board, operation):
    made = make(board)
    result, log = run(made, operation, "x")
    assert (result.returncode, result.stdout) == (1, b"")
    assert log == ["[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 0"]


def test_missing_support_library_answers_network(board):
    made = make(board, settings={"platform.missing": "libsupport_linux.so"})
    result, log = run(made, "10")
    assert (result.returncode, result.stdout) == (0, b"\nSTARTUP_MODE:network\n")
    assert log == [f"[BOOT_INIT][WARNING]:get startup mode dlopen libsupport_linux.so "
                   f"unsuccessful, err({MISSING})",
                   "[BOOT_INIT][INFO]:Get startup mode :0"]
    result, log = run(made, "11", "local")
    assert result.returncode == 1  # 0xFFFFFFFF from the library, exit status 1
    assert log[-1] == (f"[BOOT_INIT][WARNING]:set startup mode dlopen libsupport_linux.so "
                       f"unsuccessful, err({MISSING})")
    result, log = run(made, "9")
    assert (result.returncode, result.stdout) == (1, b"")
    assert log == [f"[BOOT_INIT][WARNING]:get backup path dlopen libsupport_linux.so "
                   f"unsuccessful, err({MISSING})",
                   "[BOOT_INIT][ERROR]:BOOT InitOperGetBackPath InitOperAppbootVerify get back "
                   "path failed"]


def test_failed_mode_read_answers_network(board):
    made = make(board, settings={"fail.PSSP_GetStartupMode": "5"})
    made.set_env(startup_mode="1")
    result, log = run(made, "10")
    # The support library failed; whatever it wrote stands, and here it wrote local.
    assert result.stdout == b"\nSTARTUP_MODE:local\n"
    assert log == LOADED_GET + ["[BOOT_INIT][ERROR]:call PSSP_GetStartupMode failed.",
                                "[BOOT_INIT][INFO]:Get startup mode :1"]


def test_failed_mode_store_returns_the_support_code(board):
    made = make(board, settings={"fail.PSSP_SetStartupMode": "7"})
    result = made.bootinit("--print-result", "11", "local")
    assert result.returncode == 1
    assert result.stderr == b"bootinit: result 7 (0x00000007)\n"
    assert messages(made.log_lines())[-1] == "[BOOT_INIT][ERROR]:call PSSP_SetStartupMode failed."


def test_backup_path(board):
    made = make(board)
    result, log = run(made, "9")
    assert (result.returncode, result.stdout) == (0, b"\nBACK_PATH:/opt/kytv8/backup\n")
    assert log == ["[BOOT_INIT][INFO]:Get back path: /opt/kytv8/backup"]


def test_backup_path_counts_when_the_call_failed_but_the_directory_exists(board):
    made = make(board, settings={"fail.PSSP_GetBackUpPath": "9"})
    result, log = run(made, "9")
    assert (result.returncode, result.stdout) == (0, b"\nBACK_PATH:/opt/kytv8/backup\n")
    assert log == ["[BOOT_INIT][ERROR]:call PSSP_GetBackUpPath failed.",
                   "[BOOT_INIT][INFO]:Get back path: /opt/kytv8/backup"]


def test_backup_path_that_does_not_exist(board):
    made = make(board, settings={"support.backup_dir": "/opt/nowhere"})
    result, log = run(made, "9")
    assert (result.returncode, result.stdout) == (1, b"")
    assert log == ["[BOOT_INIT][ERROR]:GetBackUpPath: highMemPath(/opt/nowhere) is not exist",
                   "[BOOT_INIT][ERROR]:BOOT InitOperGetBackPath InitOperAppbootVerify get back "
                   "path failed"]
