"""LAN discovery: the search, its table of found devices, and their network setup."""
from __future__ import annotations

import ctypes
import enum
import queue
import time
from dataclasses import dataclass
from typing import TYPE_CHECKING, Callable, Iterable, Iterator, List, Optional, Tuple, Union

from . import _native
from ._records import IpcEntry, put_text, text
from .errors import DeviceError, check

if TYPE_CHECKING:
    from .sdk import Sdk


class SearchCode(enum.IntEnum):
    """Codes of the search status callback (QXNET_SEARCH_*)."""

    NEW_DEVICE = 1
    DEVICE_CHANGED = 2
    MODIFY_ANSWER = 3
    RESTORE_ANSWER = 4


@dataclass(frozen=True)
class Account:
    user: str
    password: str
    group: str
    status: str


@dataclass(frozen=True)
class FoundDevice:
    """A device of the discovery table (slot ``index``), as it advertised itself."""

    index: int
    uid: str
    hardware_type: str
    product_model: str
    ip: str
    netmask: str
    gateway: str
    preferred_dns: str
    standby_dns: str
    mac: str
    dhcp: bool
    rtsp_port: int
    http_port: int
    osd: str
    firmware_version: str
    sdk_platform: str
    accounts: Tuple[Account, ...]
    last_result: int  # the device's result to the last modify or restore

    @classmethod
    def from_entry(cls, index: int, e: IpcEntry) -> "FoundDevice":
        lan = e.lanCfg
        n = max(0, min(e.userCfg.nAccountNum, len(e.userCfg.accounts)))
        accounts = tuple(Account(text(a.szUserName), text(a.szPassword), text(a.szGroup),
                                 text(a.szStatus)) for a in e.userCfg.accounts[:n])
        return cls(index, text(e.szUID), text(e.szHardwareType), text(e.szProductModel),
                   text(lan.szIP), text(lan.szNetmask), text(lan.szGateway),
                   text(lan.szPreferredDNS), text(lan.szStandbyDNS), text(lan.szMAC),
                   bool(lan.nDHCPMode), e.portCfg.nRTSPPort, e.portCfg.nHTTPPort,
                   text(e.szOsdStr), text(e.szFirmwareVersion), text(e.szSdkPlatform), accounts,
                   lan.nLastResult)


@dataclass(frozen=True)
class SearchEvent:
    """A call of the search status callback: a device found or changed (``device`` as it
    is now), or a device's answer to a modify or restore (``result``: 0 done)."""

    code: Union[SearchCode, int]
    index: int
    device: Optional[FoundDevice]

    @property
    def result(self) -> Optional[int]:
        return self.device.last_result if self.device is not None else None


def make_search_event(code: int, index: int, entry: Optional[int]) -> SearchEvent:
    """Copies what the search callback was handed (valid during the call only)."""
    try:
        known: Union[SearchCode, int] = SearchCode(code)
    except ValueError:
        known = code
    device = None
    if entry:
        e = IpcEntry.from_buffer_copy(ctypes.string_at(entry, ctypes.sizeof(IpcEntry)))
        device = FoundDevice.from_entry(index, e)
    return SearchEvent(known, index, device)


def _entry(index: int) -> IpcEntry:
    e = IpcEntry()
    check(_native.library().QXNet_Loc_GetIPCInfo(index, ctypes.byref(e)))
    return e


# Keyword of modify() -> the record's LAN field.
_LAN_FIELDS = {"ip": "szIP", "netmask": "szNetmask", "gateway": "szGateway",
               "preferred_dns": "szPreferredDNS", "standby_dns": "szStandbyDNS",
               "user": "szUserName", "password": "szPassword", "token": "szToken"}


class Discovery:
    """The LAN search (:meth:`Sdk.discovery`): ``with`` starts it and stops it on exit;
    the table of found devices stays until the library is freed. Search events arrive in
    :meth:`events` and at the listeners (on the discovery thread)."""

    def __init__(self, sdk: "Sdk") -> None:
        self._sdk = sdk
        self._inbox: "queue.Queue[SearchEvent]" = queue.Queue(10000)

    def __enter__(self) -> "Discovery":
        return self.start()

    def __exit__(self, *exc: object) -> None:
        self.stop()

    def start(self) -> "Discovery":
        """Starts (or restarts) the search: a broadcast on the LAN. Events from now on
        reach :meth:`events`."""
        self._sdk._search.attach(self._inbox)
        try:
            check(_native.library().QXNet_StartSearchDev())
        except BaseException:
            self._sdk._search.unsubscribe(self._inbox)
            raise
        return self

    def stop(self) -> None:
        """Stops the search; the table is kept."""
        _native.library().QXNet_StopSearchDev()
        self._sdk._search.unsubscribe(self._inbox)

    def add_listener(self, fn: Callable[[SearchEvent], None]) -> None:
        self._sdk._search.add_listener(fn)

    def remove_listener(self, fn: Callable[[SearchEvent], None]) -> None:
        self._sdk._search.remove_listener(fn)

    def events(self, timeout: Optional[float] = None) -> Iterator[SearchEvent]:
        """Yields search events in order; ends when none arrives within ``timeout``."""
        while True:
            try:
                yield self._inbox.get(timeout=timeout)
            except queue.Empty:
                return

    # ---- the table ----------------------------------------------------------------
    @property
    def count(self) -> int:
        """Devices found so far."""
        return check(_native.library().QXNet_GetSearchIPCCount())

    def device(self, index: int) -> FoundDevice:
        """The device in slot ``index`` (BadIndexError for an empty or unknown slot)."""
        return FoundDevice.from_entry(index, _entry(index))

    def devices(self) -> List[FoundDevice]:
        return [self.device(i) for i in range(self.count)]

    def device_xml(self, index: int) -> str:
        """The device's record as XML (its network and account settings)."""
        lib = _native.library()
        size = check(lib.QXNet_Loc_GetIPCInfoXML(index, None, 0))
        buf = ctypes.create_string_buffer(size + 1)
        check(lib.QXNet_Loc_GetIPCInfoXML(index, buf, len(buf)))
        return buf.value.decode("utf-8", "replace")

    def find(self, uid: str, timeout: float = 5.0) -> FoundDevice:
        """The device with this UID once the search has found it; TimeoutError if not."""
        deadline = time.monotonic() + timeout
        while True:
            for d in self.devices():
                if d.uid == uid:
                    return d
            if time.monotonic() >= deadline:
                raise TimeoutError(f"device {uid} not found within {timeout} s")
            time.sleep(0.05)

    # ---- network setup ------------------------------------------------------------
    def modify(self, index: int, *, ip: Optional[str] = None, netmask: Optional[str] = None,
               gateway: Optional[str] = None, preferred_dns: Optional[str] = None,
               standby_dns: Optional[str] = None, dhcp: Optional[bool] = None,
               user: Optional[str] = None, password: Optional[str] = None,
               token: Optional[str] = None, timeout: float = 5.0) -> SearchEvent:
        """Sends new network settings to the device in slot ``index`` (fields not given
        keep their advertised value) and waits for its answer. Raises DeviceError when the
        device refuses (``code``: its result), TimeoutError when it does not answer."""
        e = _entry(index)
        given = dict(ip=ip, netmask=netmask, gateway=gateway, preferred_dns=preferred_dns,
                     standby_dns=standby_dns, user=user, password=password, token=token)
        for key, value in given.items():
            if value is not None:
                put_text(e.lanCfg, _LAN_FIELDS[key], value)
        if dhcp is not None:
            e.lanCfg.nDHCPMode = 1 if dhcp else 0
        lib = _native.library()
        return self._change(lambda: lib.QXNet_Loc_ModifyIPC(index, ctypes.byref(e)),
                            SearchCode.MODIFY_ANSWER, index, timeout)

    def modify_xml(self, index: int, xml: str, timeout: float = 5.0) -> SearchEvent:
        """Sends network settings given as XML (the ``device_xml`` form) to a device."""
        lib = _native.library()
        raw = xml.encode()
        return self._change(lambda: lib.QXNet_Loc_ModifyIPCXML(index, raw),
                            SearchCode.MODIFY_ANSWER, index, timeout)

    def restore(self, index: int, *, user: Optional[str] = None, password: Optional[str] = None,
                token: Optional[str] = None, timeout: float = 5.0) -> SearchEvent:
        """Asks the device in slot ``index`` to restore its factory network settings."""
        e = _entry(index)
        for key, value in dict(user=user, password=password, token=token).items():
            if value is not None:
                put_text(e.lanCfg, _LAN_FIELDS[key], value)
        lib = _native.library()
        return self._change(lambda: lib.QXNet_Loc_RestoreIPC(index, ctypes.byref(e)),
                            SearchCode.RESTORE_ANSWER, index, timeout)

    def _change(self, send: Callable[[], int], code: SearchCode, index: int,
                timeout: float) -> SearchEvent:
        sub = self._sdk._search.subscribe()
        try:
            check(send())
            ev = _await(sub, (code,), index, timeout)
        finally:
            self._sdk._search.unsubscribe(sub)
        if ev.result:
            raise DeviceError(ev.result, ev, f"the device refused the change (result {ev.result})")
        return ev


def _await(sub: "queue.Queue[SearchEvent]", codes: Iterable[int], index: int,
           timeout: float) -> SearchEvent:
    deadline = time.monotonic() + timeout
    while True:
        try:
            ev = sub.get(timeout=max(0.0, deadline - time.monotonic()))
        except queue.Empty:
            raise TimeoutError("no answer from the device in time") from None
        if ev.code in codes and ev.index == index:
            return ev


# ---- host network facts ---------------------------------------------------------------
#: Indexes of get_network_param.
NETWORK_PARAMS = ("address", "netmask", "gateway", "dns1", "dns2")


def get_network_param(index: int) -> str:
    """A fact of the host's outward interface: 0 address, 1 netmask, 2 gateway, 3 and 4
    DNS servers ('' where there is none)."""
    buf = ctypes.create_string_buffer(64)
    check(_native.library().QXNet_Loc_GetNetworkParam(index, buf, len(buf)))
    return buf.value.decode()


def get_one_ip_address() -> str:
    """A free address on the host's subnet (probed; the discovery table's devices and
    addresses proposed before are skipped)."""
    buf = ctypes.create_string_buffer(64)
    check(_native.library().QXNet_Loc_GetOneIPAddress(buf, len(buf)))
    return buf.value.decode()
