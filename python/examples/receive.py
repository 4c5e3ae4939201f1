#!/usr/bin/env python3
"""What the README's C example does, from Python: bring board 0 up, tune to 1.2 GHz at
10 Msym/s, wait for both locks, show the carrier measured, then start the DMA engine and read
the next megabyte of channel 0. With libzarimio.so beside the library it runs on the virtual
board:

    TORVIXE_LIBRARY=build/linux/bin PYTHONPATH=python python3 python/examples/receive.py
"""

import sys

import numpy as np

import torvixe


def main():
    try:
        with torvixe.Board(0) as board:
            board.tune(1.2e9)
            board.symbol_rate = 10e6
            board.wait_locked()
            print(f"carrier {'locked' if board.carrier_locked else 'not locked'}, "
                  f"measured {board.carrier:.0f} Hz")

            data = np.empty(1 << 20, np.uint8)   # channel 0's next buffers, in order
            board.start()
            got = board.read(0, data, timeout_ms=2000)
            print(f"channel 0: {got} bytes")
            board.stop()
            return 0
    except torvixe.Error as error:
        print(error.message)
        return 1


if __name__ == "__main__":
    sys.exit(main())
