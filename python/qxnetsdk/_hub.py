"""Fan-out of values produced on the library's threads to queues and Python callables."""
from __future__ import annotations

import queue
import sys
import threading
import traceback
from typing import Callable, Generic, List, TypeVar

T = TypeVar("T")


class Hub(Generic[T]):
    """Every published value goes to each subscribed queue and each listener."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._queues: List["queue.Queue[T]"] = []
        self._listeners: List[Callable[[T], None]] = []

    def subscribe(self, maxsize: int = 0) -> "queue.Queue[T]":
        q: "queue.Queue[T]" = queue.Queue(maxsize)
        with self._lock:
            self._queues.append(q)
        return q

    def attach(self, q: "queue.Queue[T]") -> None:
        """Subscribes an existing queue (once)."""
        with self._lock:
            if q not in self._queues:
                self._queues.append(q)

    def unsubscribe(self, q: "queue.Queue[T]") -> None:
        with self._lock:
            if q in self._queues:
                self._queues.remove(q)

    def add_listener(self, fn: Callable[[T], None]) -> None:
        with self._lock:
            self._listeners.append(fn)

    def remove_listener(self, fn: Callable[[T], None]) -> None:
        with self._lock:
            if fn in self._listeners:
                self._listeners.remove(fn)

    def publish(self, value: T) -> None:
        with self._lock:
            queues = list(self._queues)
            listeners = list(self._listeners)
        for q in queues:
            _put_dropping_oldest(q, value)
        for fn in listeners:
            try:
                fn(value)
            except Exception:  # a listener's error must not reach the library's thread
                print("qxnetsdk: exception in a listener:", file=sys.stderr)
                traceback.print_exc()


def _put_dropping_oldest(q: "queue.Queue[T]", value: T) -> None:
    # A bounded queue nobody reads keeps the newest values rather than growing.
    while True:
        try:
            q.put_nowait(value)
            return
        except queue.Full:
            try:
                q.get_nowait()
            except queue.Empty:
                pass
