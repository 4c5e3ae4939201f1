"""torvixe: the satellite-demodulator board's driver library from Python.

    import torvixe

    with torvixe.Board(0) as board:
        board.tune(1.2e9)
        board.symbol_rate = 10e6
        if board.wait_locked():
            print(board.measure())

Pure Python over ctypes: the library is found through $TORVIXE_LIBRARY (its file or
directory), beside the installed package, or by the system loader. Every non-zero result of the
library raises torvixe.Error with the code, the export's name and the library's text.
torvixe.sim drives the virtual board."""

from ._library import EXPORTS, Error, library, library_path
from .board import (CARRIER_LOCK, DMA_START, DMD_CHANNEL, IQ_CHANNEL, SIGNAL_TYPES, TIMING_LOCK,
                    Board, device_count, device_name, terminate)
from . import sim

__version__ = "1.0.0"

__all__ = ["Board", "Error", "EXPORTS", "SIGNAL_TYPES", "CARRIER_LOCK", "TIMING_LOCK",
           "IQ_CHANNEL", "DMD_CHANNEL", "DMA_START", "device_count", "device_name", "terminate",
           "library", "library_path", "sim"]
