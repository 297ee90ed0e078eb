"""yumoclientsdk: the Yumo meeting client's companion SDK, from Python.

A thin layer (the standard library's ctypes) over the SDK's C interface, ymSdkC.h: the same shared
facade, main loop and checks, so everything the C++ reference says of them holds here too.

    import yumoclientsdk as ym
    ym.on_presence_status(print)
    ym.register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3)
    if ym.get_im_presence_status() == ym.COMMAND_SENT:
        ym.run(5)                       # print() is called from in here
    ym.set_audio_cmd(5, device_index="1", device_name="Headset", usb_vid=2830, usb_pid=3)

Name the device by keyword: register_audio_device() and is_registered_device() take the name
first, set_audio_cmd() the index first (both kept so for the programs that pass them by position).

The main loop. Answers reach the callables given to on_presence_status(), on_audio_info() and
on_client_state() (the meeting client coming and going) while the SDK's main loop is served, on
the thread that serves it:
- run(seconds) or run_until(done, timeout): they return on stop() (from any thread, or from a
  callable), and Ctrl-C ends them at once with KeyboardInterrupt (as does an exception another
  signal handler raises). They sleep on main_loop_fd() while there is nothing to deliver.
- dispatch() whenever main_loop_fd() is readable, from a loop of the companion's own (selectors,
  or asyncio's loop.add_reader(ym.main_loop_fd(), ym.dispatch)).
- asyncio: attach(loop) serves it from the loop until detach(loop); and
  `await wait_presence_status(timeout=5)` / `await wait_audio_info(timeout=5)` await the next
  answer, serving the loop meanwhile (asyncio.TimeoutError when none came in time).
An exception a callable raises is raised again by the run(), run_until() or dispatch() that called
it, on the thread that dispatched and never on another one. A callable given to on_...() is called
until on_...(None) or a replacement returns, and never after, not even for the rest of a batch of
answers; from another thread, that call waits for a call of the old callable under way, and from
inside the callable itself it does not. Answers are delivered in the order they arrived, also when a
callable runs the loop itself.

Numbers. The command statuses (COMMAND_SENT, CLIENT_NOT_RUNNING, ...) and the client's changes and
transports are the SDK's own, named below. The one audio command the SDK itself sends is
AUDIO_CMD_RELEASE (101): cleanup_audio_devices() sends it for each of this process's devices.
Every other audio command code, and every presence status value, is chosen by the meeting client
and its host process and passed through unchanged; a presence answer without a status reads 0, an
audio event without a command 0. A companion acts on the codes it knows and passes through or
ignores the others: a code it does not know is not an error, as newer meeting clients may send new
ones.

Arguments are checked where they enter: a TypeError or ValueError names the argument and what it
takes. Device names and indexes are str (no NUL); USB identifiers an int from 0 to 65535 or, when
registering, a str stored as the text it is; times a number of seconds from 0 to MAX_SECONDS.

Standard error and the log. When the facade is created (by the first call that needs it), the SDK
sends its log to yumoclientsdk.log in the group container ($HOME/Library/Group Containers/
Q4W7N2R8TX.YumoClient3rd) and, by default, puts that file in place of the process's standard error
(descriptor 2), so whatever is written there lands in the log. This module keeps Python's own
standard error apart: on import it points sys.stderr at a duplicate of descriptor 2, so tracebacks
and warnings still reach the terminal or pipe the program was started with (a logging handler made
before the import still holds the old stream, and child processes write to descriptor 2). configure_log(keep_stderr=True), called before
anything else, leaves descriptor 2 alone and writes the log to its file only; the environment
variable YUMOCLIENTSDK_STDERR=keep does the same for a program that cannot be changed. The log file
is started afresh once it passes 10 MiB while the program runs: configure_log(size_limit=bytes)
or YUMOCLIENTSDK_LOG_LIMIT (bytes; 0 for never) sets another size.

The library is libYumoClientSdk.so.1 from the system's library path, or the file that the
environment variable YUMOCLIENTSDK_LIBRARY names.
"""
from __future__ import annotations

# First of all, before anything calls into the library: Python's standard error kept apart.
from . import _stderr  # noqa: F401  # isort: skip

import ctypes
import os
from typing import Callable, Optional, Union

from . import _checks, _loop, _native
from ._answers import AudioInfo, ClientState, PresenceStatus
from ._answers import client_state as _client_state_of
from ._checks import MAX_SECONDS
from ._loop import attach, detach, dispatch, main_loop_fd, stop, wait_audio_info, wait_presence_status

__version__ = "1.2.0"

__all__ = [
    "PresenceStatus", "AudioInfo", "ClientState", "MAX_SECONDS", "AUDIO_CMD_RELEASE",
    "COMMAND_SENT", "CLIENT_NOT_INSTALLED", "CLIENT_NOT_RUNNING", "CLIENT_VERSION_NOT_SUPPORTED",
    "NOT_SIGNED_IN", "NO_TRANSPORT",
    "CLIENT_CHANGE_NONE", "CLIENT_STARTED", "CLIENT_QUIT", "CLIENT_INSTALLED", "CLIENT_REMOVED", "CLIENT_UPDATED",
    "CLIENT_MOVED", "TRANSPORT_NONE", "TRANSPORT_SOCKETS", "TRANSPORT_NOTIFICATIONS",
    "configure_log",
    "on_presence_status", "on_audio_info", "on_client_state", "client_state",
    "register_audio_device", "cleanup_audio_devices", "is_registered_device",
    "get_im_presence_status", "set_audio_cmd",
    "available_features", "register_feature", "features",
    "main_loop_fd", "dispatch", "run", "run_until", "stop",
    "attach", "detach", "wait_presence_status", "wait_audio_info",
    "check_yumo_app_error", "yumo_app_status", "error_code", "set_error_code", "error_text",
    "is_yumoapp_installed", "is_yumo_running", "yumo_client_install_path", "yumo_client_version",
    "is_supported_yumo_client_version", "is_yumo_client_support_new_ipc", "launch_yumo_client",
    "silent_active_yumo_client", "is_outlook_installed", "is_outlook_running", "outlook_version",
    "is_supported_outlook_version", "is_supported_os_version", "system_language",
    "check_app_code_sign", "check_code_sign_for_yumo_pkg",
]

_lib = _native.lib

# The command statuses (ymCommandStatus.h): what get_im_presence_status() and set_audio_cmd() answer.
COMMAND_SENT = 0
CLIENT_NOT_INSTALLED = 2
CLIENT_NOT_RUNNING = 5
CLIENT_VERSION_NOT_SUPPORTED = 6
NOT_SIGNED_IN = 7
NO_TRANSPORT = 8

# What changed about the meeting client (ymClientState.h), and the transport commands take now.
CLIENT_CHANGE_NONE = 0
CLIENT_STARTED = 1
CLIENT_QUIT = 2
CLIENT_INSTALLED = 3
CLIENT_REMOVED = 4
CLIENT_UPDATED = 5
CLIENT_MOVED = 6
TRANSPORT_NONE = 0
TRANSPORT_SOCKETS = 1
TRANSPORT_NOTIFICATIONS = 2

# The audio command the SDK sends for each of this process's devices when it cleans up: the device
# is released. Every other code is the host process's.
AUDIO_CMD_RELEASE = 101

_LOG_SIZE_LEAST = 65536


def configure_log(*, keep_stderr: Optional[bool] = None, size_limit: Optional[int] = None) -> None:
    """Chooses where the SDK's log goes; None leaves a choice as it is.

    keep_stderr=True: the SDK writes its log to its file only and leaves descriptor 2 alone;
    False (the default, unless YUMOCLIENTSDK_STDERR=keep): the log file takes descriptor 2's place.
    Only before the facade exists: RuntimeError once it does, so call this first.
    size_limit: the size in bytes past which the log file is started afresh while the program runs
    (10 MiB unless set; 0 for never; otherwise at least 65536). Also later on.
    """
    if keep_stderr is not None:
        _checks.flag("keep_stderr", keep_stderr)
    if size_limit is not None:
        _checks.integer("size_limit", size_limit, (0, 2**64 - 1))
        if 0 < size_limit < _LOG_SIZE_LEAST:
            raise ValueError(f"size_limit must be 0 (never) or from {_LOG_SIZE_LEAST} bytes, not {size_limit}")
    if keep_stderr is not None and not _native.newer_function("ymSetTakesStandardError")(not keep_stderr):
        raise RuntimeError("the SDK's log is already in place: call configure_log(keep_stderr=...) "
                           "before anything else of the module")
    if size_limit is not None and not _native.newer_function("ymSetLogSizeLimit")(size_limit):
        raise ValueError(f"size_limit {size_limit} was refused by the SDK")


def on_presence_status(callback: Optional[Callable[[PresenceStatus], object]]) -> None:
    """Calls `callback` with a PresenceStatus for each presence answer (None: no more)."""
    _loop.presence.set_callback(_checks.callback("callback", callback))


def on_audio_info(callback: Optional[Callable[[AudioInfo], object]]) -> None:
    """Calls `callback` with an AudioInfo for each audio event of a device this process registered
    (None: no more)."""
    _loop.audio.set_callback(_checks.callback("callback", callback))


def on_client_state(callback: Optional[Callable[[ClientState], object]]) -> None:
    """Calls `callback` with a ClientState each time the meeting client starts, quits, is installed,
    removed, updated or moved, within a second of the change (None: no more). Setting one starts the
    SDK's watch of the client; it does not poll."""
    _loop.client.set_callback(_checks.callback("callback", callback))


def client_state() -> ClientState:
    """The meeting client now."""
    record = _native.ClientStateRecord()
    _lib.ymGetClientState(ctypes.byref(record))
    return _client_state_of(record)


def register_audio_device(name: str, index: str, usb_vid: Union[int, str], usb_pid: Union[int, str]) -> bool:
    """Registers a device this companion owns, e.g.
    register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3).
    The USB identifiers are stored as given: ints from 0 to 65535 as numbers, str as texts
    ("0x0B0E"; beside a str, an int is stored as its decimal text). False for an empty name or
    index."""
    name_bytes, index_bytes = _checks.text("name", name), _checks.text("index", index)
    vid, pid = _checks.usb_id("usb_vid", usb_vid), _checks.usb_id("usb_pid", usb_pid)
    if isinstance(vid, int) and isinstance(pid, int):
        return bool(_lib.ymRegisterAudioDevice(name_bytes, index_bytes, vid, pid))
    vid_text = str(vid).encode() if isinstance(vid, int) else vid
    pid_text = str(pid).encode() if isinstance(pid, int) else pid
    return bool(_lib.ymRegisterAudioDeviceWithTexts(name_bytes, index_bytes, vid_text, pid_text))


def cleanup_audio_devices() -> None:
    """Removes this process's devices from the shared list, sending AUDIO_CMD_RELEASE for each.
    Call it before the companion quits."""
    _lib.ymCleanupAudioDevices()


def is_registered_device(name: str, index: str) -> bool:
    """True when this process registered the device in its current run."""
    return bool(_lib.ymIsRegisteredDevice(_checks.text("name", name), _checks.text("index", index)))


def get_im_presence_status() -> int:
    """Asks for the presence status; answers a command status (COMMAND_SENT, CLIENT_NOT_RUNNING, ...).
    The answer comes to on_presence_status()'s callable, or to wait_presence_status()."""
    return int(_lib.ymGetIMPresenceStatus())


def set_audio_cmd(audio_cmd: int, device_index: str, device_name: str, usb_vid: int = 0, usb_pid: int = 0) -> int:
    """Sends an audio command (a signed 32-bit code, as the host process numbers it) for the device to
    the host process, e.g. set_audio_cmd(5, device_index="1", device_name="Headset", usb_vid=2830,
    usb_pid=3); the USB identifiers are ints from 0 to 65535. Answers a command status."""
    return int(_lib.ymSetAudioCmd(_checks.integer("audio_cmd", audio_cmd, _checks.INT32),
                                  _checks.text("device_index", device_index),
                                  _checks.text("device_name", device_name),
                                  _checks.integer("usb_vid", usb_vid, _checks.USB_ID),
                                  _checks.integer("usb_pid", usb_pid, _checks.USB_ID)))


def available_features() -> int:
    """The features the SDK offers: 3."""
    return int(_lib.ymGetSDKAvailableFeatures())


def register_feature(mask: int) -> bool:
    """Stores the mask (a signed 64-bit int) when it shares a bit with the available features."""
    return bool(_lib.ymRegisterFeature(_checks.integer("mask", mask, _checks.INT64)))


def features() -> int:
    """The feature mask last accepted."""
    return int(_lib.ymGetFeatures())


def run(seconds: Optional[float] = None) -> None:
    """Serves the main loop for `seconds` (None: until stop()), or until stop()."""
    _loop.serve(None, _checks.seconds_or_none("seconds", seconds))


def run_until(done: Callable[[], object], timeout: float) -> bool:
    """Serves the main loop until done() is true (tested after each round), stop() is called or
    `timeout` seconds have passed; answers whether done() was true."""
    if not callable(done):
        raise TypeError(f"done must be callable, not {type(done).__name__}")
    return _loop.serve(done, _checks.seconds("timeout", timeout))


def check_yumo_app_error() -> int:
    """Whether the meeting client can take a command: 0, or CLIENT_NOT_RUNNING."""
    return int(_lib.ymCheckYumoAppError())


def yumo_app_status() -> int:
    """1 not running (also when not installed), 2 running."""
    return int(_lib.ymGetYumoAppStatus())


def error_code() -> int:
    """The error code of the last check (or the last set_error_code())."""
    return int(_lib.ymGetErrorCode())


def set_error_code(code: int) -> None:
    """Stores an error code (a signed 32-bit int)."""
    _lib.ymSetErrorCode(_checks.integer("code", code, _checks.INT32))


def error_text() -> str:
    """The text of the stored error code, "0:Error YumoClientNotRunning" and its siblings, or ""."""
    return _native.decoded(_lib.ymGetErrorText()) or ""


def is_yumoapp_installed() -> bool:
    return bool(_lib.ymIsYumoappInstalled())


def is_yumo_running() -> bool:
    return bool(_lib.ymIsYumoRunning())


def yumo_client_install_path() -> Optional[str]:
    return _native.decoded(_lib.ymGetYumoClientInstallPath())


def yumo_client_version() -> str:
    return _native.decoded(_lib.ymGetYumoClientVersion()) or ""


def is_supported_yumo_client_version() -> bool:
    return bool(_lib.ymIsSupportedYumoClientVersion())


def is_yumo_client_support_new_ipc() -> bool:
    return bool(_lib.ymIsYumoClientSupportNewIPC())


def launch_yumo_client() -> bool:
    return bool(_lib.ymLaunchYumoClient())


def silent_active_yumo_client() -> None:
    _lib.ymSilentActiveYumoClient()


def is_outlook_installed() -> bool:
    return bool(_lib.ymIsOutlookInstalled())


def is_outlook_running() -> bool:
    return bool(_lib.ymIsOutlookRunning())


def outlook_version() -> Optional[str]:
    return _native.decoded(_lib.ymGetOutlookVersion())


def is_supported_outlook_version() -> bool:
    return bool(_lib.ymIsSupportedOutlookVersion())


def is_supported_os_version() -> bool:
    return bool(_lib.ymIsSupportedOSVersion())


def system_language() -> Optional[str]:
    return _native.decoded(_lib.ymGetSystemLanguage())


def check_app_code_sign(bundle_path: Union[str, os.PathLike[str]]) -> bool:
    return bool(_lib.ymCheckAppCodeSign(_checks.path("bundle_path", bundle_path)))


def check_code_sign_for_yumo_pkg(package_path: Union[str, os.PathLike[str]]) -> bool:
    return bool(_lib.ymCheckCodeSignForYumoPkg(_checks.path("package_path", package_path)))
