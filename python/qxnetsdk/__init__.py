"""qxnetsdk: Python binding of QXNetSDK, the client library for IP cameras and video
recorders.

    import qxnetsdk
    with qxnetsdk.Sdk() as sdk, sdk.login("127.0.0.1", 8000, "admin", "admin") as dev:
        print(dev.get_config(1601).body)

The library is loaded on first use through the dynamic loader (libQXNetSDK.so.1) or from
the path in the QXNETSDK_LIBRARY environment variable. Callbacks of the library become
Python callables (listeners) and queues (Session.events)."""
from ._native import ABI, LibraryNotFoundError, library_path
from .errors import (BusyError, DeviceError, FileError, InvalidArgumentError, LoginError,
                     NoDeviceError, NotInitializedError, QXNetError, TransferError)
from .events import Alarm, Answer, Event, EventCode
from .sdk import Sdk, sdk_version, set_auto_reconnect, set_log_handler
from .session import Session

try:
    from importlib.metadata import version as _dist_version

    __version__ = _dist_version("qxnetsdk")
except Exception:  # imported from a source tree, not installed
    __version__ = "unknown"

__all__ = [
    "ABI", "Alarm", "Answer", "BusyError", "DeviceError", "Event", "EventCode", "FileError",
    "InvalidArgumentError", "LibraryNotFoundError", "LoginError", "NoDeviceError",
    "NotInitializedError", "QXNetError", "Sdk", "Session", "TransferError", "library_path",
    "sdk_version", "set_auto_reconnect", "set_log_handler",
]
