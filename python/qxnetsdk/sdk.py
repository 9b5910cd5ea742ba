"""The library (Sdk) and device sessions (Session)."""
from __future__ import annotations

import ctypes
import threading
from ctypes import c_int
from typing import Callable, Dict, List, Optional

from . import _native
from ._hub import Hub
from .errors import InvalidArgumentError, QXNetError, check
from .events import Answer, Event, make_event
from .discovery import (NETWORK_PARAMS, Discovery, SearchEvent, get_network_param,
                        get_one_ip_address, make_search_event)
from .replay import make_replay_data

# The library is process-wide: one Sdk is open at a time and receives every callback.
_active: Optional["Sdk"] = None
_user_key = c_int(0)  # registration key (the callbacks' user pointer)


def _on_status(login_id: int, code: int, data: Optional[int], user: Optional[int]) -> int:
    sdk = _active
    if sdk is not None:
        sdk._dispatch_event(make_event(login_id, code, data))
    return 0


def _on_answer(login_id: int, code: int, data: Optional[int], user: Optional[int]) -> int:
    sdk = _active
    if sdk is not None:
        sdk._dispatch_answer(login_id, code, data)
    return 0


def _on_replay(login_id: int, kind: int, buffer: Optional[int], length: int,
               ext: Optional[int]) -> int:
    sdk = _active
    if sdk is not None:
        sdk._dispatch_replay(login_id, kind, buffer, length, ext)
    return 0


def _on_search(code: int, index: int, entry: Optional[int], user: Optional[int]) -> int:
    sdk = _active
    if sdk is not None:
        sdk._search.publish(make_search_event(code, index, entry))
    return 0


# Created once and never freed: the library may call them until QXNet_Free returns.
_status_cb = _native.StatusCallback(_on_status)
_answer_cb = _native.AuxCallback(_on_answer)
_replay_cb = _native.ReplayCallback(_on_replay)
_search_cb = _native.SearchCallback(_on_search)
_log_handler: Optional[Callable[[int, str], None]] = None


def _on_log(level: int, line: Optional[bytes]) -> None:
    handler = _log_handler
    if handler is not None and line is not None:
        try:
            handler(level, line.decode("utf-8", "replace"))
        except Exception:  # never let an exception reach the library's thread
            pass


_log_cb = _native.LogCallback(_on_log)


def sdk_version() -> str:
    """The library's version text, e.g. ``SDK_PC_V2.8.5_20171109_001``."""
    return _native.library().QXNet_GetSdkVersion().decode()


def set_auto_reconnect(enabled: bool) -> None:
    """Whether sessions reconnect by themselves after a drop (default: on)."""
    _native.library().QXNet_SetAutoReconnect(1 if enabled else 0)


def set_log_handler(handler: Optional[Callable[[int, str], None]], level: int = 3) -> None:
    """Sends the library's log lines of levels 0..level to ``handler(level, line)``,
    called on whichever library thread logs. A negative level or a None handler turns
    logging off."""
    global _log_handler
    _log_handler = handler
    _native.library().QXNet_SetfcLogCallBackEx(_log_cb, level if handler is not None else -1)


class Sdk:
    """The initialised library: ``with Sdk() as sdk:`` calls QXNet_init on entry and
    logs out every session and calls QXNet_Free on exit.

    Listeners added with :meth:`add_listener` are called with every Event of every
    session, on the library's thread of that session: keep them short."""

    def __init__(self, net_type: Optional[int] = None) -> None:
        self._net_type = net_type
        self._lock = threading.RLock()
        self._sessions: Dict[int, Session] = {}
        self._early: Dict[int, List[Event]] = {}
        self._events: Hub[Event] = Hub()
        self._search: Hub[SearchEvent] = Hub()
        self._open = False

    def open(self) -> "Sdk":
        global _active
        lib = _native.library()
        with self._lock:
            if _active is not None:
                raise RuntimeError("another Sdk is open: the library is process-wide")
            check(lib.QXNet_initEx(self._net_type) if self._net_type is not None else lib.QXNet_init())
            _active = self
            self._open = True
            check(lib.QXNet_SetStatusEventCallBack(_status_cb, _user_ptr()))
            check(lib.QXNet_SetAuxResponseCallBack(_answer_cb, _user_ptr()))
            check(lib.QXNet_Loc_SetReplayDataCallBack(_replay_cb, _user_ptr()))
            check(lib.QXNet_Loc_SetSearchStatusCallBack(_search_cb, _user_ptr()))
        return self

    def close(self) -> None:
        """Logs out every session and frees the library. Safe to call twice."""
        global _active
        with self._lock:
            if not self._open:
                return
            sessions = list(self._sessions.values())
        for s in sessions:
            s.logout()
        with self._lock:
            _native.library().QXNet_Free()
            self._open = False
            self._early.clear()
            _active = None

    def __enter__(self) -> "Sdk":
        return self.open()

    def __exit__(self, *exc: object) -> None:
        self.close()

    def add_listener(self, fn: Callable[[Event], None]) -> None:
        self._events.add_listener(fn)

    def remove_listener(self, fn: Callable[[Event], None]) -> None:
        self._events.remove_listener(fn)

    @property
    def sessions(self) -> List["Session"]:
        with self._lock:
            return list(self._sessions.values())

    def login(self, host: str, port: int, user: str, password: str, *,
              timeout: Optional[float] = 10.0) -> "Session":
        """Logs in to a device and waits until it accepts (``timeout=None``: return at
        once and follow the session's events). Raises LoginError when the device refuses
        or cannot be reached, TimeoutError when it does not answer in time."""
        lib = _native.library()
        if not self._open:
            raise QXNetError(-201, "Sdk is not open")
        login_id = lib.QXNet_LoginDev(host.encode(), port, user.encode(), password.encode(), 0)
        if login_id == 0:
            raise InvalidArgumentError(0, f"bad device address or port: {host}:{port}")
        check(login_id)
        with self._lock:
            session = Session(self, login_id)
            waiter = session._events.subscribe()
            self._sessions[login_id] = session
            for ev in self._early.pop(login_id, []):
                session._events.publish(ev)
        try:
            if timeout is not None:
                session._await_login(waiter, timeout)
        except BaseException:
            session.logout()
            raise
        finally:
            session._events.unsubscribe(waiter)
        return session

    # ---- discovery and host network facts ----------------------------------------------
    def discovery(self) -> Discovery:
        """The LAN search: ``with sdk.discovery() as search:`` runs it for the block."""
        return Discovery(self)

    def get_network_param(self, index: int) -> str:
        """A fact of the host's network: 0 address, 1 netmask, 2 gateway, 3 and 4 DNS."""
        return get_network_param(index)

    def network_params(self) -> Dict[str, str]:
        """All five host network facts by name (address, netmask, gateway, dns1, dns2)."""
        return {name: get_network_param(i) for i, name in enumerate(NETWORK_PARAMS)}

    def get_one_ip_address(self) -> str:
        """A free address on the host's subnet, found by probing (ICMP)."""
        return get_one_ip_address()

    def _dispatch_event(self, ev: Event) -> None:
        with self._lock:
            session = self._sessions.get(ev.login_id)
            if session is None:
                # Events can come before QXNet_LoginDev has returned the identifier.
                early = self._early.setdefault(ev.login_id, [])
                if len(early) < 64:
                    early.append(ev)
        if session is not None:
            session._events.publish(ev)
        self._events.publish(ev)

    def _dispatch_answer(self, login_id: int, code: int, data: Optional[int]) -> None:
        body = ctypes.string_at(data).decode("utf-8", "replace") if data else ""
        with self._lock:
            session = self._sessions.get(login_id)
        if session is not None:
            session._answers.publish(Answer(login_id, code, body))

    def _dispatch_replay(self, login_id: int, kind: int, buffer: Optional[int], length: int,
                         ext: Optional[int]) -> None:
        with self._lock:
            session = self._sessions.get(login_id)
        if session is None:
            return
        data = make_replay_data(login_id, kind, buffer, length, ext)
        if data is not None:
            session._media.publish(data)

    def _forget(self, login_id: int) -> None:
        with self._lock:
            self._sessions.pop(login_id, None)
            self._early.pop(login_id, None)


def _user_ptr() -> int:
    return ctypes.addressof(_user_key)


from .session import Session  # noqa: E402  (Session refers back to Sdk)
