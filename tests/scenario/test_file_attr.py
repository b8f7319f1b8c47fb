"""Operation 14: a file, or a symbolic link itself, takes over the owner of another file."""
import os
import stat

import pytest

from boot_log import messages

LOG_DIR = "/var/lib/swm/workdir/var/log"
WRONG_COUNT = "[BOOT_INIT][ERROR]:Param count is not right for ftp getting file"
NO_LABEL_LIBRARY = ("[BOOT_INIT][WARNING]:dlopen libselinux.so.1 unsuccessfully, reason: "
                    "libselinux.so.1: cannot open shared object file: No such file or directory")

# A source owned by swm (2000) and group 2001, a destination and a link to another target,
# both owned by root.
SETUP = """
set -e
mkdir -p /opt/attr
echo source > /opt/attr/src
chown 2000:2001 /opt/attr/src
echo destination > /opt/attr/dst
chmod 0640 /opt/attr/dst
echo target > /opt/attr/target
ln -s /opt/attr/target /opt/attr/link
"""


def make(board, hidden=None):
    made = board()
    # The log directory is configured, so the front-end's own log preparation logs nothing.
    made.write("/etc/swm_user.conf", f"swm_log_path={LOG_DIR}\n")
    made.sh(SETUP, check=True)
    if hidden:
        # Only now: the board's own tools (mkdir, chown) need the libraries hidden here.
        made.set(f"platform.hidden={hidden}")
    return made


def log_lines(made):
    return messages(made.log_lines()) if made.exists(LOG_DIR + "/app_boot.log") else []


def owner(made, path):
    """uid:gid of PATH itself (a link is not followed), read from the board root."""
    info = os.lstat(made.path(path))
    return f"{info.st_uid}:{info.st_gid}"


def mode(made, path):
    return oct(stat.S_IMODE(os.lstat(made.path(path)).st_mode))


def test_destination_takes_the_source_owner(board):
    made = make(board)
    result = made.bootinit("--print-result", "14", "/opt/attr/src", "/opt/attr/dst")
    assert (result.returncode, result.stdout) == (0, b"")
    assert result.stderr == b"bootinit: result 0 (0x00000000)\n"
    assert owner(made, "/opt/attr/dst") == "2000:2001"
    assert mode(made, "/opt/attr/dst") == "0o640"  # the mode is not taken over
    # The operation does not log its arguments, and labels are disabled on these machines.
    assert log_lines(made) == []


def test_link_itself_takes_the_source_owner(board):
    made = make(board)
    result = made.bootinit("14", "/opt/attr/src", "/opt/attr/link")
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", b"")
    assert owner(made, "/opt/attr/link") == "2000:2001"
    assert owner(made, "/opt/attr/target") == "0:0"
    assert log_lines(made) == []


@pytest.mark.parametrize("args", [["/opt/attr/src"], [],
                                  ["/opt/attr/src", "/opt/attr/dst", "/opt/attr/link"]])
def test_wrong_argument_count_returns_one(board, args):
    made = make(board)
    result = made.bootinit("--print-result", "14", *args)
    assert (result.returncode, result.stdout) == (1, b"")
    assert result.stderr == b"bootinit: result 1 (0x00000001)\n"
    assert log_lines(made) == [WRONG_COUNT]
    assert owner(made, "/opt/attr/dst") == "0:0"


def test_missing_source_fails(board):
    made = make(board)
    result = made.bootinit("--print-result", "14", "/opt/attr/none", "/opt/attr/dst")
    assert result.returncode == 1
    assert result.stderr == b"bootinit: result 4294967295 (0xFFFFFFFF)\n"
    assert log_lines(made) == ["[BOOT_INIT][ERROR]:stat /opt/attr/none failed, errno:2"]


def test_missing_destination_fails(board):
    made = make(board)
    result = made.bootinit("--print-result", "14", "/opt/attr/src", "/opt/attr/none")
    assert result.returncode == 1
    assert result.stderr == b"bootinit: result 4294967295 (0xFFFFFFFF)\n"
    assert log_lines(made) == ["[BOOT_INIT][ERROR]:file:/opt/attr/none, lchown failed, errno:2"]


def test_board_without_the_label_library_fails_after_the_owner(board):
    made = make(board, hidden="libselinux.so.1")
    result = made.bootinit("--print-result", "14", "/opt/attr/src", "/opt/attr/link")
    assert result.returncode == 1
    assert result.stderr == b"bootinit: result 4294967295 (0xFFFFFFFF)\n"
    assert owner(made, "/opt/attr/link") == "2000:2001"
    assert log_lines(made) == [NO_LABEL_LIBRARY,
                               "[BOOT_INIT][ERROR]:link context from /opt/attr/src to "
                               "/opt/attr/link failed"]
