"""A board as a Python object: every export of the library under a Python name, results as
numbers, str and named tuples, every failure as torvixe.Error."""

import ctypes
import errno
import os
import stat
import threading
import time
from collections import namedtuple
from ctypes import byref, c_char, c_double, c_float, c_uint8, c_uint16, c_uint32

import numpy as np

from . import _library as L
from ._library import call, encode_path, text

# The signal types by index, as SetSignalType takes them.
SIGNAL_TYPES = ("BPSK", "QPSK", "OQPSK", "8PSK", "8QAM", "16QAM", "32QAM", "64QAM", "BPSK_P2",
                "QPSK_P4", "DEC", "PRS", "IQ", "BPSK_135", "16APSK", "32APSK", "128QAM",
                "256QAM", "8QAM_DS", "8QAM_PD", "DVBS2", "DVBS2X")

# Bits of the status word (GetBitStatus).
CARRIER_LOCK, TIMING_LOCK, IQ_CHANNEL, DMD_CHANNEL = 1 << 0, 1 << 1, 1 << 4, 1 << 6
# What the signal-type table holds for a threshold that does not apply to the type.
NOT_APPLICABLE = 0xABCDEF
# The start parameter the DMA engine takes.
DMA_START = 0x40000000
# The equalizer's taps, and the width of each of a tap's two values.
EQ_TAPS, EQ_VALUE_MAX = 13, 0xFFF

Bases = namedtuple("Bases", "int dem peripheral dec rs")
Gains = namedtuple("Gains", "attenuator_code attenuation_db first_code first_level "
                            "second_code second_db total_db")
Counters = namedtuple("Counters", "iq demodulated_data adc int")
Measurement = namedtuple("Measurement", "carrier_hz symbol_rate_sps")
SignalType = namedtuple("SignalType", "modulation label code_rate tables level_code "
                                      "carrier_lock_threshold timing_lock_threshold "
                                      "bits_per_symbol mode_code")
TimingControl = namedtuple("TimingControl", "first_decimation control_word loop_code aux_code")


def _word(value, name="value", bits=32):
    """An unsigned integer that fits `bits` bits; anything else is refused before a call."""
    if isinstance(value, bool) or not isinstance(value, (int, np.integer)):
        raise TypeError(f"{name} must be an integer, not {type(value).__name__}")
    if not 0 <= value < 1 << bits:
        raise ValueError(f"{name} {value} is outside 0..{(1 << bits) - 1}")
    return int(value)


def _writable_bytes(buffer):
    """The caller's buffer as a ctypes byte array over the same memory (no copy). It must be
    writable and contiguous; while the array lives, a bytearray cannot be resized under the
    library."""
    view = memoryview(buffer)
    if view.readonly:
        raise TypeError("the buffer must be writable (a bytearray or a numpy array)")
    if not view.c_contiguous:
        raise ValueError("the buffer must be contiguous")
    if view.nbytes == 0:
        return _NOTHING, 0   # a read of nothing still needs a buffer that is there
    return (c_char * view.nbytes).from_buffer(view.cast("B")), view.nbytes


_NOTHING = (c_char * 1)()


def device_count():
    """How many devices the system enumerates (DeviceSupportedCount)."""
    return L.library().DeviceSupportedCount()


def device_name(index):
    """The device path of a board index, "" when the library knows none (GetFullDeviceName)."""
    raw = L.library().GetFullDeviceName(byref(L.DeviceId(_word(index, "index", 8))))
    return os.fsdecode(raw) if raw and not L.WINDOWS else text(raw)


# ---- the terminate events ------------------------------------------------------------------

_terminate_events = {}
_terminate_lock = threading.Lock()


def _runtime_directory():
    """Where the library keeps its named events on POSIX, made as the library makes it."""
    directory = os.environ.get("TORVIXE_RUNTIME_DIR") or (
        os.path.join(os.environ["XDG_RUNTIME_DIR"], "torvixe")
        if os.environ.get("XDG_RUNTIME_DIR") else f"/tmp/torvixe-{os.geteuid()}")
    os.makedirs(directory, mode=0o700, exist_ok=True)
    info = os.stat(directory)
    if not stat.S_ISDIR(info.st_mode) or info.st_uid != os.geteuid():
        raise PermissionError(errno.EACCES, "runtime directory not ours", directory)
    return directory


def _terminate_event(channel):
    """The channel's terminate event, opened (or made) once and kept open: a signal given
    before a reader waits then stays pending for it, as with the library's own handle."""
    name = f"TORVIX.TerminateEvent{channel}"
    if L.WINDOWS:
        key = name
    else:
        key = os.path.join(_runtime_directory(), name)
    event = _terminate_events.get(key)
    if event is None:
        if L.WINDOWS:
            kernel32 = ctypes.WinDLL("kernel32", use_last_error=True)
            kernel32.CreateEventA.restype = ctypes.c_void_p
            event = kernel32.CreateEventA(None, False, False, name.encode())
            if not event:
                raise ctypes.WinError(ctypes.get_last_error())
        else:
            try:
                os.mkfifo(key, 0o600)
            except FileExistsError:
                pass
            event = os.open(key, os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
            if not stat.S_ISFIFO(os.fstat(event).st_mode):
                os.close(event)
                raise OSError(errno.EEXIST, "not an event", key)
        _terminate_events[key] = event
    return event


def terminate(channel):
    """Signals the terminate event of `channel`: a read of that channel blocked in any thread
    (on every board: the event is the channel number's) returns at once with what it has. One
    signal ends one wait; a signal given while nobody waits ends the next one."""
    channel = _word(channel, "channel")
    with _terminate_lock:
        event = _terminate_event(channel)
        if L.WINDOWS:
            ctypes.WinDLL("kernel32").SetEvent(ctypes.c_void_p(event))
        else:
            try:
                os.write(event, b"\1")
            except BlockingIOError:
                pass   # a full pipe holds unconsumed signals already


# ---- the board ---------------------------------------------------------------------------------

class Board:
    """One board, brought up on construction (CreateDeviceInstance) and released by close()
    or at the end of a `with` block:

        with torvixe.Board(0) as board:
            board.tune(1.2e9)
    """

    def __init__(self, index=0):
        self.index = _word(index, "board index", 8)
        self._id = L.DeviceId(self.index)
        self._ref = byref(self._id)
        self._map = None
        self._open = False
        code = L.library().CreateDeviceInstance(self._ref)
        if code != 0:
            error = L.failure("CreateDeviceInstance", code)
            L.library().ReleaseDeviceInstance(self._ref)   # a failed board stays in the table
            raise error
        self._open = True

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __repr__(self):
        return f"<torvixe.Board {self.index}{'' if self._open else ' closed'}>"

    def close(self):
        """Stops the DMA engine if this object started it, and releases the board."""
        if not self._open:
            return
        if self._map is not None:
            L.library().MasterStop(self._ref)
            self._map = None
        L.library().ReleaseDeviceInstance(self._ref)
        self._open = False

    def _call(self, name, *arguments):
        if not self._open:
            raise ValueError(f"board {self.index} is closed")
        return call(name, self._ref, *arguments)

    def _get(self, name, ctype):
        value = ctype()
        self._call(name, byref(value))
        return value

    def _set_word(self, name, value, what="value", bits=32):
        self._call(name, byref(c_uint32(_word(value, what, bits))))

    # ---- identity and temperatures ----

    @property
    def device_name(self):
        return device_name(self.index)

    @property
    def slot(self):
        """The slot the board sits in, None when the IO library reports none."""
        slot = L.library().GetDeviceSlotID(self._ref)
        return None if slot == 0xFFFFFFFF else slot

    @property
    def bases(self):
        """The register-block bases, as 32-bit word offsets into the register BAR."""
        b = self._get("GetFPGABaseAddress", L.FpgaBaseAddresses)
        return Bases(b.IntBase, b.DemBase, b.PeripheralBase, b.DecBase, b.RsBase)

    @property
    def interface_version(self):
        return self._get("GetInterfaceVersion", c_uint8).value

    @property
    def lconvertor_type(self):
        return self._get("GetLConvertorType", c_uint8).value

    def _text(self, name):
        buffer = ctypes.create_string_buffer(32)   # the library writes at most 12 bytes
        self._call(name, buffer)
        return text(buffer.value)

    module_serial = property(lambda self: self._text("GetModuleSerialNumber"))
    module_version = property(lambda self: self._text("GetModuleVersion"))
    lconvertor_serial = property(lambda self: self._text("GetLConvertorSerialNumber"))
    lconvertor_version = property(lambda self: self._text("GetLConvertorVersion"))
    pcb_temperature = property(lambda self: self._get("GetPCBTemperature", c_float).value,
                               doc="Degrees Celsius.")
    fpga_temperature = property(lambda self: self._get("GetFPGATemperature", c_float).value,
                                doc="Degrees Celsius.")

    # ---- FPGAs, RAM, simulator, small controls ----

    def load_fpga(self, name, path):
        """Loads "DEM", "DEC" or "RS" from a configuration image."""
        self._call("FPGALoad", str(name).encode("ascii"), encode_path(path))

    def load_ram(self, path, mode=0):
        self._call("RAMLoad", encode_path(path), _word(mode, "mode", 8))

    def load_simulator(self, path):
        self._call("SimulatorLoad", encode_path(path))

    def simulator_control(self, word):
        self._set_word("SimulatorControl", word)

    def set_simulator_carrier(self, hz):
        self._call("SimulatorSetCarrier", byref(c_double(hz)))

    def set_simulator_rate(self, sps):
        self._call("SimulatorSetTiming", byref(c_double(sps)))

    def circuit_reset(self, word):
        self._set_word("CircuitReset", word)

    def pll_control(self, word):
        self._set_word("PLLControl", word)

    def init_lconvertor(self):
        self._call("InitLConvertorVList")

    def load_sampling_clock(self, hz):
        """Loads the sampling-clock synthesizer (sSynthLoad)."""
        self._call("sSynthLoad", byref(c_double(hz)))

    def load_adc(self, multi=False):
        self._call("ADCLoadMulti" if multi else "ADCLoad")

    def peek(self, address):
        """Reads the 32-bit register at a byte address of the register BAR."""
        access = L.PortAccess(_word(address, "address"), 0)
        self._call("_devinp", byref(access))
        return access.Value

    def poke(self, address, value):
        self._call("_devoutp", byref(L.PortAccess(_word(address, "address"), _word(value))))

    # ---- the demodulator chain ----

    @property
    def signal_type(self):
        """The signal type in force and its tables (GetSignalParameters). Set it with a label
        ("QPSK"), an index, or (modulation, code_rate, coding)."""
        p = self._get("GetSignalParameters", L.SignalParameters)
        label = SIGNAL_TYPES[p.Modulation] if p.Modulation < len(SIGNAL_TYPES) else None
        tables = {kind: text(getattr(p, "TableFile" + kind)) for kind in "MXEO"}
        return SignalType(p.Modulation, label, p.CodeRate, tables, p.LevelCode,
                          p.CarrierLockThreshold, p.TimingLockThreshold, p.BitsPerSymbol,
                          p.ModeCode)

    @signal_type.setter
    def signal_type(self, value):
        self.set_signal_type(*(value if isinstance(value, tuple) else (value,)))

    def set_signal_type(self, modulation, code_rate=0, coding=0):
        if isinstance(modulation, str):
            labels = [label.upper() for label in SIGNAL_TYPES]
            if modulation.upper() not in labels:
                raise ValueError(f"unknown signal type {modulation!r}; one of {SIGNAL_TYPES}")
            modulation = labels.index(modulation.upper())
        words = [c_uint8(_word(v, n, 8)) for v, n in
                 ((modulation, "modulation"), (code_rate, "code rate"), (coding, "coding"))]
        self._call("SetSignalType", *map(byref, words))

    def load_pack_mode(self, path):
        """Loads the packing table (the signal type's M file)."""
        self._call("LoadPackMode", encode_path(path))

    def tune(self, hz, multi=False):
        """Tunes the receiver to a carrier in Hz (SetCarrier; SetCarrierMulti leaves the NCO
        word as it was)."""
        self._call("SetCarrierMulti" if multi else "SetCarrier", byref(c_double(hz)))

    @property
    def carrier(self):
        """The carrier measured, in Hz."""
        value = c_double()
        self._call("MeasureCarrier", 0, byref(value))
        return value.value

    @property
    def symbol_rate(self):
        """The symbol rate measured, in symbols per second; setting it sets the rate."""
        value = c_double()
        self._call("MeasureTiming", 0, byref(value))
        return value.value

    @symbol_rate.setter
    def symbol_rate(self, sps):
        self._call("SetTiming", byref(c_double(sps)))

    def measure(self):
        return Measurement(self.carrier, self.symbol_rate)

    @property
    def timing_control(self):
        t = self._get("GetTimingControl", L.TimingControl)
        return TimingControl(t.FirstDecimation, t.ControlWord, t.LoopCode, t.AuxCode)

    def set_timing_mode(self, word):
        self._set_word("SetTimingMode", word)

    def load_filter(self, directory, shape=3):
        """Loads the channel filter <directory>/<shape>_<decimation>.dat for the rate in force."""
        self._call("FilterLoad", encode_path(directory), byref(c_uint8(_word(shape, "shape", 8))),
                   byref(c_uint8()))

    def iso_timing(self, first, second):
        """Sets the iso converter's output clock (ISOCVRTSetTiming)."""
        self._call("ISOCVRTSetTiming", byref(c_float(first)), byref(c_float(second)))

    @property
    def iso_loading(self):
        return self._get("ISOCVRTGetLoading", c_uint32).value

    # ---- status ----

    @property
    def status_word(self):
        """The bit-status word: carrier lock bit 0, timing lock bit 1, IQ channel bit 4,
        demodulated-data channel bit 6."""
        return self._get("GetBitStatus", c_uint32).value

    carrier_locked = property(lambda self: bool(self.status_word & CARRIER_LOCK))
    timing_locked = property(lambda self: bool(self.status_word & TIMING_LOCK))

    @property
    def locked(self):
        """Both loops locked."""
        mask = CARRIER_LOCK | TIMING_LOCK
        return self.status_word & mask == mask

    def wait_locked(self, timeout=0.5, interval=0.01):
        """Reads the status until both loops lock; False when they have not within `timeout`
        seconds."""
        deadline = time.monotonic() + timeout
        while not self.locked:
            if time.monotonic() >= deadline:
                return False
            time.sleep(interval)
        return True

    @property
    def counters(self):
        c = self._get("Counters", L.CountersRecord)
        return Counters(c.IqCount, c.DmdCount, c.AdcCount, c.IntCount)

    # ---- gains ----

    def set_first_gain(self, code):
        self._set_word("FirstGainControl", code, "code")

    def set_second_gain(self, first_word, second_word):
        words = (c_uint32 * 2)(_word(first_word, "first word"), _word(second_word, "second word"))
        self._call("SecondGainControl", words)

    @property
    def gains(self):
        """Both channels' gains: (GetGCValues, GetGCValuesMulti)."""
        def read(name):
            v = self._get(name, L.GCValues)
            return Gains(v.attenuatorCode, v.attenuation, v.firstGainCode, v.firstGainLevel,
                         v.secondGainCode, v.secondGainLevel, v.totalGain)
        return read("GetGCValues"), read("GetGCValuesMulti")

    # ---- equalizer ----

    def eq_control(self, word):
        self._set_word("EQControl", word)

    def load_eq_table(self, path):
        """Loads the equalizer's error table."""
        self._call("EQErrorTblLoad", encode_path(path))

    @property
    def eq_taps(self):
        """The taps as (first, second) pairs; setting a list of at most 13 pairs loads them."""
        first, second = (c_uint16 * EQ_TAPS)(), (c_uint16 * EQ_TAPS)()
        block = L.EqCoefficients(0, first, second)
        self._call("EQGetCoeff", byref(block))
        return [(first[i], second[i]) for i in range(min(block.Count, EQ_TAPS))]

    @eq_taps.setter
    def eq_taps(self, taps):
        taps = list(taps)
        if len(taps) > EQ_TAPS:
            raise ValueError(f"{len(taps)} taps given; the equalizer has {EQ_TAPS}")
        first, second = (c_uint16 * EQ_TAPS)(), (c_uint16 * EQ_TAPS)()
        for i, (a, b) in enumerate(taps):
            first[i] = _word(a, f"tap {i} first value", 12)
            second[i] = _word(b, f"tap {i} second value", 12)
        self._call("EQManualCoeffLoad", byref(L.EqCoefficients(len(taps), first, second)))

    # ---- demultiplexer ----

    def load_dmpx(self, path):
        self._call("DMPXLoad", encode_path(path))

    def dmpx_control(self, control1, control2, control3):
        self._call("DMPXControl", byref(L.DmpxControl(_word(control1, "control1"),
                                                      _word(control2, "control2"),
                                                      _word(control3, "control3"))))

    @property
    def dmpx_status(self):
        return self._get("DMPXStatus", c_uint32).value

    # ---- channel controls and streaming ----

    def iq_control(self, word):
        self._set_word("IQControl", word)

    def dmd_control(self, word):
        self._set_word("DMDControl", word)

    def dma3_control(self, word):
        self._set_word("DMA3CHControl", word)

    def start(self, parameter=DMA_START):
        """Programs the DMA engine with the board's buffer map and starts it."""
        buffer_map = self._get("MasterGetBuffers", L.BufferMap)
        self._call("MasterLoad", byref(buffer_map))
        self._call("MasterStart", byref(c_uint32(_word(parameter, "parameter"))))
        self._map = buffer_map

    def stop(self):
        self._map = None
        self._call("MasterStop")

    @property
    def buffer_sizes(self):
        """The size of every DMA buffer of the map, channel after channel."""
        buffer_map = self._get("MasterGetBuffers", L.BufferMap)
        if not buffer_map.Descriptors:
            return []
        descriptors = (L.BufferDescriptor * buffer_map.DescriptorCount).from_address(
            buffer_map.Descriptors)
        return [d.Size for d in descriptors]

    def read(self, channel, into, timeout_ms=2000, nbytes=None):
        """Reads channel data in order (ReadChannelData) straight into `into`, a writable
        buffer such as a numpy array or a bytearray, up to `nbytes` (default: all of it).
        Returns the bytes read: fewer than asked only when another thread ended the read with
        terminate(channel). Given a size instead of a buffer, returns a new numpy uint8 array
        of what was read. timeout_ms None waits without limit. A time-out or lost buffers
        raise Error with the bytes read so far in `bytes_read`."""
        if isinstance(into, (int, np.integer)) and not isinstance(into, bool):
            data = np.empty(_word(into, "size"), np.uint8)
            return data[:self.read(channel, data, timeout_ms)]
        array, size = _writable_bytes(into)
        if nbytes is not None:
            if _word(nbytes, "nbytes") > size:
                raise ValueError(f"nbytes {nbytes} is more than the buffer's {size} bytes")
            size = nbytes
        elif size > 0xFFFFFFFF:
            raise ValueError("one read takes at most 4294967295 bytes: give nbytes")
        timeout = 0xFFFFFFFF if timeout_ms is None else _word(timeout_ms, "timeout_ms")
        if not self._open:
            raise ValueError(f"board {self.index} is closed")
        got = c_uint32()
        code = L.library().ReadChannelData(self._ref, _word(channel, "channel"), array, size,
                                           byref(got), timeout)
        if code != 0:
            raise L.failure("ReadChannelData", code, got.value)
        return got.value

    def stream(self, channel, nbytes=None, timeout_ms=2000, count=None, into=None):
        """Iterates over the channel's data, `nbytes` at a time (default: one DMA buffer),
        each as a numpy uint8 array: a new one each time, or views of `into` when given (each
        is then good until the next). Ends after `count` arrays, or when terminate(channel)
        ends a read (with the part that read got, if any)."""
        if nbytes is None:
            sizes = self.buffer_sizes
            nbytes = sizes[0] if sizes else 65536
        if into is not None:
            into = np.frombuffer(memoryview(into).cast("B"), np.uint8)
            if into.size < nbytes:
                raise ValueError(f"into holds {into.size} bytes, less than nbytes {nbytes}")
        given = 0
        while count is None or given < count:
            data = into[:nbytes] if into is not None else np.empty(nbytes, np.uint8)
            got = self.read(channel, data, timeout_ms)
            if got:
                yield data[:got]
                given += 1
            if got < nbytes:
                return

    def terminate(self, channel):
        """terminate(channel): ends a blocked read of `channel` (see torvixe.terminate)."""
        terminate(channel)
