"""Exceptions carrying the library's result codes."""
from __future__ import annotations

from typing import Dict, Optional, Type

#: Names of the result codes the library returns (see QXNetSDK.h).
RESULT_NAMES: Dict[int, str] = {
    0: "OK",
    -201: "NOT_INIT",
    -103: "NO_DEVICE",
    -96: "BAD_INDEX",
    -95: "BAD_XML",
    -100: "BUFFER_SMALL",
    -97: "SPAWN",
    -93: "FILE",
    -92: "BUSY",
    -1234567: "SOCKET",
    -8999996: "MISSING_ARG",
    -8999995: "BAD_ARG",
    -9001: "NOT_AVAILABLE",
}


class QXNetError(Exception):
    """A call the library refused. ``code`` is the library's result code."""

    def __init__(self, code: int, message: Optional[str] = None) -> None:
        self.code = code
        name = RESULT_NAMES.get(code, str(code))
        super().__init__(message or f"QXNetSDK result {code} ({name})")


class NotInitializedError(QXNetError):
    """The library is not initialised (-201): use it inside ``with Sdk():``."""


class NoDeviceError(QXNetError):
    """No session under this login identifier (-103), e.g. after logout."""


class BadIndexError(QXNetError):
    """A bad index, a null output or an empty slot (-96), e.g. of the discovery table."""


class NotAvailableError(QXNetError):
    """The call is not available in this build of the library (-9001)."""


class FileError(QXNetError):
    """A file is missing or cannot be opened (-93)."""


class BusyError(QXNetError):
    """A file transfer already runs on this session (-92)."""


class InvalidArgumentError(QXNetError):
    """An argument the library refused (a bad address or port at login: code 0)."""


class LoginError(QXNetError):
    """The device did not accept the login. ``code`` is the status event that said so
    (0 connect failed, 2 bad credentials, 3 authentication failed)."""


class DeviceError(QXNetError):
    """The device answered a request with a failure. ``code`` is the device's result
    (the negative flag of the answer); ``answer`` the whole answer."""

    def __init__(self, code: int, answer: object, message: Optional[str] = None) -> None:
        self.answer = answer
        super().__init__(code, message or f"the device refused the request (result {code})")


_BY_CODE: Dict[int, Type[QXNetError]] = {
    -201: NotInitializedError,
    -103: NoDeviceError,
    -96: BadIndexError,
    -9001: NotAvailableError,
    -93: FileError,
    -92: BusyError,
    -8999996: InvalidArgumentError,
    -8999995: InvalidArgumentError,
}


def check(result: int) -> int:
    """Returns ``result`` when it is not negative; raises the matching QXNetError."""
    if result < 0:
        raise _BY_CODE.get(result, QXNetError)(result)
    return result


class TransferError(QXNetError):
    """A file transfer ended in failure. ``code`` is the status event that ended it
    (16 refused, 81 a chunk lost, 53 a recorder download refused, 1 the connection
    dropped); ``text`` its text."""

    def __init__(self, code: int, text: Optional[str]) -> None:
        self.text = text
        super().__init__(code, f"transfer failed (event {code}): {text or ''}".strip())
