"""Fixtures: a qxdevsim process on 127.0.0.1 with its control channel, and an open Sdk."""
from __future__ import annotations

import os
import socket
import subprocess
import tempfile
import time
from typing import Dict, Iterator, Sequence

import pytest

import qxnetsdk

# The discovery tests broadcast: they run only inside the namespaces that
# test_discovery.py makes (it runs them there), never on the machine's own network.
collect_ignore = [] if os.environ.get("QXNET_LAN_NS") else ["lan"]


class DevSim:
    """One qxdevsim process (binary from $QXNET_DEVSIM) and its control channel.
    ``launcher`` runs it elsewhere (``ip netns exec NS``), with its control channel on
    ``control_host``."""

    def __init__(self, *args: str, launcher: Sequence[str] = (),
                 control_host: str = "127.0.0.1") -> None:
        self.dir = tempfile.TemporaryDirectory(prefix="qxdevsim-")
        self.control_host = control_host
        ports = os.path.join(self.dir.name, "ports")
        self.proc = subprocess.Popen(
            [*launcher, os.environ["QXNET_DEVSIM"], "--listen", "127.0.0.1:0",
             "--control", f"{control_host}:0", "--port-file", ports,
             "--upload-dir", self.dir.name, "--quiet", *args])
        deadline = time.monotonic() + 10
        while not (os.path.exists(ports) and os.path.getsize(ports)) and time.monotonic() < deadline:
            time.sleep(0.02)
        self.port = self.control = 0
        with open(ports) as f:
            for line in f:
                w = line.split()
                if w[:2] == ["device", "0"]:
                    self.port = int(w[2])
                elif w and w[0] == "control":
                    self.control = int(w[1])
        assert self.port and self.control, "qxdevsim did not start"

    def cmd(self, line: str, timeout: float = 15.0) -> str:
        """Sends one control command; the reply line."""
        with socket.create_connection((self.control_host, self.control), timeout=timeout) as s:
            s.sendall(line.encode() + b"\n")
            reply = b""
            while not reply.endswith(b"\n"):
                chunk = s.recv(65536)
                if not chunk:
                    break
                reply += chunk
        return reply.decode().rstrip("\n")

    def ok(self, line: str) -> str:
        reply = self.cmd(line)
        assert reply.startswith("OK"), f"{line!r} -> {reply!r}"
        return reply

    @staticmethod
    def fields(reply: str) -> Dict[str, str]:
        return dict(w.split("=", 1) for w in reply.split() if "=" in w)

    def stop(self) -> None:
        self.cmd("QUIT")
        try:
            self.proc.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
        self.dir.cleanup()


@pytest.fixture
def devsim() -> Iterator[DevSim]:
    sim = DevSim("--account", "admin:secret")
    yield sim
    sim.stop()
    assert sim.proc.returncode == 0, "qxdevsim did not exit cleanly"


@pytest.fixture
def sdk() -> Iterator[qxnetsdk.Sdk]:
    with qxnetsdk.Sdk() as s:
        yield s
