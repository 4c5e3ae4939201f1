"""The binding against the library's export list, bring-up, tuning and lock, the errors a
caller sees, the arguments the wrapper refuses before the library sees them, and the trace."""

import re

import pytest

import torvixe
from torvixe import sim
from conftest import ROOT, SAMPLES


def test_every_export_is_declared():
    exported = re.findall(r"^    (\w+)$", (ROOT / "src/api/torvixe.def").read_text(), re.M)
    assert sorted(torvixe.EXPORTS) == sorted(exported)
    assert len(exported) == 64
    for name, (result, arguments) in torvixe.EXPORTS.items():
        assert getattr(torvixe.library(), name).argtypes == arguments


def test_bring_up_shows_the_board(board):
    assert re.fullmatch(r"\d{10}", board.module_serial) and board.module_version.isdigit()
    assert (board.interface_version, board.lconvertor_type) == (2, int(sim.get("lconv.type")))
    assert board.slot == int(sim.get("slot"))
    assert board.bases == (0, 0x2000, 0x1000, 0x2800, 0x2880)
    assert board.pcb_temperature == float(sim.get("sensor.local"))
    assert board.fpga_temperature == float(sim.get("sensor.remote")) + 0.5   # fraction 0x80


@pytest.mark.parametrize("carrier, locks", [(1.2e9, True), (1.25e9, False)])
def test_tune_and_lock(board, carrier, locks):
    board.signal_type = "QPSK"
    assert board.signal_type.label == "QPSK" and board.signal_type.tables["M"] == "mpm_4.dat"
    board.tune(carrier)
    board.symbol_rate = 10e6
    assert board.wait_locked() == locks and board.carrier_locked == locks
    if locks:
        measured = board.measure()
        assert measured.carrier_hz == pytest.approx(float(sim.get("signal.carrier")), abs=100)
        assert measured.symbol_rate_sps == pytest.approx(10e6, rel=1e-6)


def test_gains_equalizer_demultiplexer_and_fpga_reach_the_board(board):
    board.set_first_gain(0x123)
    board.set_second_gain(0x10, 0x20)
    assert int(sim.get("gain.first.control"), 16) & 0xFFF == 0x123
    assert sim.get("gain.second.control") == "0x00000010 0x00000020"
    board.eq_taps = [(1, 2), (0xFFF, 0)]
    assert board.eq_taps == [(1, 2), (0xFFF, 0)] and sim.get("eq.tap.1") == "0xFFF 0x000"
    board.dmpx_control(1, 2, 3)
    assert [sim.get(f"dmpx.control.{i}") for i in (1, 2)] == ["0x00000001", "0x00000002"]
    board.load_fpga("DEM", SAMPLES / "dem.bin")
    image = (SAMPLES / "dem.bin").read_bytes()
    assert (sim.get("fpga.dem.loaded"), int(sim.get("fpga.dem.bytes"))) == ("1", len(image.rstrip(b"\0")))


@pytest.mark.parametrize("action, code, function, text", [
    (lambda b: b.load_fpga("XYZ", "dem.bin"), 2, "FPGALoad", "FPGALoad [0]: ПЛИС XYZ не опознана"),
    (lambda b: b.load_eq_table("no_such.dat"), 1, "EQErrorTblLoad",
     "EQErrorTblLoad [0]: Ошибка открытия файла таблицы ошибок корректора no_such.dat"),
    (lambda b: b.tune(float("inf")), -1, "SetCarrier", "SetCarrier [0]: Недопустимая частота:   inf"),
    (lambda b: b.read(17, bytearray(64)), 1, "ReadChannelData",
     "ReadChannelData [0] ChannelID 17: NULL-объект или NULL-параметр"),
    (lambda b: torvixe.Board(200), 1, "CreateDeviceInstance",
     "CreateDeviceInstance [200]: NULL-объект или NULL-параметр"),
    # Results the library gives without a text: not the last failure's text again.
    (lambda b: b.load_dmpx("no_such.bin"), 1, "DMPXLoad", "the library gives no text for this result"),
    (lambda b: b.peek(0x40000000), 5, "_devinp", "the library gives no text for this result"),
])
def test_a_failure_raises_the_code_and_the_librarys_text(board, action, code, function, text):
    with pytest.raises(torvixe.Error) as raised:
        action(board)
    assert (raised.value.code, raised.value.function, raised.value.message) == (code, function, text)


@pytest.mark.parametrize("action, error", [
    (lambda b: b.read(0, bytearray(16), nbytes=17), ValueError),
    (lambda b: b.read(0, b"read-only buffer"), TypeError),
    (lambda b: b.read(-1, bytearray(16)), ValueError),
    (lambda b: b.stream(0, nbytes=65536, into=bytearray(100)).__next__(), ValueError),
    (lambda b: setattr(b, "eq_taps", [(0, 0)] * 14), ValueError),
    (lambda b: setattr(b, "eq_taps", [(0x1000, 0)]), ValueError),
    (lambda b: b.set_second_gain(1, 1 << 32), ValueError),
    (lambda b: b.set_signal_type("QPSQ"), ValueError),
    (lambda b: torvixe.Board(256), ValueError),
])
def test_the_wrapper_refuses_what_the_library_cannot_check(board, action, error):
    sim.trace_clear()
    with pytest.raises(error):
        action(board)
    assert len(sim.trace()) == 0   # nothing reached the board


def test_the_trace_holds_the_register_accesses(board):
    sim.trace_clear()
    sim.set("reg.0x8040", 0xCAFE)
    board.poke(0x8044, 0x1234)
    assert board.peek(0x8040) == 0xCAFE
    trace = sim.trace()
    assert trace.dtype.names == ("addr", "value", "write")
    assert trace.tolist() == [(0x8044, 0x1234, 1), (0x8040, 0xCAFE, 0)]
    sim.set("reg.0x8040", "none")
    with pytest.raises(torvixe.Error):
        sim.set("no.such.key", 1)
