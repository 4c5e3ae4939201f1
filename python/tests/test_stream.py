"""Data channels: all 17 read at once into numpy arrays and bytearrays, every buffer proven by
its payload to be the next of its channel; the terminate event ending a stream from another
thread; a time-out with what arrived; and the payload check itself catching each kind of
damage."""

import threading
import time

import numpy as np
import pytest

import torvixe
from torvixe import sim

BUFFER = 65536


def test_seventeen_channels_arrive_complete_and_in_order(fresh_board):
    # 20 buffers a second: a reader must stall for a whole ring, 200 ms, to lose anything.
    sim.set("dma.rate", 20)
    results = {}

    def reader(channel):
        # Even channels into numpy arrays, odd ones into bytearrays, each filled in place.
        data = np.empty(6 * BUFFER, np.uint8) if channel % 2 == 0 else bytearray(6 * BUFFER)
        got = 0
        for part in range(3):
            got += fresh_board.read(channel, memoryview(data)[got:], 5000, nbytes=2 * BUFFER)
        results[channel] = (got, sim.check_payload(data, BUFFER, channel, 0))

    readers = [threading.Thread(target=reader, args=(c,)) for c in range(17)]
    for t in readers:
        t.start()
    time.sleep(0.2)   # every reader waits before the engine starts: none comes in late
    fresh_board.start()
    for t in readers:
        t.join()
    assert sorted(results) == list(range(17))
    for channel, (got, codes) in results.items():
        assert got == 6 * BUFFER and codes.tolist() == [sim.PAYLOAD_OK] * 6, channel


def test_terminate_ends_a_stream_from_another_thread(fresh_board):
    sim.set("fault.dma_stall_after", 2)
    fresh_board.start()
    arrived = []
    stream = threading.Thread(target=lambda: arrived.extend(
        fresh_board.stream(5, timeout_ms=20000)))
    stream.start()
    time.sleep(0.5)   # two buffers, then nothing: the reader waits
    began = time.monotonic()
    torvixe.terminate(5)
    stream.join(5)
    assert not stream.is_alive() and time.monotonic() - began < 1
    assert [sim.check_payload(a, BUFFER, 5, i).tolist() for i, a in enumerate(arrived)] == [[0], [0]]


def test_a_time_out_raises_with_what_arrived(fresh_board):
    sim.set("fault.dma_stall_after", 1)
    fresh_board.start()
    with pytest.raises(torvixe.Error) as raised:
        fresh_board.read(0, 2 * BUFFER, timeout_ms=300)
    assert (raised.value.code, raised.value.bytes_read) == (-4, BUFFER)


@pytest.fixture(scope="module")
def two_buffers():
    """Two buffers of channel 3 as the engine wrote them."""
    sim.reset()
    sim.set("dma.rate", 100)
    with torvixe.Board(0) as board:
        board.start()
        data = board.read(3, 2 * BUFFER)
    sim.reset()
    assert sim.check_payload(data, BUFFER, 3, 0).tolist() == [0, 0]
    return data


def _poke(offset, value):
    def damage(data):
        data[offset] = value
    return damage


@pytest.mark.parametrize("damage, channel, first, codes", [
    (_poke(BUFFER + 40000, 0), 3, 0, [0, sim.PAYLOAD_BAD_BODY]),
    (_poke(BUFFER - 1, 0x55), 3, 0, [sim.PAYLOAD_BAD_BODY, 0]),
    (_poke(3, 0x00), 3, 0, [sim.PAYLOAD_NOT_OURS, 0]),
    (None, 4, 0, [sim.PAYLOAD_WRONG_CHANNEL] * 2),
    (None, 3, 1, [sim.PAYLOAD_WRONG_SEQUENCE] * 2),
    (lambda data: data.__setitem__(slice(BUFFER, None), data[:BUFFER].copy()), 3, 0,
     [0, sim.PAYLOAD_WRONG_SEQUENCE]),
])
def test_the_payload_check_finds_each_kind_of_damage(two_buffers, damage, channel, first, codes):
    data = two_buffers.copy()
    if damage:
        damage(data)
    assert sim.check_payload(data, BUFFER, channel, first).tolist() == codes


def test_the_payload_check_takes_a_cut_buffer_and_every_kind():
    sim.reset()
    sim.set("dma.rate", 100)
    try:
        for kind in ("counter", "zero"):
            sim.set("dma.payload", kind)
            with torvixe.Board(0) as board:
                board.start()
                data = board.read(0, BUFFER + 1000)
            assert sim.check_payload(data, BUFFER, 0, 0).tolist() == [0, 0], kind
            data[BUFFER + 999] ^= 1
            assert sim.check_payload(data, BUFFER, 0, 0).tolist() == [0, sim.PAYLOAD_BAD_BODY]
    finally:
        sim.reset()
