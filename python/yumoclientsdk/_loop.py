"""The SDK's main loop served from Python, and who hears what it delivers.

The loop waits on the main loop's descriptor with poll(): it wakes when there is something to
dispatch, when stop() wakes the descriptor, or at its deadline, and sleeps otherwise. The session
bus needs nothing from here (the SDK's own I/O thread serves it). A signal interrupts the wait and
Python runs its handler there: Ctrl-C raises KeyboardInterrupt at once, as does whatever else a
handler raises, and a handler that returns lets the wait go on (PEP 475).

An exception a callable raises is kept by the dispatch that called it, on its own thread, and
raised again when that dispatch returns: never in another thread, never by another dispatch (a
run_until() inside a callable raises only what its own rounds called).

A callable ends when it is removed: once on_...(None) or a replacement returned, it is not called
again, neither for the rest of a batch being delivered nor by a dispatch on another thread. A
removal from another thread waits for a call of the old callable that is under way there; one from
the thread that runs the call (the callable removing itself) does not wait for it.
"""
from __future__ import annotations

import asyncio
import itertools
import os
import select
import threading
import time
from typing import Any, Callable, Dict, Generic, List, Optional, Tuple, TypeVar

from . import _answers, _checks, _native
from ._answers import AudioInfo, PresenceStatus

_lib = _native.lib
T = TypeVar("T")

# The longest single wait in poll(), whose timeout is an int of milliseconds: a longer run waits again.
_LONGEST_WAIT_MS = 86_400_000


class _Dispatches(threading.local):
    """Per thread: the exceptions raised by callables during the innermost dispatch this thread runs
    from Python (None outside one), and how many calls of callables are under way on it."""

    def __init__(self) -> None:
        self.raised: Optional[List[BaseException]] = None
        self.calls = 0


_dispatches = _Dispatches()


def _dispatching(call: Callable[[], T]) -> T:
    """Makes a C call that may call the callables on this thread, and raises again what they raised:
    a KeyboardInterrupt or SystemExit first, otherwise the first exception."""
    outer = _dispatches.raised
    raised: List[BaseException] = []
    _dispatches.raised = raised
    try:
        result = call()
    finally:
        _dispatches.raised = outer
    if raised:
        raise next((error for error in raised if not isinstance(error, Exception)), raised[0])
    return result


def _keep(error: BaseException) -> bool:
    """Keeps a callable's exception for the dispatch running on this thread; False when no dispatch
    made from Python runs here (the loop is run from C), and nobody could raise it again."""
    raised = _dispatches.raised
    if raised is None:
        return False
    raised.append(error)
    return True


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
    lives as long as this object, as the SDK may call it until it is replaced.

    Each delivery reads the callable afresh and counts as a call under way until the callable
    returns, so that a removal can wait for it. The SDK is told of the C callback by one thread at
    a time and never with the lock held: the SDK may wait, while it takes the callback back, for a
    delivery under way, and that delivery takes the lock."""

    def __init__(self, set_native: Callable[[Any, None], None], native_type: Any,
                 convert: Callable[[Any], T]) -> None:
        self._set_native = set_native
        self._convert = convert
        self._none = native_type()
        self._native = native_type(self._called)
        self._changed = threading.Condition()  # guards what follows, and tells of each change
        self._callback: Optional[Callable[[T], object]] = None
        self._waiters: List[asyncio.Future[T]] = []
        # The calls of callables under way, each with its thread.
        self._calls: Dict[int, Tuple[int, Callable[[T], object]]] = {}
        self._call_numbers = itertools.count()
        self._connected: Optional[bool] = False  # whether the SDK has the C callback; None: unknown
        self._connector: Optional[int] = None  # the thread telling the SDK now
        if hasattr(os, "register_at_fork"):
            os.register_at_fork(after_in_child=self._after_fork)

    def set_callback(self, callback: Optional[Callable[[T], object]]) -> None:
        with self._changed:
            old, self._callback = self._callback, callback
        self._connect()
        if old is not None and old is not callback:
            self._wait_for_calls_of(old)

    def wait(self, loop: asyncio.AbstractEventLoop) -> asyncio.Future[T]:
        future: asyncio.Future[T] = loop.create_future()
        with self._changed:
            self._waiters.append(future)
        self._connect()
        return future

    def forget(self, future: asyncio.Future[T]) -> None:
        with self._changed:
            if future in self._waiters:
                self._waiters.remove(future)
        self._connect()

    def _wait_for_calls_of(self, callback: Callable[[T], object]) -> None:
        """Returns once no other thread is in a call of `callback`; a call on this thread is the
        caller's own (a callable replacing itself) and is not waited for."""
        me = threading.get_ident()
        with self._changed:
            self._changed.wait_for(lambda: not any(thread != me and called is callback
                                                   for thread, called in self._calls.values()))

    def _connect(self) -> None:
        """Tells the SDK whether anyone listens, once the SDK's callback and this object disagree.
        The thread telling it goes on until they agree, so a thread that finds another one telling
        waits for it; except a thread in a call of a callable, which leaves it to that one: the SDK
        may be waiting for this very call to end."""
        me = threading.get_ident()
        with self._changed:
            if self._connector is not None:
                if _dispatches.calls:
                    return
                self._changed.wait_for(lambda: self._connector is None)
                return  # the last look of the thread that told the SDK saw this thread's change
            self._connector = me
        told = self._connected
        try:
            while True:
                with self._changed:
                    self._connected = told
                    wanted = self._callback is not None or bool(self._waiters)
                    if wanted == told:
                        self._connector = None
                        self._changed.notify_all()
                        return
                self._set_native(self._native if wanted else self._none, None)
                told = wanted
        except BaseException:
            with self._changed:
                self._connector = None
                self._changed.notify_all()
            raise

    def _called(self, record: Any, _context: Any) -> None:
        with self._changed:
            callback, waiters, self._waiters = self._callback, self._waiters, []
            number = next(self._call_numbers)
            if callback is not None:
                self._calls[number] = (threading.get_ident(), callback)
        try:
            value = self._convert(record.contents)
            for future in waiters:
                _settle(future, value)
            if callback is not None:
                _dispatches.calls += 1
                try:
                    callback(value)
                finally:
                    _dispatches.calls -= 1
        except BaseException as error:  # noqa: B902 - raised again by the dispatch that called it
            if not _keep(error):
                raise  # the loop runs from C: ctypes reports it as unraisable
        finally:
            if callback is not None:
                with self._changed:
                    del self._calls[number]
                    self._changed.notify_all()

    def _after_fork(self) -> None:
        # The child has only the thread that forked: the calls and the telling of the other
        # threads are not under way there, and the lock may have been held by one of them.
        me = threading.get_ident()
        self._changed = threading.Condition()
        self._calls = {number: call for number, call in self._calls.items() if call[0] == me}
        if self._connector != me:
            self._connector = None
        self._connected = None  # the child's SDK starts afresh: the next change tells it anyway


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
    return _dispatching(lambda: int(_lib.ymDispatchMainLoop()))


def serve(done: Optional[Callable[[], object]], seconds: Optional[float]) -> bool:
    """Runs the loop until done() is true, stop() is called or the time is up; answers whether
    done() was true. Each round dispatches once, then waits until the loop's descriptor is readable
    (there is more to dispatch, or stop() woke it) or the time is up."""
    deadline = None if seconds is None else time.monotonic() + seconds
    descriptor = main_loop_fd()
    if descriptor < 0:
        raise RuntimeError("the SDK's main loop has no descriptor to wait on")
    waiting = select.poll()
    waiting.register(descriptor, select.POLLIN)
    while True:
        dispatch()
        if done is not None and done():
            return True
        if _stopping.is_set():
            _stopping.clear()
            return False
        wait: Optional[float] = None
        if deadline is not None:
            remaining = deadline - time.monotonic()
            if remaining <= 0:
                return False
            wait = min(remaining * 1000, _LONGEST_WAIT_MS)  # rounded up by poll(): no early wake
        for _, events in waiting.poll(wait):
            if events & select.POLLNVAL:
                raise OSError(f"the SDK's main loop descriptor {descriptor} was closed")


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
