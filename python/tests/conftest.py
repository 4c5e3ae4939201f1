"""The package's tests run on the virtual board of a build tree: the library is the one
$TORVIXE_LIBRARY names (scripts/test sets it), else build/linux/bin. Named events go to a
directory of this run's own, so that no other process on the machine signals them."""

import os
import sys
import tempfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
os.environ.setdefault("TORVIXE_LIBRARY", str(ROOT / "build" / "linux" / "bin"))
os.environ["TORVIXE_RUNTIME_DIR"] = tempfile.mkdtemp(prefix="torvixe-pytest-")
if "torvixe" not in sys.modules:
    sys.path.insert(0, str(ROOT / "python"))

import torvixe  # noqa: E402
from torvixe import sim  # noqa: E402

SAMPLES = Path(torvixe.library_path()).parent / "samples"


@pytest.fixture(scope="module")
def board():
    """One board brought up for a module's tests (a bring-up takes two seconds)."""
    sim.reset()
    with torvixe.Board(0) as b:
        yield b


@pytest.fixture
def fresh_board():
    """A board of its own: a data channel's position outlives a DMA restart on one board."""
    sim.reset()
    with torvixe.Board(0) as b:
        yield b
    sim.reset()
