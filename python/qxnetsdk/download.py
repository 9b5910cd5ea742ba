"""A recorder download into an MP4 file, followed through status events 52-55."""
from __future__ import annotations

import datetime as dt
import os
import threading
import time
from typing import TYPE_CHECKING, Callable, List, Optional, Union

from . import _native
from .errors import QXNetError, TransferError, check
from .events import Event, EventCode
from .replay import time_text

if TYPE_CHECKING:
    from .session import Session

PathLike = Union[str, "os.PathLike[str]"]
#: progress(percent)
ProgressFn = Callable[[int], None]

# After the last progress the library stops the download on the device; its event 54
# follows. Waiting for it keeps that event from reaching the session's next download.
_STOP_GRACE = 3.0


class Download:
    """A running download (:meth:`Session.start_download`). ``progress`` is the percent
    written (event 55); :meth:`wait` returns once the file is complete, :meth:`stop` ends
    it early (the file written so far stays playable). ``with`` stops it on exit."""

    def __init__(self, session: "Session", channel: int, start: dt.datetime,
                 end: dt.datetime, path: PathLike) -> None:
        self.session = session
        self.channel = channel
        self.path = os.fspath(path)
        self.accepted = False
        self.stopped = False  # ended by event 54 before the span's end
        self._progress = 0
        self._finished = False  # progress 100: the file is closed
        self._stop_seen = False
        self._error: Optional[QXNetError] = None
        self._cond = threading.Condition()
        # Listening before the request: the first events can come before it returns.
        session.add_listener(self._on_event)
        try:
            check(_native.library().QXNet_Loc_NVRRecordDownload(
                session.login_id, channel, time_text(start), time_text(end), os.fsencode(path)))
        except BaseException:
            session.remove_listener(self._on_event)
            raise

    def __enter__(self) -> "Download":
        return self

    def __exit__(self, *exc: object) -> None:
        if not self.done:
            self.stop()

    def __repr__(self) -> str:
        return f"<qxnetsdk.Download {self.path!r} {self._progress}%{' done' if self.done else ''}>"

    @property
    def progress(self) -> int:
        """Percent of the span written so far (100 once the file is complete)."""
        return self._progress

    @property
    def done(self) -> bool:
        """Whether the download has ended (complete, stopped or failed)."""
        return self._finished or self._stop_seen or self._error is not None

    @property
    def files(self) -> List[str]:
        """The files written: ``path``, then the numbered parts (``name_1.mp4``, ...) a
        change of stream parameters or a long span starts."""
        stem, ext = os.path.splitext(self.path)
        out = [self.path] if os.path.exists(self.path) else []
        n = 1
        while os.path.exists(f"{stem}_{n}{ext}"):
            out.append(f"{stem}_{n}{ext}")
            n += 1
        return out

    def _on_event(self, ev: Event) -> None:
        with self._cond:
            if ev.code == EventCode.DOWNLOAD_ACCEPTED:
                self.accepted = True
            elif ev.code == EventCode.DOWNLOAD_PROGRESS:
                pos = ev.attribute("DownloadPos")
                if pos is not None and pos.isdigit():
                    self._progress = int(pos)
                    self._finished = self._finished or self._progress >= 100
            elif ev.code == EventCode.DOWNLOAD_STOPPED:
                self._stop_seen = True
                self.stopped = not self._finished
            elif ev.code in (EventCode.DOWNLOAD_REFUSED, EventCode.SOCKET_ERROR):
                if not self._finished and self._error is None:
                    self._error = TransferError(int(ev.code), ev.text)
            else:
                return
            if self._stop_seen or self._error is not None:
                self.session.remove_listener(self._on_event)
            self._cond.notify_all()

    def wait(self, timeout: Optional[float] = None,
             progress: Optional[ProgressFn] = None) -> "Download":
        """Waits for the end; ``progress(percent)`` is called on this thread as it
        changes. Returns self; raises TransferError or TimeoutError."""
        deadline = None if timeout is None else time.monotonic() + timeout
        shown = -1
        while True:
            with self._cond:
                if not self.done:
                    left = None if deadline is None else deadline - time.monotonic()
                    if left is not None and left <= 0:
                        raise TimeoutError(f"download into {self.path} not done in time")
                    self._cond.wait(left if left is None else min(left, 0.5))
                pct, error, finished = self._progress, self._error, self.done
            if progress is not None and pct != shown:
                shown = pct
                progress(pct)
            if error is not None:
                raise error
            if finished:
                self._await_stop_event()
                return self

    def _await_stop_event(self) -> None:
        with self._cond:
            self._cond.wait_for(lambda: self._stop_seen or self._error is not None, _STOP_GRACE)
        self.session.remove_listener(self._on_event)

    def stop(self, timeout: float = 10.0) -> None:
        """Stops the download; returns once the recorder confirmed (event 54) or the
        timeout passed. Harmless once it has ended."""
        if self.done:
            self.session.remove_listener(self._on_event)
            return
        check(_native.library().QXNet_Loc_NVRRecordDownloadStop(self.session.login_id, self.channel))
        with self._cond:
            self._cond.wait_for(lambda: self._stop_seen or self._error is not None, timeout)
        self.session.remove_listener(self._on_event)
