"""Tests of the board's kernel CRL file (/dev/module_crl) and of `bootsim flash`, the CRL flash
areas kept as images in the board, in the format libdrv reads and writes."""
import os
import stat
import struct
import subprocess

import pytest

from bootsim_helpers import bootsim, build_dir

AREA_SIZE = 131072
MAX_CRL = AREA_SIZE - 4
FLASH_DIR = "/etc/bootsim/flash"


def image(crl):
    return struct.pack("<I", len(crl)) + crl + b"\xff" * (MAX_CRL - len(crl))


def pattern(size, seed=0):
    return bytes((seed + i * 13) & 0xFF for i in range(size))


def flash(b, *args, check=True):
    return bootsim("flash", b.root, *args, check=check)


def host_file(tmp_path, name, data):
    path = tmp_path / name
    path.write_bytes(data)
    return path


# --------------------------------------------------------------------------- /dev/module_crl


def test_new_board_has_an_empty_module_crl_file(board):
    b = board()
    path = b.root / "dev" / "module_crl"
    info = os.lstat(path)
    assert stat.S_ISREG(info.st_mode) and info.st_size == 0
    assert stat.S_IMODE(info.st_mode) == 0o644
    result = b.sh("stat -c '%F %s' /dev/module_crl")
    assert result.returncode == 0, result.stderr
    assert result.stdout == b"regular empty file 0\n"


def test_module_crl_written_inside_stays_in_the_board(board):
    b = board()
    assert not os.path.lexists("/dev/module_crl")
    result = b.sh("printf 'crl bytes' > /dev/module_crl")
    assert result.returncode == 0, result.stderr
    assert b.read_bytes("/dev/module_crl") == b"crl bytes"
    assert not os.path.lexists("/dev/module_crl")
    assert bootsim("path", b.root, "/dev/module_crl").stdout.decode().strip() == \
        str(b.root / "dev" / "module_crl")


def test_removed_module_crl_stays_removed(board):
    b = board()
    b.rm("/dev/module_crl")
    assert b.sh("test -e /dev/module_crl").returncode == 1
    assert b.run("true").returncode == 0
    assert not b.exists("/dev/module_crl")


def test_exec_board_has_the_module_crl_file(tmp_path):
    result = bootsim("exec", "--", "/bin/sh", "-c", "stat -c '%F %s' /dev/module_crl")
    assert result.stdout == b"regular empty file 0\n"


# --------------------------------------------------------------------------- bootsim flash


def test_write_stores_the_flash_image_and_read_gives_the_crl_back(board, tmp_path):
    b = board()
    crl = pattern(1500, 7)
    flash(b, "crl", "--write", host_file(tmp_path, "crl.der", crl))
    assert b.read_bytes(f"{FLASH_DIR}/crl") == image(crl)
    assert stat.S_IMODE(os.stat(b.path(f"{FLASH_DIR}/crl")).st_mode) == 0o644
    assert not b.exists(f"{FLASH_DIR}/pss_crl")
    out = tmp_path / "out.der"
    flash(b, "crl", "--read", out)
    assert out.read_bytes() == crl
    other = pattern(20, 1)
    flash(b, "pss_crl", "--write", host_file(tmp_path, "pss.der", other))
    flash(b, "pss_crl", "--read", out)
    assert out.read_bytes() == other
    assert b.read_bytes(f"{FLASH_DIR}/crl") == image(crl)


def test_write_limits(board, tmp_path):
    b = board()
    largest = pattern(MAX_CRL, 3)
    flash(b, "pss_crl", "--write", host_file(tmp_path, "max", largest))
    assert b.read_bytes(f"{FLASH_DIR}/pss_crl") == image(largest)
    for size in (MAX_CRL + 1, 0):
        result = flash(b, "pss_crl", "--write", host_file(tmp_path, "bad", pattern(size)),
                       check=False)
        assert result.returncode == 2, size
        assert f"1 to {MAX_CRL} bytes, not {size}".encode() in result.stderr
        assert b.read_bytes(f"{FLASH_DIR}/pss_crl") == image(largest)
    result = flash(b, "crl", "--write", tmp_path / "none", check=False)
    assert result.returncode == 1 and b"cannot read" in result.stderr
    assert not b.exists(f"{FLASH_DIR}/crl")


def test_write_replaces_the_image_in_one_step(board, tmp_path):
    b = board()
    flash(b, "crl", "--write", host_file(tmp_path, "a", pattern(4000)))
    before = os.stat(b.path(f"{FLASH_DIR}/crl")).st_ino
    flash(b, "crl", "--write", host_file(tmp_path, "b", b"\x30\x03"))
    assert os.stat(b.path(f"{FLASH_DIR}/crl")).st_ino != before
    assert b.read_bytes(f"{FLASH_DIR}/crl") == image(b"\x30\x03")
    assert os.listdir(b.path(FLASH_DIR)) == ["crl"]


def test_erase_and_remove(board, tmp_path):
    b = board()
    out = tmp_path / "out"
    result = flash(b, "crl", "--read", out, check=False)
    assert result.returncode == 1
    assert result.stderr == b"bootsim flash: error: the crl area was never written: it holds " \
                            b"no CRL\n"
    assert not out.exists()
    flash(b, "crl", "--erase")
    assert b.read_bytes(f"{FLASH_DIR}/crl") == image(b"")
    result = flash(b, "crl", "--read", out, check=False)
    assert result.returncode == 1
    assert result.stderr == b"bootsim flash: error: the crl area is erased: it holds no CRL\n"
    assert not out.exists()
    flash(b, "crl", "--remove")
    assert not b.exists(f"{FLASH_DIR}/crl")
    flash(b, "crl", "--remove")  # nothing to remove is no error
    flash(b, "pss_crl", "--erase")
    assert b.read_bytes(f"{FLASH_DIR}/pss_crl") == image(b"")


@pytest.mark.parametrize("damage,message", [
    ("short", b"131071 bytes instead of 131072"),
    ("long", b"131073 bytes instead of 131072"),
    ("length", b"it claims 131069 bytes of CRL"),
])
def test_damaged_image_is_reported(board, tmp_path, damage, message):
    content = {"short": image(b"abc")[:-1], "long": image(b"abc") + b"\xff",
               "length": struct.pack("<I", MAX_CRL + 1) + b"\xff" * MAX_CRL}[damage]
    b = board()
    b.write(f"{FLASH_DIR}/crl", content)
    result = flash(b, "crl", "--read", tmp_path / "out", check=False)
    assert result.returncode == 1
    assert message in result.stderr and b"is damaged" in result.stderr


def test_flash_arguments(board, tmp_path):
    b = board()
    crl = host_file(tmp_path, "crl", b"x")
    assert flash(b, "crl", check=False).returncode == 2
    assert flash(b, "crl", "--erase", "--remove", check=False).returncode == 2
    assert flash(b, "crl", "--write", crl, "--read", crl, check=False).returncode == 2
    assert flash(b, "module", "--erase", check=False).returncode == 2
    result = bootsim("flash", tmp_path, "crl", "--erase", check=False)
    assert result.returncode == 1 and b"is not a board root" in result.stderr
    assert not (tmp_path / "etc").exists()


def test_help():
    assert "\n  flash ROOT AREA" in bootsim("--help").stdout.decode()
    assert bootsim("flash", "--help").stdout.decode().startswith("usage: bootsim flash")


# --------------------------------------------------------------------------- with libdrv

DRV_READ_WRITE = """\
import ctypes, sys
drv = ctypes.CDLL("libdrv.so")
area, action = sys.argv[1], sys.argv[2]
if action == "read":
    buf = ctypes.create_string_buffer(131068)
    length = ctypes.c_uint32(0)
    status = getattr(drv, f"drv_{area}_read")(buf, 131068, ctypes.byref(length))
    sys.stdout.buffer.write(b"%d " % status + buf.raw[:length.value])
else:
    data = bytes.fromhex(sys.argv[3])
    print(getattr(drv, f"drv_{area}_write")(data, len(data)))
"""


def python_with_libdrv():
    """The command line of a Python that can load the build's libdrv. The libraries of a
    sanitized build need the AddressSanitizer runtime loaded before everything else."""
    ldd = subprocess.run(["ldd", str(build_dir() / "lib" / "libdrv.so")], check=True,
                         stdout=subprocess.PIPE).stdout.decode()
    runtime = [line.split("=>")[1].split()[0] for line in ldd.splitlines()
               if line.strip().startswith("libasan.so") and "=>" in line]
    if not runtime:
        return ["/usr/bin/python3"]
    return ["/usr/bin/env", f"LD_PRELOAD={runtime[0]}", "ASAN_OPTIONS=detect_leaks=0",
            "/usr/bin/python3"]


def test_libdrv_reads_and_writes_the_same_images(board, tmp_path):
    b = board()
    python = python_with_libdrv()
    crl = pattern(3000, 5)
    flash(b, "crl", "--write", host_file(tmp_path, "crl", crl))
    result = b.run(*python, "-c", DRV_READ_WRITE, "crl", "read")
    assert result.returncode == 0, result.stderr
    assert result.stdout == b"0 " + crl
    flash(b, "pss_crl", "--erase")
    result = b.run(*python, "-c", DRV_READ_WRITE, "pss_crl", "read")
    assert result.stdout == b"0 "
    flash(b, "pss_crl", "--remove")
    result = b.run(*python, "-c", DRV_READ_WRITE, "pss_crl", "read")
    assert result.stdout == b"2 "  # DRV_ERR_NOT_FOUND
    written = pattern(777, 9)
    result = b.run(*python, "-c", DRV_READ_WRITE, "pss_crl", "write", written.hex())
    assert result.stdout == b"0\n", result.stderr
    flash(b, "pss_crl", "--read", tmp_path / "out")
    assert (tmp_path / "out").read_bytes() == written
