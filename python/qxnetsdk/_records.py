"""The C records that cross the interface (ctypes layouts of QXNetSDK.h)."""
from __future__ import annotations

import ctypes
from ctypes import c_char, c_double, c_int32, c_uint8, c_uint16, c_uint32


class UserAccount(ctypes.Structure):
    _fields_ = [("szUserName", c_char * 40), ("szPassword", c_char * 40),
                ("szGroup", c_char * 32), ("szStatus", c_char * 8)]


class UserConfig(ctypes.Structure):
    _fields_ = [("nAccountNum", c_int32), ("accounts", UserAccount * 20)]


class PortConfig(ctypes.Structure):
    _fields_ = [("nRTSPPort", c_int32), ("nHTTPPort", c_int32)]


class LanConfig(ctypes.Structure):
    _fields_ = [("szUserName", c_char * 40), ("szPassword", c_char * 40),
                ("szToken", c_char * 32), ("szMAC", c_char * 256), ("nDHCPMode", c_int32),
                ("szIP", c_char * 256), ("szNetmask", c_char * 256), ("szGateway", c_char * 256),
                ("szPreferredDNS", c_char * 256), ("szStandbyDNS", c_char * 256),
                ("nReserved", c_int32), ("nLastResult", c_int32)]


class IpcEntry(ctypes.Structure):
    """__NetSDK_IPC_ENTRYV2: one device found by discovery."""

    _fields_ = [("szUID", c_char * 32), ("szHardwareType", c_char * 128),
                ("szProductModel", c_char * 128), ("userCfg", UserConfig),
                ("portCfg", PortConfig), ("lanCfg", LanConfig), ("dwMagic", c_uint32),
                ("nVersion", c_int32), ("reserved", c_char * 32), ("szOsdStr", c_char * 256),
                ("szFirmwareVersion", c_char * 64), ("szSdkPlatform", c_char * 64)]


class FrameExtData(ctypes.Structure):
    """FRAME_EXTDATA: handed with each replayed frame."""

    _fields_ = [("frame_type", c_uint32), ("dwUser", c_uint32), ("timestamp", c_double),
                ("dwUserHigh", c_uint32), ("payload_type", c_uint32)]


class AudioParam(ctypes.Structure):
    _fields_ = [("reserved", c_uint8 * 256), ("nSampleRate", c_int32), ("nBitsPerSample", c_int32),
                ("nCodec", c_int32), ("nReserved", c_int32), ("nChannels", c_int32)]


class VideoParam(ctypes.Structure):
    _fields_ = [("paramSet1", c_uint8 * 276), ("paramSet2", c_uint8 * 256),
                ("byWriterArg", c_uint8), ("reserved", c_uint8 * 3)]


class StreamParam(ctypes.Structure):
    """NETSDK_STREAM_PARAM: stream parameters of a replay (data types 2, 3, 4)."""

    _fields_ = [("reserved", c_uint8 * 32), ("wHasVideo", c_uint16), ("wHasAudio", c_uint16),
                ("video", VideoParam), ("audio", AudioParam), ("reserved2", c_uint8 * 512)]


# The sizes the header pins: a mismatch here would read the library's records wrongly.
assert ctypes.sizeof(UserAccount) == 120
assert ctypes.sizeof(UserConfig) == 2404
assert ctypes.sizeof(LanConfig) == 1660
assert ctypes.sizeof(IpcEntry) == 4784
assert IpcEntry.lanCfg.offset == 2700 and IpcEntry.szSdkPlatform.offset == 4720
assert ctypes.sizeof(FrameExtData) == 24
assert ctypes.sizeof(StreamParam) == 1360


def text(field: bytes) -> str:
    """A fixed-width text field as str (ctypes already cuts it at the first NUL)."""
    return field.decode("utf-8", "replace")


def put_text(record: ctypes.Structure, name: str, value: str) -> None:
    """Stores ``value`` in a fixed-width text field, refusing what would not fit with
    its terminator."""
    width = getattr(type(record), name).size
    raw = value.encode()
    if len(raw) >= width:
        raise ValueError(f"{name}: {value!r} is longer than {width - 1} bytes")
    setattr(record, name, raw)
