"""Discovery: the table without a network, and the LAN tests inside private namespaces."""
import os
import subprocess
import sys

import pytest

import qxnetsdk

HERE = os.path.dirname(os.path.abspath(__file__))
LAN_NETNS = os.path.join(HERE, "..", "netns", "lan_netns.sh")


def test_empty_table_refuses_an_index_with_its_code(sdk):
    search = sdk.discovery()  # not started: nothing is sent
    assert search.count == 0 and search.devices() == []
    with pytest.raises(qxnetsdk.BadIndexError) as e:
        search.device(5)
    assert e.value.code == -96
    with pytest.raises(qxnetsdk.BadIndexError):
        search.device_xml(0)
    with pytest.raises(qxnetsdk.BadIndexError):
        search.modify(0, ip="127.0.0.9")


def test_discovery_calls_need_the_library():
    with pytest.raises(qxnetsdk.NotInitializedError):
        qxnetsdk.Sdk().get_network_param(0)


def test_lan_discovery_inside_network_namespaces():
    """Runs tests/python/lan with the library in one namespace and qxdevsim's LAN in
    another, joined by a veth pair (tests/netns/lan_netns.sh makes and removes them)."""
    if os.environ.get("QXNET_LAN_NS"):
        pytest.skip("already inside the namespaces")
    # The fixtures of this folder's conftest.py serve the LAN tests too.
    cmd = ["bash", LAN_NETNS, sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider",
           f"--rootdir={HERE}", f"--confcutdir={HERE}", os.path.join(HERE, "lan")]
    r = subprocess.run(cmd, capture_output=True, text=True, timeout=240)
    if r.returncode == 77:
        pytest.skip("no network namespaces here: " + r.stderr.strip())
    assert r.returncode == 0, r.stdout + r.stderr
    assert " passed" in r.stdout and "skipped" not in r.stdout, r.stdout
