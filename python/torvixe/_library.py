"""The torvixe library through ctypes: where it is found, the records that cross its boundary,
the 64 exports with their argument types, and the one way a failing result becomes an Error."""

import ctypes
import os
import sys
import threading
from ctypes import (POINTER, Structure, c_char, c_char_p, c_double, c_float, c_int32, c_uint8,
                    c_uint16, c_uint32, c_uint64, c_void_p)
from pathlib import Path

WINDOWS = sys.platform == "win32"
LIBRARY_NAME = "torvixe.dll" if WINDOWS else "libtorvixe.so.1"
BOARD_LIBRARY_NAME = "zarimio.dll" if WINDOWS else "libzarimio.so"


class Error(Exception):
    """A non-zero result of the library: the code, the export that gave it, and its text."""

    def __init__(self, code, function, message, bytes_read=None):
        super().__init__(f"{function} returned {code}: {message}")
        self.code = code
        self.function = function
        self.message = message
        # ReadChannelData only: what arrived before the failure.
        self.bytes_read = bytes_read


Error.__module__ = "torvixe"


# ---- records, packed as in torvixe.h --------------------------------------------------------

class _Packed(Structure):
    _pack_ = 1


class DeviceId(_Packed):
    _fields_ = [("Index", c_uint8)]


class BufferMap(_Packed):
    _fields_ = [("DescriptorCount", c_uint32), ("Descriptors", c_void_p),
                ("Reserved", c_uint8 * 8)]


class BufferDescriptor(_Packed):
    _fields_ = [("Size", c_uint32), ("Address", c_void_p), ("Reserved1", c_uint8 * 8),
                ("BusAddress", c_uint32), ("Reserved2", c_uint8 * 28)]


class InterruptRecord(_Packed):
    _fields_ = [("Reserved0", c_uint32), ("Channels", c_void_p), ("Reserved", c_uint8 * 8)]


class GCValues(_Packed):
    _fields_ = [("attenuatorCode", c_uint32), ("firstGainCode", c_uint32),
                ("reserved", c_uint32), ("secondGainCode", c_uint32),
                ("attenuation", c_double), ("firstGainLevel", c_double),
                ("totalGain", c_double), ("secondGainLevel", c_double)]


class SignalParameters(_Packed):
    _fields_ = [("Modulation", c_uint8), ("CodeRate", c_uint8), ("Reserved", c_uint8),
                ("TableFileM", c_char * 32), ("TableFileX", c_char * 32),
                ("TableFileE", c_char * 32), ("TableFileO", c_char * 32),
                ("LevelCode", c_uint32), ("CarrierLockThreshold", c_int32),
                ("TimingLockThreshold", c_uint32), ("BitsPerSymbol", c_uint8),
                ("ModeCode", c_uint8)]


class TimingControl(_Packed):
    _fields_ = [("FirstDecimation", c_uint32), ("ControlWord", c_uint32),
                ("LoopCode", c_uint32), ("AuxCode", c_uint32)]


class EqCoefficients(_Packed):
    _fields_ = [("Count", c_uint32), ("FirstValues", POINTER(c_uint16)),
                ("SecondValues", POINTER(c_uint16))]


class DmpxControl(_Packed):
    _fields_ = [("Control1", c_uint32), ("Control2", c_uint32), ("Control3", c_uint32)]


class CountersRecord(_Packed):
    _fields_ = [("IqCount", c_uint32), ("DmdCount", c_uint32), ("AdcCount", c_uint32),
                ("IntCount", c_uint32)]


class FpgaBaseAddresses(_Packed):
    _fields_ = [("IntBase", c_uint32), ("DemBase", c_uint32), ("PeripheralBase", c_uint32),
                ("DecBase", c_uint32), ("RsBase", c_uint32), ("Initialized", c_uint8),
                ("Reserved", c_uint8 * 3)]


class PortAccess(_Packed):
    _fields_ = [("Address", c_uint32), ("Value", c_uint32)]


# A record of the wrong size would hand the library a buffer it writes past.
for _record, _size in ((DeviceId, 1), (BufferMap, 20), (BufferDescriptor, 52),
                       (InterruptRecord, 20), (GCValues, 48), (SignalParameters, 145),
                       (TimingControl, 16), (EqCoefficients, 20), (DmpxControl, 12),
                       (CountersRecord, 16), (FpgaBaseAddresses, 24), (PortAccess, 8)):
    assert ctypes.sizeof(_record) == _size, (_record.__name__, ctypes.sizeof(_record))

# ---- the exports ----------------------------------------------------------------------------

_ID = POINTER(DeviceId)
_U8, _U32, _DOUBLE, _FLOAT = POINTER(c_uint8), POINTER(c_uint32), POINTER(c_double), POINTER(c_float)
_TEXT_OUT = POINTER(c_char)

# name: (result type, argument types after nothing), as declared in torvixe.h.
EXPORTS = {
    "CreateDeviceInstance": (c_int32, [_ID]),
    "ReleaseDeviceInstance": (None, [_ID]),
    "GetErrorMessage": (c_char_p, []),
    "DeviceSupportedCount": (c_uint32, []),
    "GetFullDeviceName": (c_char_p, [_ID]),
    "GetDeviceSlotID": (c_uint32, [_ID]),
    "GetFPGABaseAddress": (c_int32, [_ID, POINTER(FpgaBaseAddresses)]),
    "_devinp": (c_int32, [_ID, POINTER(PortAccess)]),
    "_devoutp": (c_int32, [_ID, POINTER(PortAccess)]),
    "GetInterfaceVersion": (c_int32, [_ID, _U8]),
    "CircuitReset": (c_int32, [_ID, _U32]),
    "PLLControl": (c_int32, [_ID, _U32]),
    "Counters": (c_int32, [_ID, POINTER(CountersRecord)]),
    "FPGALoad": (c_int32, [_ID, c_char_p, c_char_p]),
    "GetModuleSerialNumber": (c_int32, [_ID, _TEXT_OUT]),
    "GetModuleVersion": (c_int32, [_ID, _TEXT_OUT]),
    "GetLConvertorSerialNumber": (c_int32, [_ID, _TEXT_OUT]),
    "GetLConvertorVersion": (c_int32, [_ID, _TEXT_OUT]),
    "GetPCBTemperature": (c_int32, [_ID, _FLOAT]),
    "GetFPGATemperature": (c_int32, [_ID, _FLOAT]),
    "RAMLoad": (c_int32, [_ID, c_char_p, c_uint8]),
    "SimulatorLoad": (c_int32, [_ID, c_char_p]),
    "SimulatorControl": (c_int32, [_ID, _U32]),
    "SimulatorSetCarrier": (c_int32, [_ID, _DOUBLE]),
    "SimulatorSetTiming": (c_int32, [_ID, _DOUBLE]),
    "MasterGetBuffers": (c_int32, [_ID, POINTER(BufferMap)]),
    "MasterLoad": (c_int32, [_ID, POINTER(BufferMap)]),
    "MasterStart": (c_int32, [_ID, _U32]),
    "MasterStop": (c_int32, [_ID]),
    "MasterGetInterruptInfo": (c_int32, [_ID, POINTER(InterruptRecord)]),
    "ReadChannelData": (c_int32, [_ID, c_uint32, c_void_p, c_uint32, _U32, c_uint32]),
    "IQControl": (c_int32, [_ID, _U32]),
    "DMDControl": (c_int32, [_ID, _U32]),
    "DMA3CHControl": (c_int32, [_ID, _U32]),
    "ISOCVRTSetTiming": (c_int32, [_ID, _FLOAT, _FLOAT]),
    "ISOCVRTGetLoading": (c_int32, [_ID, _U32]),
    "GetLConvertorType": (c_int32, [_ID, _U8]),
    "InitLConvertorVList": (c_int32, [_ID]),
    "sSynthLoad": (c_int32, [_ID, _DOUBLE]),
    "FirstGainControl": (c_int32, [_ID, _U32]),
    "SecondGainControl": (c_int32, [_ID, _U32]),
    "GetGCValues": (c_int32, [_ID, POINTER(GCValues)]),
    "GetGCValuesMulti": (c_int32, [_ID, POINTER(GCValues)]),
    "ADCLoad": (c_int32, [_ID]),
    "ADCLoadMulti": (c_int32, [_ID]),
    "SetCarrier": (c_int32, [_ID, _DOUBLE]),
    "SetCarrierMulti": (c_int32, [_ID, _DOUBLE]),
    "MeasureCarrier": (c_int32, [_ID, c_uint64, _DOUBLE]),
    "SetTiming": (c_int32, [_ID, _DOUBLE]),
    "GetTimingControl": (c_int32, [_ID, POINTER(TimingControl)]),
    "MeasureTiming": (c_int32, [_ID, c_uint64, _DOUBLE]),
    "SetTimingMode": (c_int32, [_ID, _U32]),
    "FilterLoad": (c_int32, [_ID, c_char_p, _U8, c_void_p]),
    "EQControl": (c_int32, [_ID, _U32]),
    "EQErrorTblLoad": (c_int32, [_ID, c_char_p]),
    "EQGetCoeff": (c_int32, [_ID, POINTER(EqCoefficients)]),
    "EQManualCoeffLoad": (c_int32, [_ID, POINTER(EqCoefficients)]),
    "SetSignalType": (c_int32, [_ID, _U8, _U8, _U8]),
    "GetSignalParameters": (c_int32, [_ID, POINTER(SignalParameters)]),
    "LoadPackMode": (c_int32, [_ID, c_char_p]),
    "DMPXLoad": (c_int32, [_ID, c_char_p]),
    "DMPXControl": (c_int32, [_ID, POINTER(DmpxControl)]),
    "DMPXStatus": (c_int32, [_ID, _U32]),
    "GetBitStatus": (c_int32, [_ID, _U32]),
}

# Results these exports return without writing the library's text: the text there belongs to an
# earlier failure, so the error says what the result means instead.
SILENT_RESULTS = {
    ("ReadChannelData", -1): "the ring overran while waiting; buffers were lost",
    ("ReadChannelData", -2): "the reader was a whole ring behind when it came; buffers were lost",
    ("ReadChannelData", -4): "timed out waiting for data",
    ("ReadChannelData", 3): "the channel's events or buffer map could not be set up",
}
# Exports that return their module's (or the register access's) own code with no text, and the
# codes of theirs that do come with one (the null path; a device that is not open).
SILENT_EXPORTS = {"DMPXLoad": {-1}, "SimulatorLoad": {-1}, "CircuitReset": {-1},
                  "_devinp": {1, 2}, "_devoutp": {1, 2}}


def text(raw):
    """A text of the library (Windows-1251 bytes) as str."""
    return raw.decode("cp1251", errors="replace") if raw else ""


def encode_path(path):
    """A path as the library takes it: the file system's bytes; the ANSI code page on Windows."""
    path = os.fspath(path)
    if isinstance(path, bytes):
        return path
    return path.encode("mbcs") if WINDOWS else os.fsencode(path)


# ---- finding and loading ----------------------------------------------------------------------

def _candidates():
    """Where the library may be: $TORVIXE_LIBRARY (the file, or the directory holding it);
    beside the installed package (<prefix>/lib/python3/dist-packages/torvixe finds
    <prefix>/lib/libtorvixe.so.1, or <prefix>/bin/torvixe.dll on Windows); then the system
    loader's own search by plain name."""
    named = os.environ.get("TORVIXE_LIBRARY")
    if named:
        named = Path(named).absolute()
        return [str(named / LIBRARY_NAME if named.is_dir() else named)]
    package = Path(__file__).resolve().parent
    found = []
    if len(package.parents) > 3:
        beside = package.parents[3] / ("bin" if WINDOWS else "lib") / LIBRARY_NAME
        if beside.exists():
            found.append(str(beside))
    return found + [LIBRARY_NAME]


_lock = threading.Lock()
_loaded = None


def _declare(handle):
    for name, (result, arguments) in EXPORTS.items():
        function = getattr(handle, name)
        function.restype = result
        function.argtypes = arguments


def library():
    """The loaded library (ctypes), its 64 exports declared. Loaded once, on first use."""
    global _loaded
    with _lock:
        if _loaded is None:
            failures = []
            # A bare name goes to the system loader's search; a path is loaded as it is.
            for name in _candidates():
                try:
                    handle = ctypes.CDLL(name)
                except OSError as error:
                    failures.append(f"{name}: {error}")
                    continue
                _declare(handle)
                _loaded = (handle, name)
                # Windows looks for zarimio.dll beside the program (python.exe), not beside
                # torvixe.dll: one already loaded is the one it takes, so an IO library that
                # sits beside the library is loaded first.
                beside = Path(name).parent / BOARD_LIBRARY_NAME
                if WINDOWS and os.path.isabs(name) and beside.exists():
                    _loaded += (ctypes.CDLL(str(beside)),)
                break
            else:
                raise OSError("the torvixe library was not found (set TORVIXE_LIBRARY to "
                              "its file or directory): " + "; ".join(failures))
        return _loaded[0]


def library_path():
    """The file or name the library was loaded from."""
    library()
    return _loaded[1]


def message():
    """GetErrorMessage() as str, its trailing line end dropped."""
    return text(library().GetErrorMessage()).rstrip("\r\n")


def call(name, *arguments):
    """Calls an export; any non-zero result raises Error with the code and the text."""
    code = getattr(library(), name)(*arguments)
    if code != 0:
        raise failure(name, code)
    return code


def failure(name, code, bytes_read=None):
    meaning = SILENT_RESULTS.get((name, code))
    if meaning is None and code not in SILENT_EXPORTS.get(name, {code}):
        meaning = "the library gives no text for this result"
    return Error(code, name, meaning or message(), bytes_read)
