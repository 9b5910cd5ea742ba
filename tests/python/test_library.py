"""Loading the library, its version, and results without a device."""
import os
import subprocess
import sys

import pytest

import qxnetsdk


def test_version_is_the_builds():
    assert qxnetsdk.sdk_version() == os.environ["QXNET_EXPECTED_VERSION_TEXT"]
    # pyproject.toml's version and the project's must agree.
    assert qxnetsdk.__version__ == os.environ["QXNET_EXPECTED_VERSION"]


def test_library_comes_from_QXNETSDK_LIBRARY():
    assert qxnetsdk.library_path() == os.path.realpath(os.environ["QXNETSDK_LIBRARY"])


def _probe(env):
    code = "import qxnetsdk; print(qxnetsdk.library_path()); print(qxnetsdk.sdk_version())"
    return subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True)


def test_library_found_through_the_loader_path():
    lib = os.environ["QXNETSDK_LIBRARY"]
    env = {k: v for k, v in os.environ.items() if k != "QXNETSDK_LIBRARY"}
    env["LD_LIBRARY_PATH"] = os.path.dirname(lib)
    r = _probe(env)
    assert r.returncode == 0, r.stderr
    assert r.stdout.splitlines()[0] == os.path.realpath(lib)


def test_missing_library_is_a_clear_error():
    env = dict(os.environ, QXNETSDK_LIBRARY="/nonexistent/libQXNetSDK.so.1")
    r = _probe(env)
    assert r.returncode != 0
    assert "LibraryNotFoundError" in r.stderr and "/nonexistent/libQXNetSDK.so.1" in r.stderr


def test_only_one_sdk_at_a_time(sdk):
    with pytest.raises(RuntimeError):
        qxnetsdk.Sdk().open()


def test_bad_port_is_refused_at_once(sdk):
    with pytest.raises(qxnetsdk.InvalidArgumentError) as e:
        sdk.login("127.0.0.1", 0, "admin", "secret")
    assert e.value.code == 0


def test_log_lines_reach_a_python_handler(sdk, devsim):
    lines = []
    qxnetsdk.set_log_handler(lambda level, line: lines.append((level, line)), 3)
    try:
        with sdk.login("127.0.0.1", devsim.port, "admin", "secret"):
            pass
    finally:
        qxnetsdk.set_log_handler(None)
    assert any("[SDK_LoginDev] Begin login dev=127.0.0.1" in line for _, line in lines)
    assert all(0 <= level <= 3 for level, _ in lines)
