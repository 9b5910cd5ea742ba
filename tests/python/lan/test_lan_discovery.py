"""Discovery end to end through the Python package: the library in the host namespace,
qxdevsim's LAN devices in the LAN namespace (both made by tests/netns/lan_netns.sh, which
tests/python/test_discovery.py runs these tests under)."""
import ipaddress
import os

import pytest

import qxnetsdk
from conftest import DevSim
from qxnetsdk import SearchCode

N = 10
FIRST_IP = ipaddress.ip_address("10.77.0.100")


def env(name: str) -> str:
    return os.environ[name]


@pytest.fixture
def lan():
    """Ten simulated devices from 10.77.0.100: per ten, 8 cameras, 1 recorder and 1 NVS,
    which the library leaves out of its table."""
    if not os.environ.get("QXNET_LAN_NS"):
        pytest.skip("only inside the namespaces of tests/netns/lan_netns.sh")
    sim = DevSim("--lan", str(N), "--lan-listen", "0.0.0.0:2018", "--lan-first-ip", str(FIRST_IP),
                 "--lan-gateway", env("QXNET_LAN_GATEWAY"), "--lan-mask", env("QXNET_LAN_MASK"),
                 launcher=("ip", "netns", "exec", env("QXNET_LAN_NS")),
                 control_host=env("QXNET_LAN_GATEWAY"))
    yield sim
    sim.stop()


def sim_field(sim: DevSim, k: int, field: str) -> str:
    return sim.ok(f"LAN GET {k} {field}")[3:]


def found_until(search, n, timeout=5.0):
    """The search events until n devices were found (or the timeout)."""
    got = []
    for ev in search.events(timeout=timeout):
        got.append(ev)
        if sum(e.code == SearchCode.NEW_DEVICE for e in got) >= n:
            break
    return got


def test_finds_the_simulated_devices(sdk, lan):
    expected = {}
    for k in range(N):
        if sim_field(lan, k, "hw") != "NVS":
            expected[f"QXSIM{k:07d}"] = k
    assert len(expected) == 9
    with sdk.discovery() as search:
        events = found_until(search, len(expected))
        new = [e for e in events if e.code == SearchCode.NEW_DEVICE]
        assert sorted(e.device.uid for e in new) == sorted(expected)
        assert search.count == len(expected)
        table = {d.uid: d for d in search.devices()}
        xml = search.device_xml(new[0].index)
    assert set(table) == set(expected)
    for uid, k in expected.items():
        d = table[uid]
        assert d.ip == str(FIRST_IP + k) == sim_field(lan, k, "ip")
        assert d.mac == sim_field(lan, k, "mac")
        assert d.hardware_type == sim_field(lan, k, "hw")
        assert d.osd == f"Device {k}"
        assert d.netmask == env("QXNET_LAN_MASK") and d.gateway == env("QXNET_LAN_GATEWAY")
        assert d.rtsp_port == 554
    assert new[0].device.uid in xml and new[0].device.ip in xml


def test_modify_changes_the_advertised_address(sdk, lan):
    with sdk.discovery() as search:
        found_until(search, 9)
        before = search.find("QXSIM0000001")
        assert before.ip == "10.77.0.101"
        answer = search.modify(before.index, ip="10.77.0.190")
        assert answer.code == SearchCode.MODIFY_ANSWER and answer.result == 0
        assert sim_field(lan, 1, "ip") == "10.77.0.190"
        # The device now advertises its new address: the next search answer changes the entry.
        lan.ok("LAN ANSWER")
        changed = next(e for e in search.events(timeout=5) if e.code == SearchCode.DEVICE_CHANGED)
        assert changed.index == before.index and changed.device.ip == "10.77.0.190"
        assert search.device(before.index).ip == "10.77.0.190"
        # The XML form of the same change, then the factory settings back.
        xml = search.device_xml(before.index).replace("10.77.0.190", "10.77.0.191")
        assert search.modify_xml(before.index, xml).result == 0
        assert sim_field(lan, 1, "ip") == "10.77.0.191"
        assert search.restore(before.index).result == 0
        assert sim_field(lan, 1, "ip") == "10.77.0.101"


def test_refused_modify_raises_device_error(sdk, lan):
    lan.ok("LAN SET 2 result=-5")
    with sdk.discovery() as search:
        found_until(search, 9)
        d = search.find("QXSIM0000002")
        with pytest.raises(qxnetsdk.DeviceError) as e:
            search.modify(d.index, ip="10.77.0.192")
        assert e.value.code == -5
    assert sim_field(lan, 2, "ip") == "10.77.0.102"


def test_host_network_facts_and_a_free_address(sdk, lan):
    assert sdk.network_params() == {
        "address": env("QXNET_LAN_HOST_IP"), "netmask": env("QXNET_LAN_MASK"),
        "gateway": env("QXNET_LAN_GATEWAY"), "dns1": env("QXNET_LAN_DNS1"), "dns2": ""}
    with sdk.discovery() as search:
        found_until(search, 9)
        used = {d.ip for d in search.devices()} | {env("QXNET_LAN_HOST_IP"), env("QXNET_LAN_GATEWAY")}
        used |= set(env("QXNET_LAN_PINGABLE").split(","))
        first = sdk.get_one_ip_address()
        # Given to a device, the address is not proposed again.
        search.modify(search.find("QXSIM0000003").index, ip=first)
        second = sdk.get_one_ip_address()
    net = ipaddress.ip_network(f"{env('QXNET_LAN_HOST_IP')}/{env('QXNET_LAN_MASK')}", strict=False)
    for a in (first, second):
        assert ipaddress.ip_address(a) in net and a not in used
    assert first != second
