"""Operation 3, sub-operation 5: a line card fetches the main board's CRL over FTP and keeps
whichever of it and its flash CRL is newer.

Main board 1 is a real board served by bootsim's FTP server; the line card's CRL flash areas
are set and read back with `bootsim flash`, and the kernel's CRL file is the board's
/dev/module_crl.
"""
import pytest

from boot_log import messages
from bootsim_helpers import bootsim, build_dir
from ftp_boards import (BOTH_MMBS, not_prepared, result_line, retr_refused, succeeded,
                        with_log_path)

REMOTE = "/opt/velmor/bootfile/crl_upgrade"
LOCAL = "/var/lib/crl_upgrade"
KERNEL = "/dev/module_crl"
BOOT_LOG = "/var/lib/swm/workdir/var/log/app_boot.log"

START = "[BOOT_INIT][INFO]:crl sync start"
END = "[BOOT_INIT][INFO]:crl sync end"
NO_REFRESH = "[BOOT_INIT][INFO]:local crl no need refresh"
PSS_READ = "[BOOT_INIT][INFO]:Read pss crl from drv, ret=0"
REQUEST = ["[BOOT_INIT][INFO]:Receive verify file request", "[BOOT_INIT][INFO]:ppacArgv[0] = 5"]
SUCCESS = "[BOOT_INIT][INFO]:Verify file success"
FETCHED = BOTH_MMBS + [succeeded(REMOTE, LOCAL, 0)]


def crl(name):
    return (build_dir() / "pki" / f"{name}.der").read_bytes()


@pytest.fixture
def boards(board):
    """(main board 1, line card): the card downloads from the main board."""
    main = board("mmb1", kind="mmb-active")
    card = with_log_path(board("lc", kind="lc", settings={"peers.mmb1": str(main.root)}))
    return main, card


def flash(made, area, *args):
    return bootsim("flash", str(made.root), area, *args, check=False)


def store(made, area, name):
    flash(made, area, "--write", str(build_dir() / "pki" / f"{name}.der")).check_returncode()


def stored(made, area, tmp_path):
    """The CRL bytes of AREA, or None when the area holds none."""
    out = tmp_path / f"{area}.read"
    result = flash(made, area, "--read", str(out))
    return out.read_bytes() if result.returncode == 0 else None


def sync(made):
    before = len(made.log_lines()) if made.exists(BOOT_LOG) else 0
    result = made.bootinit("--print-result", "3", "5")
    return result, messages(made.log_lines()[before:])


def assert_done(result, code=0):
    assert (result.returncode, result.stdout, result.stderr) == (
        0 if code == 0 else 1, b"", result_line(code))


def test_a_main_board_without_the_file_changes_nothing(boards, tmp_path):
    main, card = boards
    store(card, "crl", "crl_older")
    result, log = sync(card)
    assert_done(result)
    assert log == REQUEST + [START] + BOTH_MMBS + [
        retr_refused(550, 0), retr_refused(550, 1), retr_refused(550, 2), not_prepared(REMOTE),
        f"[BOOT_INIT][INFO]:[{REMOTE}] not exit in MMB",
        "[BOOT_INIT][WARNING]:no crl in mpu, ignore it", SUCCESS]
    assert stored(card, "crl", tmp_path) == crl("crl_older")
    assert card.read_bytes(KERNEL) == b""
    assert not card.exists(LOCAL)


@pytest.mark.parametrize("in_flash,fetched", [("crl_newer", "crl_older"),
                                              ("crl_newer", "crl_newer"),
                                              ("crl_tie_late", "crl_tie_early")])
def test_an_older_or_equal_crl_leaves_flash_alone(boards, tmp_path, in_flash, fetched):
    main, card = boards
    main.write(REMOTE, crl(fetched))
    store(card, "crl", in_flash)
    result, log = sync(card)
    assert_done(result)
    assert log == REQUEST + [START] + FETCHED + [NO_REFRESH, END, SUCCESS]
    assert stored(card, "crl", tmp_path) == crl(in_flash)
    assert card.read_bytes(KERNEL) == b""
    assert not card.exists(LOCAL)


@pytest.mark.parametrize("in_flash,fetched", [("crl_older", "crl_newer"),
                                              ("crl_tie_early", "crl_tie_late")])
def test_a_newer_crl_goes_to_flash_and_to_the_kernel(boards, tmp_path, in_flash, fetched):
    main, card = boards
    main.write(REMOTE, crl(fetched))
    store(card, "crl", in_flash)
    result, log = sync(card)
    assert_done(result)
    assert log == REQUEST + [START] + FETCHED + [END, SUCCESS]
    assert stored(card, "crl", tmp_path) == crl(fetched)
    assert stored(card, "pss_crl", tmp_path) is None
    assert card.read_bytes(KERNEL) == crl(fetched)
    assert not card.exists(LOCAL)


def test_an_erased_flash_takes_any_crl(boards, tmp_path):
    main, card = boards
    main.write(REMOTE, crl("crl_empty"))
    flash(card, "pss_crl", "--erase").check_returncode()
    result, log = sync(card)
    assert_done(result)
    assert log == REQUEST + [START] + FETCHED + [
        PSS_READ, "[BOOT_INIT][INFO]:upgrade crl is empty.", END, SUCCESS]
    assert stored(card, "crl", tmp_path) == crl("crl_empty")
    assert card.read_bytes(KERNEL) == crl("crl_empty")


def test_a_flash_never_written_takes_any_crl(boards, tmp_path):
    main, card = boards
    main.write(REMOTE, crl("crl_revoking"))
    result, log = sync(card)
    assert_done(result)
    assert log == REQUEST + [START] + FETCHED + [
        "[BOOT_INIT][WARNING]:crl flash read failed, ret 2",
        "[BOOT_INIT][ERROR]:read crl from flash failed", END, SUCCESS]
    assert stored(card, "crl", tmp_path) == crl("crl_revoking")


def test_a_pss_signed_crl_goes_to_the_pss_area(boards, tmp_path):
    main, card = boards
    main.write(REMOTE, crl("crl_pss_revoking"))
    store(card, "pss_crl", "crl_pss_empty")
    result, log = sync(card)
    assert_done(result)
    assert log == REQUEST + [START] + FETCHED + [PSS_READ, END, SUCCESS]
    assert stored(card, "pss_crl", tmp_path) == crl("crl_pss_revoking")
    assert stored(card, "crl", tmp_path) is None
    assert card.read_bytes(KERNEL) == crl("crl_pss_revoking")


def test_the_kernel_file_keeps_the_tail_of_a_longer_crl(boards, tmp_path):
    main, card = boards
    main.write(REMOTE, crl("crl_newer"))
    store(card, "crl", "crl_older")
    old = b"\xA5" * (len(crl("crl_newer")) + 100)
    card.write(KERNEL, old)
    result, _ = sync(card)
    assert_done(result)
    assert card.read_bytes(KERNEL) == crl("crl_newer") + old[len(crl("crl_newer")):]


def test_a_crl_of_another_authority_is_not_taken(boards, tmp_path):
    main, card = boards
    main.write(REMOTE, crl("crl_foreign"))
    store(card, "crl", "crl_older")
    result, log = sync(card)
    assert_done(result)
    # the CRL does not come from the root: it cannot be decoded against it, so none is newer
    assert log == REQUEST + [START] + FETCHED + [
        "[BOOT_INIT][ERROR]:CmsvfyDecodeCrlFile failed. ret[7c000007]",
        "[BOOT_INIT][ERROR]:compare crl failed", NO_REFRESH, END, SUCCESS]
    assert stored(card, "crl", tmp_path) == crl("crl_older")
    assert card.read_bytes(KERNEL) == b""
    assert not card.exists(LOCAL)


def test_a_failed_download_fails_the_sync(board):
    card = with_log_path(board("lc", kind="lc"))
    result, log = sync(card)
    assert_done(result, 0xFFFFFFFF)
    assert log[:3] == REQUEST + [START]
    assert log[-2:] == ["[BOOT_INIT][ERROR]:get crl from mpu unsuccessfully",
                        "[BOOT_INIT][ERROR]:Verify file failed, verify type is 5, "
                        "result is 4294967295"]
