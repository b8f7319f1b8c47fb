"""Boards of the download scenarios: main boards served over FTP by bootsim, and the boards that
download from them with operation 2.

Addresses and accounts are the defaults of the board kinds: main board 1 (mmb-active) at
127.0.0.11, main board 2 (mmb-standby) at 127.0.0.12, line cards at 127.0.0.21; every board
knows both main boards' addresses and the accounts "bootfile:/opt swmdata:/var/lib".
"""
import json

from boot_log import messages

LOG_DIR = "/var/lib/swm/workdir/var/log"
HOME = "/opt/kytv8/home"
SERVER_CONF = "/etc/conf/ftpserver.conf"
RECORD = "/etc/bootsim/peers/{}.commands"
SERVER_LOG = "/etc/bootsim/peers/{}.log"

MMB1_IP = "127.0.0.11"
MMB2_IP = "127.0.0.12"
LC_IP = "127.0.0.21"
ACCOUNTS = ("bootfile", "swmdata")
# The three boot logs: main, security, and the security log kept in /opt.
BOOT_LOGS = (LOG_DIR + "/app_boot.log", LOG_DIR + "/boot_security.log",
             "/opt/kytv8/var/log/boot_security.log")

NO_SERVER_CONF = ("[BOOT_INIT][WARNING]:Get portinfo reliable failed from file "
                  "/etc/conf/ftpserver.conf, uiRet:2.")
MMB1_OK = f"[BOOT_INIT][INFO]:Init Mmb1 ftp server sock addr success, mmbIp1:{MMB1_IP}."
MMB2_OK = f"[BOOT_INIT][INFO]:Init Mmb2 ftp server sock addr success, mmbIp2:{MMB2_IP}."
BOTH_MMBS = [NO_SERVER_CONF, MMB1_OK, MMB2_OK]
PARAM_COUNT = "[BOOT_INIT][ERROR]:Param count is not right for ftp getting file"


def result_line(code):
    """What `bootinit --print-result` writes to stderr for result CODE."""
    return f"bootinit: result {code} (0x{code:08X})\n".encode()


def succeeded(remote, local, index):
    return (f"[BOOT_INIT][INFO]:Succeed to download file[{remote}] to local[{local}] from MMB, "
            f"uiSockAddrIndex:{index}.")


def try_next(remote, local, index):
    return (f"[BOOT_INIT][WARNING]:Download file[{remote}] to local[{local}] from MMB "
            f"unsuccessfully,try to download file from another MMB, uiSockAddrIndex:{index}.")


def retr_refused(code, attempt):
    return f"[BOOT_INIT][INFO]:Reply was {code} - RPM_FTP_PRELIM - #{attempt} attempt in 3 ticks."


def not_prepared(remote):
    return (f"[BOOT_INIT][WARNING]:Request server prepare to trans remote file[{remote}] "
            f"unsuccessful")


def with_log_path(made):
    """MADE with its logs at LOG_DIR (no lines about a missing /etc/swm_user.conf)."""
    made.write("/etc/swm_user.conf", f"swm_log_path={LOG_DIR}\n")
    return made


def main_board(board, name, kind="mmb-active", files=None, settings=None):
    """A main board whose /opt and /var/lib hold FILES ({board path: bytes or str})."""
    made = board(name, kind=kind, settings=settings)
    for path, data in (files or {}).items():
        made.write(path, data)
    return made


def downloader(board, tmp_path, name="lc", kind="lc", mmb1=None, mmb2=None, settings=None):
    """A board that downloads from MMB1 and MMB2: main boards (Board) or scripts (dict, or a
    JSON string written as is, kept in TMP_PATH)."""
    entries = dict(settings or {})
    for key, peer in (("mmb1", mmb1), ("mmb2", mmb2)):
        if peer is None:
            continue
        if isinstance(peer, (dict, str)):
            script = tmp_path / f"{name}-{key}.json"
            script.write_text(peer if isinstance(peer, str) else json.dumps(peer))
            entries[f"peers.{key}_script"] = str(script)
        else:
            entries[f"peers.{key}"] = str(peer.root)
    return with_log_path(board(name, kind=kind, settings=entries))


def log_lines(made):
    return made.log_lines() if made.exists(LOG_DIR + "/app_boot.log") else []


def download(made, *args):
    """Operation 2 with ARGS in MADE: (CompletedProcess, messages of the new log lines)."""
    before = len(log_lines(made))
    result = made.bootinit("--print-result", "2", *args)
    return result, messages(log_lines(made)[before:])


def record(made, name="mmb1"):
    """The scripted server's record of the last command's dialogue, one entry a line."""
    return made.read(RECORD.format(name)).splitlines()


def boot_log_bytes(made):
    """The raw bytes of every boot log the board has, by board path."""
    return {path: made.read_bytes(path) for path in BOOT_LOGS if made.exists(path)}
