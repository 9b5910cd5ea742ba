"""qxnetsdk: Python binding of QXNetSDK, the client library for IP cameras and video
recorders.

    import qxnetsdk
    with qxnetsdk.Sdk() as sdk, sdk.login("127.0.0.1", 8000, "admin", "admin") as dev:
        print(dev.get_config(1601).body)

The library is loaded on first use through the dynamic loader (libQXNetSDK.so.1) or from
the path in the QXNETSDK_LIBRARY environment variable. Callbacks of the library become
Python callables (listeners) and queues (Session.events)."""
from ._native import ABI, LibraryNotFoundError, library_path
from .discovery import Account, Discovery, FoundDevice, SearchCode, SearchEvent
from .download import Download
from .errors import (BadIndexError, BusyError, DeviceError, FileError, InvalidArgumentError,
                     LoginError, NoDeviceError, NotAvailableError, NotInitializedError,
                     QXNetError, TransferError)
from .events import Alarm, Answer, Event, EventCode
from .recorder import Recording
from .replay import Replay, ReplayAction, ReplayFrame, StreamParams
from .sdk import Sdk, sdk_version, set_auto_reconnect, set_log_handler
from .session import Session

try:
    from importlib.metadata import version as _dist_version

    __version__ = _dist_version("qxnetsdk")
except Exception:  # imported from a source tree, not installed
    __version__ = "unknown"

__all__ = [
    "ABI", "Account", "Alarm", "Answer", "BadIndexError", "BusyError", "DeviceError",
    "Discovery", "Download", "Event", "EventCode", "FileError", "FoundDevice",
    "InvalidArgumentError", "LibraryNotFoundError", "LoginError", "NoDeviceError",
    "NotAvailableError", "NotInitializedError", "QXNetError", "Recording", "Replay",
    "ReplayAction", "ReplayFrame", "Sdk", "SearchCode", "SearchEvent", "Session",
    "StreamParams", "TransferError", "library_path", "sdk_version", "set_auto_reconnect",
    "set_log_handler",
]
