"""The virtual board's control interface (zarimsim.h) and the check of the payload its DMA
engine writes (zarimsim_payload.h), for tests and test rigs.

The virtual board is the IO library the torvixe library loads, libzarimio.so (zarimio.dll)
beside it: this module loads that same file, so both see one set of boards. Keys are listed in
the virtual board's documentation (docs/virtual-board.md)."""

import ctypes
import os
import threading
from ctypes import POINTER, Structure, c_char_p, c_int, c_size_t, c_uint, c_uint8, c_uint32
from pathlib import Path

import numpy as np

from . import _library as L


class Access(Structure):
    """One register access, as zsim_trace copies it."""
    _fields_ = [("addr", c_uint32), ("value", c_uint32), ("write", c_uint8)]


# The trace as numpy sees it: the same record, padding included.
TRACE_DTYPE = np.dtype({"names": ["addr", "value", "write"],
                        "formats": ["<u4", "<u4", "u1"],
                        "offsets": [Access.addr.offset, Access.value.offset, Access.write.offset],
                        "itemsize": ctypes.sizeof(Access)})

_lock = threading.Lock()
_board = None


def board_library():
    """The virtual board's library, loaded beside the torvixe library. OSError when the IO
    library there is not the virtual board (the vendor's has no control interface)."""
    global _board
    with _lock:
        if _board is None:
            where = L.library_path()
            name = (str(Path(where).parent / L.BOARD_LIBRARY_NAME) if os.path.isabs(where)
                    else L.BOARD_LIBRARY_NAME)
            handle = ctypes.CDLL(name)
            try:
                declared = {
                    "zsim_set": (c_int, [c_uint, c_char_p, c_char_p]),
                    "zsim_get": (c_char_p, [c_uint, c_char_p]),
                    "zsim_load_config": (c_int, [c_char_p]),
                    "zsim_trace": (c_size_t, [c_uint, POINTER(Access), c_size_t]),
                    "zsim_trace_clear": (None, [c_uint]),
                    "zsim_reset": (None, []),
                }
                for function, (result, arguments) in declared.items():
                    getattr(handle, function).restype = result
                    getattr(handle, function).argtypes = arguments
            except AttributeError as error:
                raise OSError(f"{name} is not the virtual board: {error}") from None
            _board = handle
        return _board


def _board_index(board):
    if isinstance(board, bool) or not isinstance(board, int) or not 0 <= board < 1 << 32:
        raise ValueError(f"board {board!r} is not a board index")
    return board


def set(key, value, board=0):
    """Sets a key of a board (zsim_set); a number or bool is written as the board reads it.
    Error for an unknown key, a refused value or a board the virtual board does not have."""
    if isinstance(value, bool):
        value = int(value)
    code = board_library().zsim_set(_board_index(board), str(key).encode(), str(value).encode())
    if code != 0:
        raise L.Error(code, "zsim_set", f"board {board}: {key} = {value!r} refused")


def get(key, board=0):
    """A key's state as text (zsim_get); KeyError for a key the board does not know."""
    raw = board_library().zsim_get(_board_index(board), str(key).encode())
    if raw is None:
        raise KeyError(key)
    return raw.decode("utf-8", errors="replace")


def load_config(path):
    """Loads keys from an INI file (zsim_load_config)."""
    code = board_library().zsim_load_config(L.encode_path(path))
    if code != 0:
        raise L.Error(code, "zsim_load_config", f"{path} could not be read or a line was refused")


def reset():
    """Every board back to its defaults (zsim_reset); open boards stay open."""
    board_library().zsim_reset()


def trace_clear(board=0):
    board_library().zsim_trace_clear(_board_index(board))


def trace(board=0):
    """The register accesses since the last clear, oldest first, as a numpy structured array
    with fields addr, value and write (1 for a write; a read records the value returned). Only
    the newest `trace.max` accesses are held."""
    lib = board_library()
    board = _board_index(board)
    held = min(lib.zsim_trace(board, None, 0), int(get("trace.max", board)))
    entries = np.zeros(held, TRACE_DTYPE)
    if held:
        lib.zsim_trace(board, entries.ctypes.data_as(POINTER(Access)), held)
    return entries


# ---- the payload -------------------------------------------------------------------------------

PAYLOAD_PRBS, PAYLOAD_COUNTER, PAYLOAD_ZERO = 0, 1, 2
PAYLOAD_OK, PAYLOAD_SHORT, PAYLOAD_NOT_OURS = 0, 1, 2
PAYLOAD_WRONG_CHANNEL, PAYLOAD_WRONG_SEQUENCE, PAYLOAD_BAD_BODY = 3, 4, 5
_MAGIC, _HEADER = 0x5A000000, 16
_M64 = (1 << 64) - 1


def _start_values(channel, sequences):
    """zsim_payload_start_value for many buffers at once (unsigned 64-bit arithmetic wraps)."""
    with np.errstate(over="ignore"):
        x = (sequences * np.uint64(0x9E3779B97F4A7C15)) ^ np.uint64(
            ((channel + 1) * 0xC2B2AE3D27D4EB4F) & _M64)
        x ^= x >> np.uint64(29)
        x *= np.uint64(0xBF58476D1CE4E5B9)
        x ^= x >> np.uint64(32)
    start = x & np.uint64(0x7FFFFFFF)
    start[start == 0] = 1
    return start


def _prbs_bytes(starts, nbytes):
    """The PRBS-31 stream (x^31 + x^28 + 1) of each start value as bytes, least significant
    bit first. Bit n is bit n-31 XOR bit n-28, and so (the polynomial squared k times) bit
    n-31s XOR bit n-28s for s = 2^k: once 31s bits are known, 28s more follow in one step."""
    total = 31 + 8 * nbytes
    bits = np.empty((len(starts), total), np.uint8)
    bits[:, :31] = (starts[:, None] >> np.arange(31, dtype=np.uint64)) & np.uint64(1)
    have = 31
    while have < total:
        s = 1 << ((have // 31).bit_length() - 1)
        add = min(28 * s, total - have)
        np.bitwise_xor(bits[:, have - 31 * s:have - 31 * s + add],
                       bits[:, have - 28 * s:have - 28 * s + add], out=bits[:, have:have + add])
        have += add
    return np.packbits(bits[:, 31:], axis=1, bitorder="little")


def check_payload(data, buffer_size, channel, first_sequence):
    """Checks data read from a channel of the virtual board, buffer by buffer, as
    zsim_payload_check does: buffer i of `data` must be buffer `first_sequence` + i of
    `channel`. Returns one PAYLOAD_* code per buffer (a last, shorter piece included) as a
    numpy array; all PAYLOAD_OK when nothing was lost, reordered or damaged."""
    raw = np.frombuffer(memoryview(data).cast("B"), np.uint8)
    whole = len(raw) // buffer_size
    codes = _check_buffers(raw[:whole * buffer_size].reshape(whole, buffer_size), channel,
                           first_sequence)
    if len(raw) % buffer_size:
        tail = raw[whole * buffer_size:]
        codes = np.append(codes, _check_buffers(tail.reshape(1, -1), channel,
                                                first_sequence + whole))
    return codes


def _check_buffers(buffers, channel, first_sequence):
    count, size = buffers.shape
    codes = np.full(count, PAYLOAD_OK, np.uint8)
    if size < _HEADER:
        codes[:] = PAYLOAD_SHORT
        return codes
    header = np.ascontiguousarray(buffers[:, :_HEADER]).view("<u4")
    kind = (header[:, 0] >> 16) & 0xFF
    sequence = header[:, 2].astype(np.uint64) | (header[:, 3].astype(np.uint64) << np.uint64(32))
    expected = np.uint64(first_sequence) + np.arange(count, dtype=np.uint64)
    body = buffers[:, _HEADER:]
    good_body = np.ones(count, bool)
    for k in (PAYLOAD_PRBS, PAYLOAD_COUNTER, PAYLOAD_ZERO):
        rows = np.flatnonzero(kind == k)
        if len(rows) == 0 or body.shape[1] == 0:
            continue
        if k == PAYLOAD_PRBS:
            wanted = _prbs_bytes(_start_values(channel, sequence[rows]), body.shape[1])
        elif k == PAYLOAD_COUNTER:
            words = (body.shape[1] + 3) // 4
            counter = ((sequence[rows, None] << np.uint64(24)) |
                       np.arange(words, dtype=np.uint64)) & np.uint64(0xFFFFFFFF)
            wanted = counter.astype("<u4").view(np.uint8)[:, :body.shape[1]]
        else:
            wanted = np.zeros((len(rows), body.shape[1]), np.uint8)
        good_body[rows] = (body[rows] == wanted).all(axis=1)
    # The first thing found wrong, in the order the C check looks.
    codes[~good_body] = PAYLOAD_BAD_BODY
    codes[sequence != expected] = PAYLOAD_WRONG_SEQUENCE
    codes[(header[:, 0] & 0xFFFF) != (channel & 0xFFFF)] = PAYLOAD_WRONG_CHANNEL
    codes[((header[:, 0] & 0xFF000000) != _MAGIC) | (kind > PAYLOAD_ZERO)] = PAYLOAD_NOT_OURS
    return codes
