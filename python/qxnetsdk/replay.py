"""Replay of a recorder channel: frames from the replay data callback, and its control."""
from __future__ import annotations

import ctypes
import datetime as dt
import enum
import queue
from dataclasses import dataclass
from typing import TYPE_CHECKING, Callable, Iterator, Optional, Union

from . import _native
from ._records import FrameExtData, StreamParam

if TYPE_CHECKING:
    from .session import Session

CMD_RECORD_PLAY = 14301


def time_text(t: dt.datetime) -> bytes:
    """The recorder's time text, ``YYYYMMDDhhmmss``."""
    return t.strftime("%Y%m%d%H%M%S").encode()


class ReplayAction(enum.IntEnum):
    """Actions of QXNet_Loc_ControlNVRReplay, with the command the device answers."""

    RESUME = 1   # 14310
    PAUSE = 2    # 14309
    STOP = 3     # 14302
    FASTER = 4   # 14306: speed times the factor
    SLOWER = 5   # 14307: speed divided by the factor
    SEEK = 6     # 14304
    NORMAL = 7   # 14308


_ANSWER_COMMAND = {ReplayAction.RESUME: 14310, ReplayAction.PAUSE: 14309, ReplayAction.STOP: 14302,
                   ReplayAction.FASTER: 14306, ReplayAction.SLOWER: 14307, ReplayAction.SEEK: 14304,
                   ReplayAction.NORMAL: 14308}
_VIDEO_CODECS = {96: "H.264", 201: "H.265"}
_AUDIO_CODECS = {0: "G.711u", 8: "G.711a", 97: "AAC"}


@dataclass(frozen=True)
class ReplayFrame:
    """One replayed frame: its bytes (as the device sent them, Annex B for video) and
    metadata."""

    login_id: int
    stream_type: int
    data: bytes
    key_frame: bool
    timestamp_ms: float
    payload_type: int

    @property
    def is_video(self) -> bool:
        return self.stream_type in (0, 2)

    @property
    def codec(self) -> str:
        names = _VIDEO_CODECS if self.is_video else _AUDIO_CODECS
        return names.get(self.payload_type, f"payload {self.payload_type}")


@dataclass(frozen=True)
class StreamParams:
    """The stream parameters handed before the frames (data type 2 video and audio,
    3 video only, 4 audio only)."""

    login_id: int
    kind: int
    has_video: bool
    has_audio: bool
    sample_rate: int
    bits_per_sample: int
    audio_codec: int
    channels: int


ReplayData = Union[ReplayFrame, StreamParams]
FrameFn = Callable[[ReplayData], None]
_PARAM_KINDS = (2, 3, 4)


def make_replay_data(login_id: int, kind: int, buffer: Optional[int], length: int,
                     ext: Optional[int]) -> Optional[ReplayData]:
    """Copies what the replay data callback was handed (valid during the call only)."""
    if not buffer:
        return None
    e = FrameExtData.from_buffer_copy(ctypes.string_at(ext, ctypes.sizeof(FrameExtData))) if ext \
        else FrameExtData()
    # Stream type 2 is also a video frame: a parameter record has the record's size and
    # no frame metadata.
    if kind in _PARAM_KINDS and length == ctypes.sizeof(StreamParam) and not (
            e.frame_type or e.timestamp or e.payload_type):
        p = StreamParam.from_buffer_copy(ctypes.string_at(buffer, length))
        return StreamParams(login_id, kind, bool(p.wHasVideo), bool(p.wHasAudio), p.audio.nSampleRate,
                            p.audio.nBitsPerSample, p.audio.nCodec, p.audio.nChannels)
    return ReplayFrame(login_id, kind, ctypes.string_at(buffer, length), e.frame_type == 1,
                       e.timestamp, e.payload_type)


class Replay:
    """A running replay (:meth:`Session.replay`). Frames arrive at the ``on_frame``
    callable and in :meth:`frames`; pause, resume, speed, seek and stop steer it, each
    waiting for the recorder's answer (DeviceError when it refuses). One replay at a time
    per session: the library keeps one current channel."""

    def __init__(self, session: "Session", channel: int, start: dt.datetime,
                 on_frame: Optional[FrameFn], timeout: float, queue_size: int = 2000) -> None:
        self.session = session
        self.channel = channel
        self._on_frame = on_frame
        self._queue = session._media.subscribe(maxsize=queue_size)
        if on_frame is not None:
            session._media.add_listener(on_frame)
        self._stopped = False
        lib = _native.library()
        try:
            session._request(lambda: lib.QXNet_Loc_NVRReplayByTime(
                session.login_id, channel, time_text(start)), CMD_RECORD_PLAY, timeout)
        except BaseException:
            self._detach()
            raise

    def __enter__(self) -> "Replay":
        return self

    def __exit__(self, *exc: object) -> None:
        self.stop()

    def frames(self, timeout: Optional[float] = None) -> Iterator[ReplayData]:
        """Yields frames (and stream parameters) in order, the newest 2000 kept; ends when
        none arrives within ``timeout`` seconds."""
        while True:
            try:
                yield self._queue.get(timeout=timeout)
            except queue.Empty:
                return

    def control(self, action: Union[ReplayAction, int], speed: int = 0,
                when: Optional[dt.datetime] = None, timeout: float = 10.0) -> None:
        """Sends a control action and waits for the recorder's answer (the library
        refuses an unknown action with -1)."""
        lib = _native.library()
        text = time_text(when) if when is not None else None
        self.session._request(lambda: lib.QXNet_Loc_ControlNVRReplay(
            self.session.login_id, self.channel, int(action), speed, text),
            _ANSWER_COMMAND.get(int(action), 0), timeout)

    def pause(self) -> None:
        self.control(ReplayAction.PAUSE)

    def resume(self) -> None:
        self.control(ReplayAction.RESUME)

    def set_speed(self, factor: float) -> None:
        """Plays ``factor`` times as fast: 2, 4, ... faster, 0.5, 0.25, ... slower, 1
        normal."""
        if factor <= 0:
            raise ValueError("the speed factor must be positive")
        if factor == 1:
            self.control(ReplayAction.NORMAL)
        elif factor > 1:
            self.control(ReplayAction.FASTER, round(factor))
        else:
            self.control(ReplayAction.SLOWER, round(1 / factor))

    def seek(self, when: dt.datetime) -> None:
        self.control(ReplayAction.SEEK, when=when)

    def stop(self, timeout: float = 10.0) -> None:
        """Stops the replay and the delivery to ``on_frame``. Safe to call twice."""
        if self._stopped:
            return
        try:
            self.control(ReplayAction.STOP, timeout=timeout)
        finally:
            self._detach()

    def _detach(self) -> None:
        self._stopped = True
        self.session._media.unsubscribe(self._queue)
        if self._on_frame is not None:
            self.session._media.remove_listener(self._on_frame)
