"""Loading libQXNetSDK and declaring the C signatures (ctypes)."""
from __future__ import annotations

import ctypes
import os
import threading
from ctypes import CFUNCTYPE, POINTER, c_char_p, c_int, c_long, c_uint, c_ulong, c_void_p
from typing import Optional

from ._records import IpcEntry

#: The ABI generation this binding is written for (the library's SONAME number).
ABI = 1
ENV_LIBRARY = "QXNETSDK_LIBRARY"

# long (*)(long loginId, long code, char* data, void* user): data stays a raw pointer,
# since for alarms it points at a record, not at text.
StatusCallback = CFUNCTYPE(c_long, c_long, c_long, c_void_p, c_void_p)
AuxCallback = CFUNCTYPE(c_long, c_long, c_long, c_void_p, c_void_p)
LogCallback = CFUNCTYPE(None, c_uint, c_char_p)
# long (*)(long code, long index, __NetSDK_IPC_ENTRYV2* entry, void* user)
SearchCallback = CFUNCTYPE(c_long, c_long, c_long, c_void_p, c_void_p)
# long (*)(long loginId, unsigned long type, unsigned char* buffer, unsigned long length,
#          FRAME_EXTDATA* ext)
ReplayCallback = CFUNCTYPE(c_long, c_long, c_ulong, c_void_p, c_ulong, c_void_p)

# name: (result type, argument types)
_SIGNATURES = {
    "QXNet_init": (c_long, []),
    "QXNet_initEx": (c_long, [c_int]),
    "QXNet_Free": (c_long, []),
    "QXNet_GetSdkVersion": (c_char_p, []),
    "QXNet_SetfcLogCallBackEx": (c_long, [LogCallback, c_int]),
    "QXNet_SetAutoReconnect": (c_long, [c_int]),
    "QXNet_LoginDev": (c_long, [c_char_p, c_ulong, c_char_p, c_char_p, c_int]),
    "QXNet_LogOutDev": (c_long, [c_long]),
    "QXNet_SetStatusEventCallBack": (c_long, [StatusCallback, c_void_p]),
    "QXNet_SetAuxResponseCallBack": (c_long, [AuxCallback, c_void_p]),
    "QXNet_Loc_GetDVRConfig": (c_long, [c_long, c_ulong, c_long, c_char_p, c_ulong, POINTER(c_ulong)]),
    "QXNet_Loc_SetDVRConfig": (c_long, [c_long, c_ulong, c_long, c_char_p, c_ulong]),
    "QXNet_Loc_SystemControl": (c_long, [c_long, c_ulong, c_ulong, c_char_p]),
    "QXNet_Loc_GetUserData": (c_long, [c_long, c_char_p, POINTER(c_int)]),
    "QXNet_Loc_SetUserData": (c_long, [c_long, c_char_p, c_int]),
    "QXNet_Loc_RestoreConfig": (c_long, [c_long]),
    "QXNet_Loc_RebootDVR": (c_long, [c_long]),
    "QXNet_Loc_Upgrade": (c_long, [c_long, c_char_p]),
    "QXNet_Loc_GetUpgradeProgress": (c_long, [c_long]),
    "QXNet_Loc_GetUpgradeState": (c_long, [c_long]),
    "QXNet_Loc_CloseUpgradeHandle": (c_long, [c_long]),
    "QXNet_Loc_GetConfigFile": (c_long, [c_long, c_char_p]),
    "QXNet_Loc_SetConfigFile": (c_long, [c_long, c_char_p]),
    # recorder
    "QXNet_Loc_SearchNVRRecByTime": (c_long, [c_long, c_long, c_char_p]),
    "QXNet_Loc_NVRRecordDownload": (c_long, [c_long, c_long, c_char_p, c_char_p, c_char_p]),
    "QXNet_Loc_NVRRecordDownloadStop": (c_long, [c_long, c_long]),
    "QXNet_Loc_NVRReplayByTime": (c_long, [c_long, c_long, c_char_p]),
    "QXNet_Loc_ControlNVRReplay": (c_long, [c_long, c_long, c_long, c_long, c_char_p]),
    "QXNet_Loc_SetReplayDataCallBack": (c_long, [ReplayCallback, c_void_p]),
    # discovery and host network facts
    "QXNet_Loc_SetSearchStatusCallBack": (c_long, [SearchCallback, c_void_p]),
    "QXNet_StartSearchDev": (c_long, []),
    "QXNet_StopSearchDev": (c_long, []),
    "QXNet_GetSearchIPCCount": (c_long, []),
    "QXNet_Loc_GetIPCInfo": (c_long, [c_long, POINTER(IpcEntry)]),
    "QXNet_Loc_GetIPCInfoXML": (c_long, [c_long, c_char_p, c_int]),
    "QXNet_Loc_ModifyIPC": (c_long, [c_long, POINTER(IpcEntry)]),
    "QXNet_Loc_ModifyIPCXML": (c_long, [c_long, c_char_p]),
    "QXNet_Loc_RestoreIPC": (c_long, [c_long, POINTER(IpcEntry)]),
    "QXNet_Loc_GetOneIPAddress": (c_long, [c_char_p, c_int]),
    "QXNet_Loc_GetNetworkParam": (c_long, [c_long, c_char_p, c_int]),
}


class LibraryNotFoundError(OSError):
    """libQXNetSDK could not be loaded."""


_lock = threading.Lock()
_lib: Optional[ctypes.CDLL] = None


def _open() -> ctypes.CDLL:
    explicit = os.environ.get(ENV_LIBRARY)
    # The loader's own search (LD_LIBRARY_PATH, ld.so.cache, the default folders) finds
    # an installed library by its SONAME.
    names = [explicit] if explicit else [f"libQXNetSDK.so.{ABI}"]
    errors = []
    for name in names:
        try:
            return ctypes.CDLL(name)
        except OSError as e:
            errors.append(str(e))
    where = f"{ENV_LIBRARY}={explicit}" if explicit else "the loader path"
    raise LibraryNotFoundError(f"QXNetSDK not found through {where}: " + "; ".join(errors))


def library() -> ctypes.CDLL:
    """The loaded library with its signatures declared (loaded on first use)."""
    global _lib
    with _lock:
        if _lib is None:
            lib = _open()
            for name, (restype, argtypes) in _SIGNATURES.items():
                fn = getattr(lib, name)
                fn.restype = restype
                fn.argtypes = argtypes
            _lib = lib
        return _lib


def library_path() -> str:
    """The file the library was loaded from."""
    lib = library()
    info = _DlInfo()
    libdl = ctypes.CDLL(None)
    libdl.dladdr.argtypes = [c_void_p, POINTER(_DlInfo)]
    if libdl.dladdr(ctypes.cast(lib.QXNet_GetSdkVersion, c_void_p), ctypes.byref(info)) and info.dli_fname:
        return os.path.realpath(info.dli_fname.decode())
    return lib._name


class _DlInfo(ctypes.Structure):
    _fields_ = [("dli_fname", c_char_p), ("dli_fbase", c_void_p), ("dli_sname", c_char_p),
                ("dli_saddr", c_void_p)]
