"""Runs the openssl command line tool, turning its failures into BootpkgError."""
import subprocess

from .errors import BootpkgError

OPENSSL = "openssl"


def run(*args, cwd=None):
    """Runs `openssl ARGS...` in CWD; its output is returned, its failure raised with stderr."""
    command = [OPENSSL, *args]
    try:
        done = subprocess.run(command, cwd=cwd, capture_output=True, check=False)
    except OSError as error:
        raise BootpkgError(f"cannot run {OPENSSL}: {error}") from error
    if done.returncode != 0:
        message = done.stderr.decode(errors="replace").strip()
        raise BootpkgError(f"{' '.join(command)} failed: {message}")
    return done.stdout


def der_of_pem_cert(pem_path, der_path, cwd=None):
    run("x509", "-in", pem_path, "-outform", "DER", "-out", der_path, cwd=cwd)


def der_of_pem_crl(pem_path, der_path, cwd=None):
    run("crl", "-in", pem_path, "-outform", "DER", "-out", der_path, cwd=cwd)
