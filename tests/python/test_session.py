"""Sessions against qxdevsim: login, events and alarms, settings, firmware upgrade."""
import os
import threading

import pytest

import qxnetsdk
from qxnetsdk import EventCode


def test_login_events_arrive_in_order(sdk, devsim):
    with sdk.login("127.0.0.1", devsim.port, "admin", "secret") as dev:
        codes = [ev.code for ev in dev.events(timeout=1.0)]
    assert codes.index(EventCode.CONNECTED) < codes.index(EventCode.AUTHENTICATED)
    assert sdk.sessions == []


def test_bad_password_raises_login_error_with_the_event(sdk, devsim):
    with pytest.raises(qxnetsdk.LoginError) as e:
        sdk.login("127.0.0.1", devsim.port, "admin", "wrong")
    assert e.value.code == EventCode.BAD_CREDENTIALS
    assert sdk.sessions == []


def test_alarms_reach_the_iterator_and_listeners(sdk, devsim):
    seen = []
    threads = set()

    def listener(ev):
        threads.add(threading.get_ident())
        seen.append(ev)

    with sdk.login("127.0.0.1", devsim.port, "admin", "secret") as dev:
        dev.add_listener(listener)
        devsim.ok("ALARM last form=good items=2 acode=3 data=motion")
        devsim.ok("CAMSTAT last 1,1,1,0")
        got = []
        for ev in dev.events(timeout=3.0):
            got.append(ev)
            if ev.code == EventCode.IPC_STATUS:
                break
    alarms = [ev.alarm for ev in got if ev.alarm is not None]
    reports = [ev for ev in got if ev.code == EventCode.MESSAGE and "motion" in (ev.text or "")]
    assert alarms or reports, [ev.name for ev in got]
    for a in alarms:
        assert a.code == 3 and a.data == "motion"
    assert any(ev.code == EventCode.IPC_STATUS for ev in seen)
    assert threading.get_ident() not in threads  # called on the library's threads


def test_setting_round_trip(sdk, devsim):
    body = "<VideoEncode><BitRate>2048</BitRate></VideoEncode>"
    with sdk.login("127.0.0.1", devsim.port, "admin", "secret") as dev:
        written = dev.set_config(1601, body)
        assert written.command == 1601 and written.ok
        read = dev.get_config(1601)
        assert body in read.body
        with pytest.raises(qxnetsdk.DeviceError) as e:
            dev.get_config(1777)  # never set: the device refuses
        assert e.value.code < 0 and e.value.answer.command == 1777
    assert body in devsim.cmd("CONFIG GET 1601").replace("\\s", " ")


def test_user_data_round_trip(sdk, devsim):
    with sdk.login("127.0.0.1", devsim.port, "admin", "secret") as dev:
        dev.set_user_data(b"\x01\x02\xff\x7f")
        assert "0102ff7f" in dev.get_user_data().body


def test_upgrade_sends_the_whole_file_with_progress(sdk, devsim, tmp_path):
    firmware = tmp_path / "firmware.bin"
    data = os.urandom(700000)
    firmware.write_bytes(data)
    progress = []
    with sdk.login("127.0.0.1", devsim.port, "admin", "secret") as dev:
        dev.upgrade(firmware, progress=lambda sent, size: progress.append((sent, size)))
        assert not dev.upgrade_running
    upload = devsim.fields(devsim.ok("UPLOAD 0"))
    assert upload["state"] == "done" and upload["size"] == str(len(data))
    assert progress and all(size == len(data) for _, size in progress)
    assert [s for s, _ in progress] == sorted(s for s, _ in progress)


def test_refused_upgrade_raises_transfer_error(sdk, devsim, tmp_path):
    firmware = tmp_path / "firmware.bin"
    firmware.write_bytes(b"x" * 1000)
    devsim.ok("SET upload_mode refuse")
    with sdk.login("127.0.0.1", devsim.port, "admin", "secret") as dev:
        with pytest.raises(qxnetsdk.TransferError) as e:
            dev.upgrade(firmware, timeout=10)
    assert e.value.code == EventCode.UPGRADE_FAILED


def test_result_codes_become_exceptions(sdk, devsim, tmp_path):
    dev = sdk.login("127.0.0.1", devsim.port, "admin", "secret")
    with pytest.raises(qxnetsdk.FileError) as e:
        dev.upgrade(tmp_path / "missing.bin")
    assert e.value.code == -93
    dev.logout()
    dev.logout()  # a second logout is harmless
    with pytest.raises(qxnetsdk.NoDeviceError) as e:
        dev.get_config(1601)
    assert e.value.code == -103


def test_calls_after_free_raise_not_initialized(devsim):
    with qxnetsdk.Sdk() as sdk:
        dev = sdk.login("127.0.0.1", devsim.port, "admin", "secret")
    with pytest.raises(qxnetsdk.NotInitializedError) as e:
        dev.get_config(1601)
    assert e.value.code == -201
