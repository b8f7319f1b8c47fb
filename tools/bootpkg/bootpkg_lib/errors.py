"""The one error bootpkg reports to its user."""


class BootpkgError(Exception):
    """A failure with a message meant for the user; bootpkg exits with status 1."""
