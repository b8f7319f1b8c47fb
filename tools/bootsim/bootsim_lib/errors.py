"""Errors reported to the user by bootsim."""


class BootsimError(Exception):
    """A failure bootsim reports as one line on stderr (no traceback)."""

    def __init__(self, message, status=1):
        super().__init__(message)
        self.status = status
