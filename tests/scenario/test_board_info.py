"""Operation 1: the board's facts and its packages, as the boot scripts read them."""
import pytest

from boot_log import messages

LOG_DIR = "/var/lib/swm/workdir/var/log"
HOME = "/opt/kytv8/home"
BACKUP = "/opt/kytv8/backup"
PARAM = "bootinit: result 268435457 (0x10000001)\n"
NO_CPU_ID = "[BOOT_INIT][INFO]:get cpu id unsuccessfully, set cpuid = 0."


def make(board, kind="mmb-active", **settings):
    made = board(kind=kind, settings=settings or None)
    made.write("/etc/swm_user.conf", f"swm_log_path={LOG_DIR}\n")
    return made


def log_lines(made):
    return made.log_lines() if made.exists(LOG_DIR + "/app_boot.log") else []


def run(made, *args):
    before = len(log_lines(made))
    result = made.bootinit("--print-result", "1", *args)
    return result, messages(log_lines(made)[before:])


def test_hard_type(board):
    made = make(board)
    result, log = run(made, "1")
    assert (result.returncode, result.stdout) == (0, b"\nBOARD_HARD_TYPE:0x1A2B\n")
    assert log == ["[BOOT_INIT][INFO]:Get board type sucess:0x1A2B"]


def test_hard_type_from_startup_ini_when_the_driver_says_zero(board):
    made = make(board, **{"board.hard_type": "0"})
    made.ini("/opt/startup.ini", {"board.hard_type": "4660"})
    assert run(made, "1")[0].stdout == b"\nBOARD_HARD_TYPE:0x1234\n"


def test_hard_type_failure_prints_the_failure_form(board):
    made = make(board, **{"board.hard_type": "0"})
    result, log = run(made, "1")
    assert result.stdout == b"\nBOARD_HARD_TYPE:0xFFFFFFFF"
    assert result.stderr == b"bootinit: result 268435459 (0x10000003)\n"
    assert log == ["[BOOT_INIT][ERROR]:Get board type failed, result = 0x10000003",
                   "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0x10000003"]


def test_printer_with_an_extra_argument_prints_nothing(board):
    made = make(board)
    result, log = run(made, "1", "extra")
    assert (result.stdout, result.stderr) == (b"", PARAM.encode())
    assert log == ["[BOOT_INIT][ERROR]:value1 is not equal to value2 when check ret.",
                   "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0x10000001"]


def test_sub_operation_numbers(board):
    made = make(board)
    result, log = run(made, "11")
    assert (result.stdout, result.stderr) == (b"", PARAM.encode())
    assert log == ["[BOOT_INIT][INFO]:Oper type is invalid"]
    result, log = run(made)
    assert result.stderr == PARAM.encode()
    assert log == ["[BOOT_INIT][INFO]:para count is wrong, value is 0"]
    # Not a number: sub-operation 0, the CC package path.
    made.set_env(next_bootfile=f"{HOME}/base.cc")
    result, _ = run(made, "abc")
    assert result.stdout == f"\nCC_PACKAGE_FULL_PATH:{HOME}/base.cc\n".encode()


@pytest.mark.parametrize("kind, expected", [("mmb-active", b"\nBOARD_ROLE:MMB\n"),
                                            ("lc", b"\nBOARD_ROLE:LC\n")])
def test_role_from_the_driver(board, kind, expected):
    made = make(board, kind=kind)
    result, log = run(made, "2")
    assert (result.returncode, result.stdout) == (0, expected)
    assert log == []


def test_role_when_the_driver_fails_comes_from_the_marker(board):
    made = make(board, kind="lc", **{"fail.DEV_GetRoleOfBoard": "0x31"})
    made.put("/opt/MMB")
    result, log = run(made, "2")
    assert result.stdout == b"\nBOARD_ROLE:MMB\n"
    assert log == ["[BOOT_INIT][WARNING]:DEV_GetRoleOfBoard unsuccessfully, result = 0x31, get "
                   "role from stub"]


@pytest.mark.parametrize("marker, expected", [(True, b"\nBOARD_ROLE:MMB\n"),
                                              (False, b"\nBOARD_ROLE:LC\n")])
def test_role_without_the_driver_entry_point(board, marker, expected):
    made = make(board, kind="lc", **{"platform.driver": "minimal"})
    if marker:
        made.put("/opt/MMB")
    result, log = run(made, "2")
    assert result.stdout == expected
    assert log == []


def test_ids(board):
    made = make(board, kind="lc", **{"board.logic_cpu_id": "2", "board.slot": "12"})
    assert run(made, "3")[0].stdout == b"\nCPU_ID:0x2\n"
    assert run(made, "4")[0].stdout == b"\nCHASSIS_ID:0x1\n"
    assert run(made, "5")[0].stdout == b"\nSLOT_ID:0xC\n"
    result, log = run(made, "9")
    assert (result.returncode, result.stdout) == (0, b"\nCPU_ID:0x2\n\nCHASSIS_ID:0x1\n\nSLOT_ID:0xC\n")
    assert log == ["[BOOT_INIT][INFO]:Get cpu id sucess:0x2",
                   "[BOOT_INIT][INFO]:Get chassisid sucess:0x1",
                   "[BOOT_INIT][INFO]:Get slotid sucess:0xC"]


def test_ids_still_print_when_their_source_fails(board):
    made = make(board, **{"fail.SWM_GetLogicCpuId": "6", "fail.SWM_GetSlotId": "8"})
    result, log = run(made, "9")
    assert result.returncode == 0
    assert result.stdout == b"\nCPU_ID:0x0\n\nCHASSIS_ID:0x1\n\nSLOT_ID:0x1\n"
    assert log == ["[BOOT_INIT][ERROR]:Get cpu id from stub failed, result = 0x6",
                   "[BOOT_INIT][INFO]:Get cpu id sucess:0x0",
                   "[BOOT_INIT][INFO]:Get chassisid sucess:0x1",
                   "[BOOT_INIT][WARNING]:Get slotid not OK, result = 0x8",
                   "[BOOT_INIT][INFO]:Get slotid sucess:0x1"]


def test_all_ids_with_an_argument_log_each_failure_and_succeed(board):
    made = make(board)
    result, log = run(made, "9", "x")
    assert (result.returncode, result.stdout) == (0, b"")
    check = "[BOOT_INIT][ERROR]:value1 is not equal to value2 when check ret."
    assert log == [check, "[BOOT_INIT][ERROR]:Get cpu id unsuccessfully, result = 0x10000001",
                   check, "[BOOT_INIT][ERROR]:Get chassisid unsuccessfully, result = 0x10000001",
                   check, "[BOOT_INIT][ERROR]:Get slotid unsuccessfully, result = 0x10000001"]


@pytest.mark.parametrize("kind, settings, expected", [
    ("mmb-active", {}, b"\nBOARD_HARD_ACTIVE_STATE:MASTER"),
    ("mmb-standby", {}, b"\nBOARD_HARD_ACTIVE_STATE:SLAVE"),
    ("lc", {}, b"\nBOARD_HARD_ACTIVE_STATE:INVALID"),
    ("mmb-standby", {"fail.drv_msc_get_state": "420"}, b"\nBOARD_HARD_ACTIVE_STATE:MASTER"),
    ("mmb-standby", {"fail.drv_msc_get_state": "2983"}, b"\nBOARD_HARD_ACTIVE_STATE:MASTER"),
    ("mmb-standby", {"fail.drv_msc_get_state": "0x30BA7"}, b"\nBOARD_HARD_ACTIVE_STATE:MASTER"),
])
def test_active_state(board, kind, settings, expected):
    made = make(board, kind=kind, **settings)
    result, _ = run(made, "6")
    assert (result.returncode, result.stdout) == (0, expected)


def test_active_state_with_another_driver_error_is_slave(board):
    made = make(board, **{"fail.drv_msc_get_state": "0x1A5"})
    result, log = run(made, "6")
    assert result.stdout == b"\nBOARD_HARD_ACTIVE_STATE:SLAVE"
    assert "[BOOT_INIT][ERROR]:BOOT_INIT_GetBoardHardActiveState, get uiHaStatus error, ret:1a5" in log


def test_measure_question_without_the_basic_driver_library(board):
    made = make(board)
    result, log = run(made, "7")
    assert (result.returncode, result.stdout) == (0, b"")
    assert log == ["[BOOT_INIT][ERROR]:dlopen libdrv_basic.so fail, reason:libdrv_basic.so: "
                   "cannot open shared object file: No such file or directory"]


def test_hard_type_list_is_decimal(board):
    made = make(board, **{"board.hard_types": "0x1A2B 0x1A2C"})
    result, log = run(made, "10")
    assert (result.returncode, result.stdout) == (0, b"\nBOARD_HARD_LIST: 6699 6700\n")
    made = make(board, **{"fail.SWM_GetBoardMultiHardType": "3"})
    result, log = run(made, "10")
    assert result.stdout == b"\nBOARD_HARD_LIST:0xFFFFFFFF"
    assert result.stderr == b"bootinit: result 4294967295 (0xFFFFFFFF)\n"
    assert log == ["[BOOT_INIT][ERROR]:Get hard type list failed, ret = 3.",
                   "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0xffffffff"]


# ---- the summary line ----

def test_summary_of_an_active_main_board(board):
    made = make(board)
    made.set_env(next_bootfile=f"{HOME}/base.cc", cpu_id="0")
    result, _ = run(made, "8")
    assert (result.returncode, result.stdout) == (0, f"MMB;network;0x1a2b;MASTER;{HOME}/base.cc;;\n".encode())


def test_summary_of_a_main_board_starting_locally(board):
    made = make(board, kind="mmb-standby")
    made.set_env(next_bootfile=f"{HOME}/base.cc", startup_mode="1", cpu_id="0")
    result, _ = run(made, "8")
    assert result.stdout == f"MMB;local;0x1a2b;SLAVE;{HOME}/base.cc;{BACKUP};\n".encode()


def test_summary_of_a_line_card_has_an_empty_cc_field(board):
    made = make(board, kind="lc")
    made.set_env(next_bootfile=f"{HOME}/base.cc")
    result, log = run(made, "8")
    assert (result.returncode, result.stdout) == (0, b"LC;network;0x2b3c;INVALID;;;\n")
    assert NO_CPU_ID in log


def test_cpu_1_of_a_main_board_is_a_line_card_in_the_summary(board):
    made = make(board)
    made.set_env(cpu_id="1", next_bootfile=f"{HOME}/base.cc")
    result, _ = run(made, "8")
    assert result.stdout == b"LC;network;0x1a2b;INVALID;;;\n"
    # The role printer asks the driver only: the CPU plays no part there.
    assert run(made, "2")[0].stdout == b"\nBOARD_ROLE:MMB\n"


def test_summary_without_driver_role_or_marker_is_a_line_card(board):
    made = make(board, **{"platform.driver": "minimal"})
    made.rm("/opt/MMB")
    made.set_env(cpu_id="0")
    assert run(made, "8")[0].stdout == b"LC;network;0x1a2b;INVALID;;;\n"


def test_summary_with_type_zero(board):
    made = make(board, kind="lc", **{"board.hard_type": "0"})
    result, log = run(made, "8")
    assert result.stdout == b"LC;network;0;INVALID;;;\n"
    assert "[BOOT_INIT][ERROR]:Get board hard type failed, ret = 268435459" in log


# ---- the CC package path ----

def cc(made, path):
    made.set_env(next_bootfile=path)
    return run(made, "0")


@pytest.mark.parametrize("name", ["base.cc", "BASE.CC", "with space.cc"])
def test_accepted_cc_names(board, name):
    made = make(board)
    result, log = cc(made, f"{HOME}/{name}")
    assert (result.returncode, result.stdout) == (0, f"\nCC_PACKAGE_FULL_PATH:{HOME}/{name}\n".encode())
    assert log == [f"[BOOT_INIT][INFO]:Get cc path:{HOME}/{name}"]


def test_cc_package_in_the_backup_partition(board):
    made = make(board)
    result, _ = cc(made, f"{BACKUP}/base.cc")
    assert result.stdout == f"\nCC_PACKAGE_FULL_PATH:{BACKUP}/base.cc\n".encode()


def refused(result, log, *reasons):
    assert (result.stdout, result.stderr) == (b"", b"bootinit: result 4294967295 (0xFFFFFFFF)\n")
    assert log == list(reasons) + ["[BOOT_INIT][ERROR]:Cc package path checked failed.",
                                   "[BOOT_INIT][INFO]:Get cc path failed",
                                   "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0xffffffff"]


def test_hardware_package_name_is_refused_as_base_package(board):
    made = make(board)
    result, log = cc(made, f"{HOME}/hw.cch")
    refused(result, log,
            "[BOOT_INIT][ERROR]:Filename postfix error, ccFileName = hw.cch",
            "[BOOT_INIT][ERROR]:Cc filename error, fileName = hw.cch")


def test_semicolon_in_the_name_is_refused(board):
    made = make(board)
    result, log = cc(made, f"{HOME}/a;b.cc")
    refused(result, log,
            "[BOOT_INIT][ERROR]:str include invalid character",
            "[BOOT_INIT][ERROR]:Filename include invalid character, ccFileName = a;b.cc",
            "[BOOT_INIT][ERROR]:Cc filename error, fileName = a;b.cc")


def test_package_in_a_subdirectory_is_refused(board):
    made = make(board)
    made.put(f"{HOME}/sub/keep")
    result, log = cc(made, f"{HOME}/sub/base.cc")
    refused(result, log,
            f"[BOOT_INIT][ERROR]:Cc package path error, filePath = {HOME}/sub/base.cc,"
            f"backuppath = {BACKUP}.")


def test_package_through_a_link_is_judged_by_its_real_place(board):
    made = make(board)
    made.run("/bin/ln", "-s", HOME, "/opt/homelink", check=True)
    result, log = cc(made, "/opt/homelink/base.cc")
    # Accepted for its real place; the answer is the path as the environment gives it.
    assert result.stdout == b"\nCC_PACKAGE_FULL_PATH:/opt/homelink/base.cc\n"
    assert log == ["[BOOT_INIT][INFO]:Get cc path:/opt/homelink/base.cc"]


def test_cc_path_from_startup_ini_when_the_environment_has_none(board):
    made = make(board)
    made.unset_env("next_bootfile")
    made.ini("/opt/startup.ini", {"package.cc": f"{HOME}/stub.cc"})
    result, log = run(made, "0")
    assert result.stdout == f"\nCC_PACKAGE_FULL_PATH:{HOME}/stub.cc\n".encode()
    assert log[0] == "[BOOT_INIT][INFO]:Get cc package full path from drv, result = 0x2"


def test_no_cc_path_anywhere(board):
    made = make(board)
    made.unset_env("next_bootfile")
    result, log = run(made, "0")
    assert result.stdout == b""
    assert log == ["[BOOT_INIT][INFO]:Get cc package full path from drv, result = 0x2",
                   "[BOOT_INIT][WARNING]:Get cc package full path from stub failed, result = 0xffffffff",
                   "[BOOT_INIT][ERROR]:Cc package path checked failed.",
                   "[BOOT_INIT][INFO]:Get cc path failed",
                   "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0xffffffff"]


def test_backup_partition_with_a_trailing_slash(board):
    made = make(board)
    made.set_env(homebak_path=BACKUP + "/")
    result, _ = cc(made, f"{BACKUP}/base.cc")
    assert result.stdout == f"\nCC_PACKAGE_FULL_PATH:{BACKUP}/base.cc\n".encode()
