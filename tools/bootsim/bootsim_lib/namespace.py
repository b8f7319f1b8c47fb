"""Private mount namespace of the bootsim process itself (used by `exec` for RAM-backed boards).

After enter_private_mount_namespace() every mount made by this process (and its children,
bwrap included) is invisible to the host and disappears with the last process using it.
"""
import ctypes
import os

CLONE_NEWNS = 0x00020000
MS_PRIVATE = 1 << 18
MS_REC = 16384
MNT_DETACH = 2

_libc = None


def _lib():
    global _libc
    if _libc is None:
        _libc = ctypes.CDLL(None, use_errno=True)
    return _libc


def _check(result, what):
    if result != 0:
        err = ctypes.get_errno()
        raise OSError(err, f"{what}: {os.strerror(err)}")


def enter_private_mount_namespace():
    """Move this process into a new mount namespace whose mounts do not propagate back."""
    lib = _lib()
    _check(lib.unshare(CLONE_NEWNS), "unshare(CLONE_NEWNS)")
    _check(lib.mount(b"none", b"/", None, MS_REC | MS_PRIVATE, None), "make / private")


def mount_tmpfs(path, mode=0o755):
    _check(_lib().mount(b"tmpfs", os.fsencode(path), b"tmpfs", 0,
                        f"mode={mode:o}".encode()), f"mount tmpfs on {path}")


def detach(path):
    _check(_lib().umount2(os.fsencode(path), MNT_DETACH), f"umount {path}")
