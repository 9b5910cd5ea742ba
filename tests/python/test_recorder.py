"""Recorder calls against qxdevsim playing a recorder: search, download, replay."""
import datetime as dt
import json
import subprocess
import time

import pytest

import qxnetsdk
from qxnetsdk import EventCode, Recording


def recorded_day(channel: int) -> dt.date:
    """Today, or yesterday when today is one of the simulator's empty days for channel
    (every ninth day of the month, shifted by the channel)."""
    day = dt.date.today()
    return day if (day.day + channel) % 9 else day - dt.timedelta(days=1)


def empty_day(channel: int) -> dt.date:
    day = recorded_day(channel)
    return day.replace(day=9 - channel % 9 or 9)


def spans_of(day: dt.date, channel: int, text: str):
    """The simulator's "hhmmss-hhmmss,..." as Recordings of that day."""
    out = []
    midnight = dt.datetime.combine(day, dt.time())
    for item in text.split(","):
        a, b = item.split("-")
        secs = [int(x[0:2]) * 3600 + int(x[2:4]) * 60 + int(x[4:6]) for x in (a, b)]
        out.append(Recording(channel, *(midnight + dt.timedelta(seconds=s) for s in secs)))
    return out


@pytest.fixture
def recorder(devsim):
    devsim.ok("SET rec_video h264")
    devsim.ok("SET rec_audio aac")
    return devsim


def test_search_day_gives_the_configured_spans(sdk, recorder):
    recorder.ok("RECSPANS 1 000010-001500,013000-020000,233000-240000")
    day = recorded_day(1)
    with sdk.login("127.0.0.1", recorder.port, "admin", "secret") as dev:
        found = dev.search_day(1, day)
        generated = dev.search_day(2, recorded_day(2))
        nothing = dev.search_day(1, empty_day(1))
    midnight = dt.datetime.combine(day, dt.time())
    assert found == [
        Recording(1, midnight + dt.timedelta(seconds=10), midnight + dt.timedelta(minutes=15)),
        Recording(1, midnight + dt.timedelta(hours=1, minutes=30), midnight + dt.timedelta(hours=2)),
        Recording(1, midnight + dt.timedelta(hours=23, minutes=30), midnight + dt.timedelta(days=1)),
    ]
    assert found[2].duration == dt.timedelta(minutes=30)
    # Channel 2 keeps the simulator's generated spans: the same list it reports.
    expected = spans_of(recorded_day(2), 2, recorder.ok("RECSPANS 2")[3:])
    assert len(expected) > 1 and generated == expected
    assert nothing == []


def test_search_month_covers_every_day(sdk, recorder):
    recorder.ok("RECSPANS 1 010000-020000")
    year, month = dt.date.today().year, dt.date.today().month
    with sdk.login("127.0.0.1", recorder.port, "admin", "secret") as dev:
        found = dev.search_month(1, year, month)
    days = {r.start.day for r in found}
    expected = {d for d in range(1, 32) if (d + 1) % 9 and _valid(year, month, d)}
    assert days == expected
    assert all(r.start.hour == 1 and r.end.hour == 2 for r in found)


def _valid(year, month, day):
    try:
        dt.date(year, month, day)
        return True
    except ValueError:
        return False


def _probe(path, stream, entries):
    out = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-select_streams", stream,
                          "-show_entries", "stream=" + entries, "-of", "json", path],
                         capture_output=True, text=True, check=True).stdout
    streams = json.loads(out)["streams"]
    return streams[0] if streams else {}


def test_download_writes_a_playable_mp4(sdk, recorder, tmp_path):
    recorder.ok("SET rec_pace fast")
    day = recorded_day(1)
    midnight = dt.datetime.combine(day, dt.time())
    path = str(tmp_path / "span.mp4")
    seen = []
    with sdk.login("127.0.0.1", recorder.port, "admin", "secret") as dev:
        d = dev.download(1, midnight + dt.timedelta(seconds=10), midnight + dt.timedelta(seconds=16),
                         path, progress=seen.append, timeout=60)
    assert d.done and not d.stopped and d.progress == 100 and d.accepted
    assert d.files == [path]
    assert seen[-1] == 100 and seen == sorted(seen)
    sent = recorder.fields(recorder.ok("RECSTREAM"))
    assert sent["mode"] == "download"
    video = _probe(path, "v", "codec_name,width,height,nb_read_frames")
    assert (video["codec_name"], video["width"], video["height"]) == ("h264", 320, 240)
    assert int(video["nb_read_frames"]) == int(sent["video_in_span"]) > 100
    assert _probe(path, "a", "codec_name")["codec_name"] == "aac"
    decode = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-f", "null", "-"],
                            capture_output=True, text=True)
    assert decode.returncode == 0 and decode.stdout == "" and decode.stderr == ""


def test_download_can_be_followed_and_stopped(sdk, recorder, tmp_path):
    day = recorded_day(1)
    midnight = dt.datetime.combine(day, dt.time())
    path = tmp_path / "long.mp4"
    with sdk.login("127.0.0.1", recorder.port, "admin", "secret") as dev:
        # At the recorder's own pace a minute takes a minute: stopped well before its end.
        with dev.start_download(1, midnight, midnight + dt.timedelta(minutes=1), path) as d:
            _wait_for(lambda: d.progress >= 2, 20)
            assert d.progress < 100 and not d.done
            d.stop()
            assert d.done and d.stopped
        assert recorder.fields(recorder.ok("RECSTREAM"))["state"] == "stopped"
    decode = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-f", "null", "-"],
                            capture_output=True, text=True)
    assert decode.returncode == 0 and decode.stderr == ""


def test_refused_download_raises_transfer_error_53(sdk, recorder, tmp_path):
    midnight = dt.datetime.combine(recorded_day(1), dt.time())
    with sdk.login("127.0.0.1", recorder.port, "admin", "secret") as dev:
        # An end before the start: the recorder refuses the request.
        with pytest.raises(qxnetsdk.TransferError) as e:
            dev.download(1, midnight + dt.timedelta(seconds=20), midnight + dt.timedelta(seconds=10),
                         tmp_path / "none.mp4", timeout=20)
        assert e.value.code == EventCode.DOWNLOAD_REFUSED


def test_replay_delivers_frames_and_obeys_control(sdk, recorder):
    frames = []
    midnight = dt.datetime.combine(recorded_day(1), dt.time())
    with sdk.login("127.0.0.1", recorder.port, "admin", "secret") as dev:
        with dev.replay(1, midnight + dt.timedelta(seconds=10), on_frame=frames.append) as replay:
            _wait_for(lambda: _video(frames) >= 25, 10)
            replay.pause()
            _wait_for(lambda: _quiet(frames, 0.5), 10)  # what was under way has arrived
            paused = len(frames)
            time.sleep(1.0)
            assert len(frames) == paused  # nothing while paused
            replay.resume()
            _wait_for(lambda: len(frames) > paused + 10, 10)
            replay.set_speed(2)
            replay.set_speed(1)
            replay.seek(midnight + dt.timedelta(minutes=5))
            _wait_for(lambda: any(f.timestamp_ms >= 300000 for f in frames[-5:]
                                  if isinstance(f, qxnetsdk.ReplayFrame)), 10)
        stopped = len(frames)
        time.sleep(0.7)
        assert len(frames) == stopped  # nothing after stop
        assert recorder.fields(recorder.ok("RECSTREAM"))["state"] == "stopped"
    # The stream parameters come first: the simulator's clips carry 16 kHz mono AAC.
    params = frames[0]
    assert isinstance(params, qxnetsdk.StreamParams) and params.has_video and params.has_audio
    assert (params.sample_rate, params.channels) == (16000, 1)
    video = [f for f in frames if isinstance(f, qxnetsdk.ReplayFrame) and f.is_video]
    assert video[0].key_frame and video[0].codec == "H.264"
    assert all(f.data[:4] == b"\0\0\0\1" or f.data[:3] == b"\0\0\1" for f in video)
    stamps = [f.timestamp_ms for f in video]
    before_seek = [t for t in stamps if t < 300000]
    assert before_seek == sorted(before_seek) and stamps[0] >= 10000
    audio = [f for f in frames if isinstance(f, qxnetsdk.ReplayFrame) and not f.is_video]
    assert audio and all(f.codec == "AAC" for f in audio)


def test_replay_frames_iterator(sdk, recorder):
    midnight = dt.datetime.combine(recorded_day(1), dt.time())
    with sdk.login("127.0.0.1", recorder.port, "admin", "secret") as dev:
        with dev.replay(1, midnight + dt.timedelta(minutes=1)) as replay:
            got = []
            for item in replay.frames(timeout=5):
                got.append(item)
                if _video(got) >= 10:
                    break
    assert _video(got) == 10


def _video(items):
    return sum(1 for f in items if isinstance(f, qxnetsdk.ReplayFrame) and f.is_video)


def _quiet(items, seconds):
    """True when no item arrived for ``seconds``."""
    n = len(items)
    time.sleep(seconds)
    return len(items) == n


def _wait_for(pred, seconds):
    deadline = time.monotonic() + seconds
    while not pred():
        assert time.monotonic() < deadline, "timed out"
        time.sleep(0.02)


def test_recorder_refusals_carry_their_codes(sdk, recorder, tmp_path):
    midnight = dt.datetime.combine(recorded_day(1), dt.time())
    dev = sdk.login("127.0.0.1", recorder.port, "admin", "secret")
    with pytest.raises(qxnetsdk.DeviceError) as e:
        dev.search_day(5000, recorded_day(1))  # no such channel: the recorder says -1
    assert e.value.code == -1 and e.value.answer.command == 14300
    with dev.replay(1, midnight) as replay:
        with pytest.raises(qxnetsdk.QXNetError) as e:
            replay.control(0)  # no action 0: the library refuses it
        assert e.value.code == -1
    dev.logout()
    with pytest.raises(qxnetsdk.NoDeviceError) as e:
        dev.search_day(1, recorded_day(1))
    assert e.value.code == -103
    with pytest.raises(qxnetsdk.NoDeviceError):
        dev.start_download(1, midnight, midnight + dt.timedelta(seconds=5), tmp_path / "x.mp4")
    with pytest.raises(qxnetsdk.NoDeviceError):
        dev.replay(1, midnight)
