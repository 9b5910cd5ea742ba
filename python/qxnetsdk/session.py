"""A logged-in device (Session): requests, transfers and events."""
from __future__ import annotations

import os
import queue
import time
from typing import TYPE_CHECKING, Callable, Iterable, Iterator, Optional, Union

from . import _native
from ._hub import Hub
from .errors import DeviceError, LoginError, QXNetError, TransferError, check
from .events import Answer, Event, EventCode
from .recorder import RecorderMixin
from .replay import ReplayData

if TYPE_CHECKING:
    from .sdk import Sdk

PathLike = Union[str, "os.PathLike[str]"]
#: progress(bytes_sent, file_size)
ProgressFn = Callable[[int, int], None]

_LOGIN_FAILURES = (EventCode.CONNECT_FAILED, EventCode.BAD_CREDENTIALS, EventCode.AUTH_FAILED)
_UPGRADE_FAILURES = (EventCode.UPGRADE_FAILED, EventCode.CFGFILE_SET_FAILED, EventCode.SOCKET_ERROR)

# Device command numbers of the requests that have no export of their own.
CMD_SET_USER_DATA = 14033
CMD_GET_USER_DATA = 14034
CMD_REBOOT = 14008
CMD_RESTORE_CONFIG = 14011


def _get(q: "queue.Queue", deadline: float):
    """The next item, or TimeoutError once the deadline has passed."""
    try:
        return q.get(timeout=max(0.0, deadline - time.monotonic()))
    except queue.Empty:
        raise TimeoutError("no answer from the device in time") from None


class Session(RecorderMixin):
    """A device session made by :meth:`Sdk.login`; ``with`` logs it out on exit.

    Requests wait for the device's answer and return it as an Answer (raising
    DeviceError when the device refused). Events arrive in order through
    :meth:`events` (every event since login, kept up to 10,000) or as calls of the
    listeners added with :meth:`add_listener` (on the library's thread). The recorder
    calls (search, download, replay) are described in :class:`RecorderMixin`."""

    def __init__(self, sdk: "Sdk", login_id: int) -> None:
        self._sdk = sdk
        self.login_id = login_id
        self._events: Hub[Event] = Hub()
        self._answers: Hub[Answer] = Hub()
        self._media: Hub[ReplayData] = Hub()
        self._inbox = self._events.subscribe(maxsize=10000)
        self._closed = False

    def __enter__(self) -> "Session":
        return self

    def __exit__(self, *exc: object) -> None:
        self.logout()

    def __repr__(self) -> str:
        return f"<qxnetsdk.Session {self.login_id:#x}{' closed' if self._closed else ''}>"

    def logout(self) -> None:
        """Stops the session and closes its connection. Safe to call twice; not from a
        listener of this session (the library refuses that)."""
        if self._closed:
            return
        check(_native.library().QXNet_LogOutDev(self.login_id))
        self._closed = True
        self._sdk._forget(self.login_id)

    # ---- events -------------------------------------------------------------------
    def add_listener(self, fn: Callable[[Event], None]) -> None:
        """Calls ``fn(event)`` for each event of this session, on the library's thread."""
        self._events.add_listener(fn)

    def remove_listener(self, fn: Callable[[Event], None]) -> None:
        self._events.remove_listener(fn)

    def events(self, timeout: Optional[float] = None) -> Iterator[Event]:
        """Yields the session's events in order, starting with the oldest not yet taken;
        ends when none arrives within ``timeout`` seconds (never, with None)."""
        while True:
            try:
                yield self._inbox.get(timeout=timeout)
            except queue.Empty:
                return

    def wait_event(self, codes: Iterable[int], timeout: float = 10.0) -> Event:
        """The first event from now on whose code is in ``codes``; TimeoutError if none."""
        wanted = set(codes)
        sub = self._events.subscribe()
        try:
            deadline = time.monotonic() + timeout
            while True:
                ev = _get(sub, deadline)
                if ev.code in wanted:
                    return ev
        finally:
            self._events.unsubscribe(sub)

    def _await_login(self, sub: "queue.Queue[Event]", timeout: float) -> None:
        deadline = time.monotonic() + timeout
        while True:
            ev = _get(sub, deadline)
            if ev.code == EventCode.AUTHENTICATED:
                return
            if ev.code in _LOGIN_FAILURES:
                raise LoginError(int(ev.code), f"login refused: {ev.name} {ev.text or ''}".strip())

    # ---- requests -----------------------------------------------------------------
    def _request(self, start: Callable[[], int], command: int, timeout: float) -> Answer:
        sub = self._answers.subscribe()
        try:
            check(start())
            deadline = time.monotonic() + timeout
            while True:
                answer = _get(sub, deadline)
                if answer.command == command & 0xFFFFFF:
                    if not answer.ok:
                        raise DeviceError(answer.flag, answer)
                    return answer
        finally:
            self._answers.unsubscribe(sub)

    def get_config(self, command: int, body: str = "", channel: int = 0,
                   timeout: float = 10.0) -> Answer:
        """Configuration request ``command`` (with an optional request body); the answer
        carries the setting in its body."""
        lib = _native.library()
        return self._request(lambda: lib.QXNet_Loc_GetDVRConfig(
            self.login_id, command, channel, body.encode(), 0, None), command, timeout)

    def set_config(self, command: int, body: str, channel: int = 0,
                   timeout: float = 10.0) -> Answer:
        """Writes configuration ``command`` with ``body`` (XML text)."""
        lib = _native.library()
        return self._request(lambda: lib.QXNet_Loc_SetDVRConfig(
            self.login_id, command, channel, body.encode(), 0), command, timeout)

    def system_control(self, command: int, param: str = "", sub_command: int = 0,
                       timeout: float = 10.0) -> Answer:
        """System command (e.g. 14020 for the capability text)."""
        lib = _native.library()
        return self._request(lambda: lib.QXNet_Loc_SystemControl(
            self.login_id, command, sub_command, param.encode()), command, timeout)

    def set_user_data(self, data: bytes, timeout: float = 10.0) -> Answer:
        """Stores the application's bytes on the device."""
        lib = _native.library()
        buf = bytes(data) + b"\0"  # the library writes a terminator after the data
        return self._request(lambda: lib.QXNet_Loc_SetUserData(
            self.login_id, buf, len(data)), CMD_SET_USER_DATA, timeout)

    def get_user_data(self, timeout: float = 10.0) -> Answer:
        """The application's bytes stored on the device, as the device's answer."""
        lib = _native.library()
        return self._request(lambda: lib.QXNet_Loc_GetUserData(self.login_id, None, None),
                             CMD_GET_USER_DATA, timeout)

    def restore_config(self, timeout: float = 10.0) -> Answer:
        """Restores the device's factory configuration."""
        lib = _native.library()
        return self._request(lambda: lib.QXNet_Loc_RestoreConfig(self.login_id),
                             CMD_RESTORE_CONFIG, timeout)

    def reboot(self, timeout: float = 10.0) -> Answer:
        """Reboots the device; the session reconnects when it is back (if enabled)."""
        lib = _native.library()
        return self._request(lambda: lib.QXNet_Loc_RebootDVR(self.login_id), CMD_REBOOT, timeout)

    # ---- firmware upgrade ---------------------------------------------------------
    def upgrade(self, path: PathLike, progress: Optional[ProgressFn] = None,
                timeout: float = 600.0) -> None:
        """Uploads a firmware file (readable and writable) and waits for the end.
        ``progress(sent, size)`` is called on this thread as the device takes chunks.
        Raises FileError, BusyError, TransferError or TimeoutError."""
        sub = self._events.subscribe()
        try:
            check(_native.library().QXNet_Loc_Upgrade(self.login_id, os.fsencode(path)))
            deadline = time.monotonic() + timeout
            while True:
                ev = _get(sub, deadline)
                if ev.code == EventCode.UPGRADE_PROGRESS and progress is not None:
                    sent, size = ev.attribute("start"), ev.attribute("filesize")
                    if sent is not None and size is not None:
                        progress(int(sent), int(size))
                elif ev.code == EventCode.UPGRADE_FINISHED:
                    return
                elif ev.code in _UPGRADE_FAILURES:
                    raise TransferError(int(ev.code), ev.text)
        finally:
            self._events.unsubscribe(sub)

    @property
    def upgrade_running(self) -> bool:
        """Whether an upload runs on this session."""
        return _native.library().QXNet_Loc_GetUpgradeState(self.login_id) == 0

    @property
    def upgrade_progress(self) -> int:
        """Percent sent of the running upload (0 when none runs)."""
        return check(_native.library().QXNet_Loc_GetUpgradeProgress(self.login_id))

    def cancel_upgrade(self) -> None:
        """Cancels the running upload."""
        check(_native.library().QXNet_Loc_CloseUpgradeHandle(self.login_id))
