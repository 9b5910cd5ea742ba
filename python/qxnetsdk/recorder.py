"""Recorder calls of a session: record search, download into MP4, replay."""
from __future__ import annotations

import calendar
import datetime as dt
import re
from dataclasses import dataclass
from typing import TYPE_CHECKING, Callable, List, Optional

from . import _native
from .download import Download, ProgressFn, PathLike
from .replay import FrameFn, Replay, time_text

if TYPE_CHECKING:
    from .events import Answer

CMD_RECORD_SEARCH = 14300


@dataclass(frozen=True)
class Recording:
    """One recorded span of a channel (local times, as the recorder keeps them)."""

    channel: int
    start: dt.datetime
    end: dt.datetime

    @property
    def duration(self) -> dt.timedelta:
        return self.end - self.start


def _tag(body: str, name: str) -> Optional[str]:
    m = re.search(rf"<{name}>(.*?)</{name}>", body, re.S)
    return m.group(1).strip() if m else None


def _at(day: dt.date, hhmmss: str) -> dt.datetime:
    h, m, s = int(hhmmss[0:2]), int(hhmmss[2:4]), int(hhmmss[4:6])
    # A span running to the end of the day ends at "240000": the next midnight.
    return dt.datetime.combine(day, dt.time()) + dt.timedelta(hours=h, minutes=m, seconds=s)


_SPAN = re.compile(r"^(\d{6})-(\d{6})$")


def parse_day_list(channel: int, day: dt.date, body: str) -> List[Recording]:
    """The spans of a day's record list (``<Stream>hhmmss-hhmmss,...</Stream>``)."""
    listed = _tag(body, "ChannelId")
    if listed is not None and listed.lstrip("-").isdigit():
        channel = int(listed)
    spans = _tag(body, "Stream") or ""
    out = []
    for item in filter(None, (s.strip() for s in spans.split(","))):
        m = _SPAN.match(item)
        if m:
            out.append(Recording(channel, _at(day, m.group(1)), _at(day, m.group(2))))
    return out


class RecorderMixin:
    """The recorder calls of :class:`Session` (a recorder, or a camera with storage)."""

    login_id: int
    _request: Callable[..., "Answer"]

    def search_day(self, channel: int, day: dt.date, timeout: float = 10.0) -> List[Recording]:
        """The recorded spans of ``channel`` on ``day``, in the recorder's order. Raises
        DeviceError when the recorder refuses the search (e.g. an unknown channel)."""
        lib = _native.library()
        when = time_text(dt.datetime.combine(day, dt.time()))
        answer = self._request(lambda: lib.QXNet_Loc_SearchNVRRecByTime(
            self.login_id, channel, when), CMD_RECORD_SEARCH, timeout)
        return parse_day_list(channel, day, answer.body)

    def search_month(self, channel: int, year: int, month: int,
                     timeout: float = 10.0) -> List[Recording]:
        """Every recorded span of ``channel`` in a month: one day search per day, since
        the library exports no month search."""
        days = calendar.monthrange(year, month)[1]
        out: List[Recording] = []
        for d in range(1, days + 1):
            out += self.search_day(channel, dt.date(year, month, d), timeout)
        return out

    def start_download(self, channel: int, start: dt.datetime, end: dt.datetime,
                       path: PathLike) -> Download:
        """Starts downloading ``start``..``end`` (the same day) of ``channel`` into the
        MP4 file ``path`` and returns at once; see :class:`Download`."""
        return Download(self, channel, start, end, path)

    def download(self, channel: int, start: dt.datetime, end: dt.datetime, path: PathLike,
                 progress: Optional[ProgressFn] = None, timeout: float = 600.0) -> Download:
        """Downloads a span into an MP4 file and returns once it is written (the finished
        Download: its ``files`` lists the file and any later parts). ``progress(percent)``
        is called on this thread. Raises TransferError (event 53: the recorder refused,
        1: the connection dropped) or TimeoutError."""
        d = Download(self, channel, start, end, path)
        try:
            d.wait(timeout, progress=progress)
        except BaseException:
            d.stop()
            raise
        return d

    def replay(self, channel: int, start: dt.datetime, on_frame: Optional[FrameFn] = None,
               timeout: float = 10.0) -> Replay:
        """Replays ``channel`` from ``start``. Frames go to ``on_frame(frame)`` (on the
        library's thread) and to :meth:`Replay.frames`; ``with`` stops the replay."""
        return Replay(self, channel, start, on_frame, timeout)
