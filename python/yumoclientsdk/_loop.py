"""The SDK's main loop served from Python, and who hears what it delivers.

The loop is served in rounds from Python, never by a C call that blocks: between rounds the
interpreter runs its signal handlers (Ctrl-C raises KeyboardInterrupt at once, as select() is
interrupted) and sees a stop() from another thread.
"""
from __future__ import annotations

import asyncio
import os
import select
import threading
import time
from typing import Any, Callable, Dict, Generic, List, Optional, TypeVar

from . import _answers, _checks, _native
from ._answers import AudioInfo, PresenceStatus

_lib = _native.lib
T = TypeVar("T")

# The longest the loop waits in select() at once; also how often the SDK's own sources (the session
# bus) are served when nothing wakes the loop.
SLICE = 0.1

# An exception raised by a callable waits here for the run(), run_until() or dispatch() that called it.
_raised: List[BaseException] = []


def _reraise() -> None:
    if _raised:
        error = _raised[0]
        _raised.clear()
        raise error


def _set_result(future: asyncio.Future[T], value: T) -> None:
    if not future.done():
        future.set_result(value)


def _settle(future: asyncio.Future[T], value: T) -> None:
    """Resolves the future on its own loop's thread, whichever thread dispatched."""
    loop = future.get_loop()
    try:
        here = asyncio.get_running_loop() is loop
    except RuntimeError:
        here = False
    if here:
        _set_result(future, value)
        return
    try:
        loop.call_soon_threadsafe(_set_result, future, value)
    except RuntimeError:
        pass  # its loop is closed: nobody awaits it any more


class Listeners(Generic[T]):
    """Who hears one kind of delivery: the companion's callable and the futures awaiting the next
    one, all of them. The SDK has the C callback while either is there; the C function pointer
    lives as long as this object, as the SDK may call it until it is replaced."""

    def __init__(self, set_native: Callable[[Any, None], None], native_type: Any,
                 convert: Callable[[Any], T]) -> None:
        self._set_native = set_native
        self._convert = convert
        self._none = native_type()
        self._native = native_type(self._called)
        self._lock = threading.Lock()
        self._callback: Optional[Callable[[T], object]] = None
        self._waiters: List[asyncio.Future[T]] = []

    def set_callback(self, callback: Optional[Callable[[T], object]]) -> None:
        with self._lock:
            self._callback = callback
            self._connect()

    def wait(self, loop: asyncio.AbstractEventLoop) -> asyncio.Future[T]:
        future: asyncio.Future[T] = loop.create_future()
        with self._lock:
            self._waiters.append(future)
            self._connect()
        return future

    def forget(self, future: asyncio.Future[T]) -> None:
        with self._lock:
            if future in self._waiters:
                self._waiters.remove(future)
            self._connect()

    def _connect(self) -> None:
        wanted = self._callback is not None or bool(self._waiters)
        self._set_native(self._native if wanted else self._none, None)

    def _called(self, record: Any, _context: Any) -> None:
        with self._lock:
            callback, waiters, self._waiters = self._callback, self._waiters, []
        try:
            value = self._convert(record.contents)
            for future in waiters:
                _settle(future, value)
            if callback is not None:
                callback(value)
        except BaseException as error:  # noqa: B902 - raised again by the loop's caller
            _raised.append(error)


presence = Listeners(_lib.ymSetPresenceStatusCallback, _native.PresenceCallback, _answers.presence_status)
audio = Listeners(_lib.ymSetAudioInfoCallback, _native.AudioCallback, _answers.audio_info)
client = Listeners(_lib.ymSetClientStateCallback, _native.ClientStateCallback, _answers.client_state)

# Set by stop() until a run() or run_until() has seen it.
_stopping = threading.Event()


def main_loop_fd() -> int:
    """A descriptor that is readable while the SDK has something to dispatch."""
    return int(_lib.ymGetMainLoopDescriptor())


def dispatch() -> int:
    """Runs what is ready, calling the callables, without waiting; answers how many deliveries ran.
    An exception a callable raised is raised again here."""
    ran = int(_lib.ymDispatchMainLoop())
    _reraise()
    return ran


def serve(done: Optional[Callable[[], object]], seconds: Optional[float]) -> bool:
    """Runs the loop until done() is true, stop() is called or the time is up; answers whether
    done() was true."""
    deadline = None if seconds is None else time.monotonic() + seconds
    descriptor = main_loop_fd()
    while True:
        # One round of the SDK's loop: runs what is ready, and takes back a stop() it was told of.
        _lib.ymRunMainLoopFor(0)
        _reraise()
        if done is not None and done():
            return True
        if _stopping.is_set():
            _stopping.clear()
            return False
        wait = SLICE
        if deadline is not None:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                return False
            wait = min(wait, remaining)
        select.select([descriptor], [], [], wait)


def stop() -> None:
    """Makes run() and run_until() return after the current round: from any thread, from inside a
    callable, and also when called just before them (the next one returns after one round)."""
    _stopping.set()
    _lib.ymStopMainLoop()  # wakes the loop's descriptor


# Per asyncio loop: the duplicate of the loop's descriptor it watches, and how many attach() it took.
_attached: Dict[asyncio.AbstractEventLoop, List[int]] = {}


def _event_loop(loop: Optional[asyncio.AbstractEventLoop]) -> asyncio.AbstractEventLoop:
    if loop is None:
        return asyncio.get_running_loop()
    if not isinstance(loop, asyncio.AbstractEventLoop):
        raise TypeError(f"loop must be an asyncio event loop or None, not {type(loop).__name__}")
    return loop


def attach(loop: Optional[asyncio.AbstractEventLoop] = None) -> None:
    """Serves the SDK's main loop from the asyncio loop (the running one when None): dispatch() is
    called whenever the SDK has something to deliver. Counted: the loop is served until as many
    detach() calls as attach() calls. It watches a duplicate of main_loop_fd() of its own, so a
    companion's loop.add_reader(ym.main_loop_fd(), ym.dispatch) goes on working beside it. An
    exception a callable raises goes to the asyncio loop's exception handler."""
    loop = _event_loop(loop)
    entry = _attached.get(loop)
    if entry is not None:
        entry[1] += 1
        return
    descriptor = os.dup(main_loop_fd())
    try:
        loop.add_reader(descriptor, dispatch)
    except BaseException:
        os.close(descriptor)
        raise
    _attached[loop] = [descriptor, 1]


def detach(loop: Optional[asyncio.AbstractEventLoop] = None) -> None:
    """Undoes one attach() of the asyncio loop (the running one when None)."""
    loop = _event_loop(loop)
    entry = _attached.get(loop)
    if entry is None:
        raise RuntimeError("detach() without attach() for this event loop")
    entry[1] -= 1
    if entry[1] == 0:
        del _attached[loop]
        loop.remove_reader(entry[0])
        os.close(entry[0])


async def _next(listeners: Listeners[T], timeout: object) -> T:
    seconds = _checks.seconds("timeout", timeout)
    loop = asyncio.get_running_loop()
    future = listeners.wait(loop)
    attach(loop)
    try:
        return await asyncio.wait_for(future, seconds)
    finally:
        detach(loop)
        listeners.forget(future)


async def wait_presence_status(timeout: float = 5.0) -> PresenceStatus:
    """Awaits the next presence answer, serving the SDK's loop meanwhile (attach()); raises
    asyncio.TimeoutError (TimeoutError) when none came within `timeout` seconds. The callable given
    to on_presence_status() is called as well. Answers are delivered only while the loop is served,
    so awaiting this right after get_im_presence_status() answered COMMAND_SENT misses none."""
    return await _next(presence, timeout)


async def wait_audio_info(timeout: float = 5.0) -> AudioInfo:
    """Awaits the next audio event for a device this process registered, as wait_presence_status()
    awaits a presence answer."""
    return await _next(audio, timeout)
