"""Fixtures of the scenario tests.

board      factory: board(name=None, board_file=None, settings=None, kind=None, build=None)
           -> bootsim_helpers.Board, created under the test's tmp_path (kind: mmb-active,
           mmb-standby or lc; build: build directory of its platform libraries). Boards of passed tests are removed afterwards;
           those of failed tests stay for inspection (or all stay with BOOTSIM_KEEP_BOARDS=1).
bootinit   path of the bootinit front-end ($BOOTINIT_BUILD_DIR/bin/bootinit); fails clearly
           when it is missing.
"""
import os

import pytest

from bootsim_helpers import Board, bootinit_path


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    report = outcome.get_result()
    setattr(item, "_bootsim_report_" + report.when, report)


def _failed(node):
    for when in ("setup", "call"):
        report = getattr(node, "_bootsim_report_" + when, None)
        if report is not None and report.failed:
            return True
    return False


@pytest.fixture
def board(request, tmp_path):
    created = []

    def factory(name=None, board_file=None, settings=None, kind=None, build=None):
        name = name or f"board{len(created)}"
        made = Board.create(tmp_path / name, board_file=board_file, settings=settings,
                            kind=kind, build=build)
        created.append(made)
        return made

    yield factory

    if _failed(request.node) or os.environ.get("BOOTSIM_KEEP_BOARDS"):
        return
    for made in created:
        if (made.root / "etc" / "bootsim" / "board.ini").exists():
            made.remove()


@pytest.fixture
def bootinit():
    return bootinit_path()
