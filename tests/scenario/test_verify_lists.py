"""Operation 3, sub-operations 2 and 3: start files checked against a boot file list and a
file checked against a signature file list, through the front-end on a main board.

The expected digests come from Python's hashlib, independent of the library's SHA-256."""
import hashlib

from boot_log import messages
from ftp_boards import result_line, with_log_path

DIR = "/opt/kytv8/boot"
APP = b"application boot loader\n" * 100
KERNEL = b"kernel image\n" * 300
BOOT_LOG = "/var/lib/swm/workdir/var/log/app_boot.log"
SECURITY_LOG = "/var/lib/swm/workdir/var/log/boot_security.log"


def digest(data):
    return hashlib.sha256(data).hexdigest()


def signature_list(*files):
    """The text of a signature file list naming FILES ((name, type, digest) each)."""
    text = f"[MAIN FILE INFO]\nCreate By=Velmor Technology Inc.\nFILENUM={len(files)}\n"
    for number, (name, kind, hexdigest) in enumerate(files, 1):
        text += f"[FILE{number}]\nFILENAME={name}\nFILETYPE={kind}\nSHA256-DIGEST={hexdigest}\n"
    return text


def run(made, *args):
    def lines(log_type, path):
        return made.log_lines(type=log_type) if made.exists(path) else []

    before = (len(lines(0, BOOT_LOG)), len(lines(1, SECURITY_LOG)))
    result = made.bootinit("--print-result", "3", *args)
    return (result, messages(lines(0, BOOT_LOG)[before[0]:]),
            messages(lines(1, SECURITY_LOG)[before[1]:]))


def request(*args):
    return ["[BOOT_INIT][INFO]:Receive verify file request"] + [
        f"[BOOT_INIT][INFO]:ppacArgv[{i}] = {a}" for i, a in enumerate(args)]


def main_board(board):
    made = with_log_path(board("mmb", kind="mmb-active"))
    made.write(f"{DIR}/appboot", APP)
    made.write(f"{DIR}/kernel.img", KERNEL)
    return made


def test_signature_file_list_proves_a_file_and_names_a_changed_one(board):
    made = main_board(board)
    made.write(f"{DIR}/signature_filelist",
               signature_list(("appboot", 1, digest(APP)), ("kernel.img", "0x2", digest(KERNEL))))
    args = ("3", DIR, "kernel.img", f"{DIR}/signature_filelist")
    result, log, security = run(made, *args)
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", result_line(0))
    assert log == request(*args) + ["[BOOT_INIT][INFO]:Verify file success"]
    assert security == [f"[BOOT_INIT][SECURITY]verify specific file success, file = "
                        f"{DIR}/kernel.img"]

    made.write(f"{DIR}/kernel.img", KERNEL + b"!")
    result, log, security = run(made, *args)
    assert (result.returncode, result.stderr) == (1, result_line(1))
    assert log == request(*args) + [
        f"[BOOT_INIT][ERROR]:Verify file {DIR}/kernel.img hash value failed.",
        "[BOOT_INIT][ERROR]:verify specific file failed, result = 1",
        "[BOOT_INIT][ERROR]:Verify file failed, verify type is 3, result is 1"]
    # the success line follows the failure as well, on purpose
    assert security == [
        f"[BOOT_INIT][SECURITY]verify specific file failed, file = {DIR}/kernel.img, result = 1",
        f"[BOOT_INIT][SECURITY]verify specific file success, file = {DIR}/kernel.img"]


def test_signature_file_list_of_another_creator_is_refused(board):
    made = main_board(board)
    made.write(f"{DIR}/signature_filelist", signature_list(("appboot", 1, digest(APP)))
               .replace("Velmor Technology Inc.", "Someone Else"))
    args = ("3", DIR, "appboot", f"{DIR}/signature_filelist")
    result, log, _ = run(made, *args)
    assert (result.returncode, result.stderr) == (1, result_line(0xFFFFFFFF))
    assert log == request(*args) + [
        "[BOOT_INIT][ERROR]:vrify create by failed, info = Someone Else",
        "[BOOT_INIT][ERROR]:Get Digest Info from signature file list failed(0xffffffff)",
        "[BOOT_INIT][ERROR]:Verify file failed, verify type is 3, result is 4294967295"]


def test_boot_file_list_checks_this_boards_app_boot_files_only(board):
    made = main_board(board)
    made.write(f"{DIR}/filelist.txt",
               f"0x1A2B 0x0 appboot app_boot {digest(APP)}\n"
               f"0x2B3C 0x0 kernel.img app_boot {'0' * 64}\n"
               f"0x1A2B 0x0 kernel.img kernel {'0' * 64}\n")
    args = ("2", DIR, "filelist.txt")
    result, log, security = run(made, *args)
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", result_line(0))
    assert log == request(*args) + ["[BOOT_INIT][INFO]:Verify file success"]
    assert security == ["[BOOT_INIT][SECURITY]verify file in filelist success"]

    made.write(f"{DIR}/appboot", APP[:-1])
    result, log, security = run(made, *args)
    assert (result.returncode, result.stderr) == (1, result_line(1))
    assert log == request(*args) + [
        "[BOOT_INIT][ERROR]:Verify file hash value failed.",
        "[BOOT_INIT][ERROR]:Verify file hash value failed, result = 1",
        "[BOOT_INIT][ERROR]:Verify file failed, verify type is 2, result is 1"]
    assert security == ["[BOOT_INIT][SECURITY]verify file in filelist failed, result = 1"]


def test_type_four_calls_nothing_and_succeeds(board):
    made = main_board(board)
    result, log, security = run(made, "4", "any", "thing")
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", result_line(0))
    assert log == request("4", "any", "thing") + ["[BOOT_INIT][INFO]:Verify file success"]
    assert security == []
