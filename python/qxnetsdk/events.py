"""Status events, alarms and device answers as Python values."""
from __future__ import annotations

import ctypes
import enum
from dataclasses import dataclass
from typing import Optional, Union


class EventCode(enum.IntEnum):
    """Status event codes (QXNET_EV_* in QXNetSDK.h)."""

    CONNECT_FAILED = 0
    SOCKET_ERROR = 1
    BAD_CREDENTIALS = 2
    AUTH_FAILED = 3
    CONNECTED = 5
    AUTHENTICATED = 6
    UPGRADE_FINISHED = 15
    UPGRADE_FAILED = 16
    ALARM = 24
    MAX_CHANNELS = 50
    IPC_STATUS = 51
    DOWNLOAD_ACCEPTED = 52
    DOWNLOAD_REFUSED = 53
    DOWNLOAD_STOPPED = 54
    DOWNLOAD_PROGRESS = 55
    UPGRADE_PROGRESS = 58
    MESSAGE = 79
    CFGFILE_GET_PROGRESS = 80
    CFGFILE_SET_FAILED = 81
    CFGFILE_SET_PROGRESS = 82
    CFGFILE_SET_FINISHED = 83


class _AlarmItem(ctypes.Structure):
    """ALARM_ITEM (168 bytes), the record of status event 24."""

    _fields_ = [(n, ctypes.c_int32) for n in (
        "nYear", "nMonth", "nDay", "nWDay", "nHour", "nMinute", "nSecond",
        "nAlarmCode", "nAlarmFlag", "nAlarmLevel")] + [("szAlarmData", ctypes.c_char * 128)]


assert ctypes.sizeof(_AlarmItem) == 168


@dataclass(frozen=True)
class Alarm:
    """One alarm of an alarm report (status event 24)."""

    year: int
    month: int
    day: int
    weekday: int
    hour: int
    minute: int
    second: int
    code: int
    flag: int
    level: int
    data: str

    @classmethod
    def from_address(cls, address: int) -> "Alarm":
        """Copies the record the library handed over (valid only during the callback)."""
        a = _AlarmItem.from_buffer_copy(ctypes.string_at(address, ctypes.sizeof(_AlarmItem)))
        return cls(a.nYear, a.nMonth, a.nDay, a.nWDay, a.nHour, a.nMinute, a.nSecond,
                   a.nAlarmCode, a.nAlarmFlag, a.nAlarmLevel,
                   a.szAlarmData.decode("utf-8", "replace"))


@dataclass(frozen=True)
class Event:
    """A status event of a session: ``code`` (an EventCode where known), and either the
    event's ``text`` or, for event 24, its ``alarm``."""

    login_id: int
    code: Union[EventCode, int]
    text: Optional[str] = None
    alarm: Optional[Alarm] = None

    @property
    def name(self) -> str:
        return self.code.name if isinstance(self.code, EventCode) else f"EVENT_{self.code}"

    def attribute(self, name: str) -> Optional[str]:
        """The value of ``name="..."`` in the event text (progress events carry
        ``start`` and ``filesize``), or None."""
        key = f'{name}="'
        if not self.text or key not in self.text:
            return None
        rest = self.text.split(key, 1)[1]
        return rest.split('"', 1)[0]


@dataclass(frozen=True)
class Answer:
    """A device's answer to a request (auxiliary response). ``code`` is the library's
    code: the command in the low 24 bits, the device's result (or the channel) in the
    top byte."""

    login_id: int
    code: int
    body: str

    @property
    def command(self) -> int:
        return self.code & 0xFFFFFF

    @property
    def flag(self) -> int:
        """The top byte, signed: negative when the device refused the request."""
        top = (self.code >> 24) & 0xFF
        return top - 256 if top >= 128 else top

    @property
    def ok(self) -> bool:
        return self.flag >= 0


def make_event(login_id: int, code: int, data: Optional[int]) -> Event:
    """Builds an Event from a status callback's arguments, copying what data points at."""
    try:
        known: Union[EventCode, int] = EventCode(code)
    except ValueError:
        known = code
    if code == EventCode.ALARM and data:
        return Event(login_id, known, alarm=Alarm.from_address(data))
    text = ctypes.string_at(data).decode("utf-8", "replace") if data else None
    return Event(login_id, known, text=text)
