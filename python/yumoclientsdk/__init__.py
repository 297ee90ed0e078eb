"""yumoclientsdk: the Yumo meeting client's companion SDK, from Python.

A thin layer (the standard library's ctypes) over the SDK's C interface, ymSdkC.h: the same shared
facade, main loop and checks, so everything the C++ reference says of them holds here too.

    import yumoclientsdk as ym
    ym.on_presence_status(lambda status: print(status))
    ym.register_audio_device("Headset", "1", 2830, 3)
    if ym.get_im_presence_status() == ym.COMMAND_SENT:
        ym.run(5)                       # the callback is called from in here

Answers reach the callables given to on_presence_status(), on_audio_info() and on_client_state() (the
meeting client coming and going) while the SDK's main
loop runs: run(), run_until(), or dispatch() called whenever main_loop_fd() is readable (in a
selectors or asyncio loop: loop.add_reader(ym.main_loop_fd(), ym.dispatch)). They are called on
the thread that runs the loop. An exception a callable raises is raised again by the run() or
dispatch() that called it.

The library is libYumoClientSdk.so.1 from the system's library path, or the file that the
environment variable YUMOCLIENTSDK_LIBRARY names.
"""

import ctypes
import os
import select
import time
from typing import Callable, NamedTuple, Optional

__all__ = [
    "PresenceStatus", "AudioInfo", "ClientState",
    "COMMAND_SENT", "CLIENT_NOT_INSTALLED", "CLIENT_NOT_RUNNING", "CLIENT_VERSION_NOT_SUPPORTED",
    "NOT_SIGNED_IN", "NO_TRANSPORT",
    "CLIENT_CHANGE_NONE", "CLIENT_STARTED", "CLIENT_QUIT", "CLIENT_INSTALLED", "CLIENT_REMOVED", "CLIENT_UPDATED",
    "CLIENT_MOVED", "TRANSPORT_NONE", "TRANSPORT_SOCKETS", "TRANSPORT_NOTIFICATIONS",
    "on_presence_status", "on_audio_info", "on_client_state", "client_state",
    "register_audio_device", "cleanup_audio_devices", "is_registered_device",
    "get_im_presence_status", "set_audio_cmd",
    "available_features", "register_feature", "features",
    "main_loop_fd", "dispatch", "run", "run_until", "stop",
    "check_yumo_app_error", "yumo_app_status", "error_code", "set_error_code", "error_text",
    "is_yumoapp_installed", "is_yumo_running", "yumo_client_install_path", "yumo_client_version",
    "is_supported_yumo_client_version", "is_yumo_client_support_new_ipc", "launch_yumo_client",
    "silent_active_yumo_client", "is_outlook_installed", "is_outlook_running", "outlook_version",
    "is_supported_outlook_version", "is_supported_os_version", "system_language",
    "check_app_code_sign", "check_code_sign_for_yumo_pkg",
]

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


class PresenceStatus(NamedTuple):
    """The meeting client's answer to a presence request."""
    error: bool              # the answer's result reads as failure ("0:...")
    code: int                # the result's code, the part before ":"
    text: Optional[str]      # the result's text, the part after ":"; None when there is none
    presence_status: int     # the user's presence status, as the meeting client numbers it


class AudioInfo(NamedTuple):
    """An audio event from the host process for a device this process registered."""
    audio_cmd: int
    device_index: Optional[str]
    device_name: Optional[str]


class ClientState(NamedTuple):
    """The meeting client after a change (change CLIENT_CHANGE_NONE: as it is now)."""
    change: int              # CLIENT_STARTED, CLIENT_QUIT, ...
    installed: bool          # its bundle is where it was found
    running: bool            # a process of this user runs it
    transport: int           # TRANSPORT_SOCKETS, TRANSPORT_NOTIFICATIONS, or TRANSPORT_NONE when it does not run
    version: str             # its "CFBundleVersion"; "" when it cannot be read
    install_path: str        # where it was found, or last looked for


class _PresenceRecord(ctypes.Structure):
    _fields_ = [("error", ctypes.c_byte), ("code", ctypes.c_int32), ("text", ctypes.c_char_p),
                ("presenceStatus", ctypes.c_int32)]


class _AudioRecord(ctypes.Structure):
    _fields_ = [("audioCmd", ctypes.c_int32), ("deviceIndex", ctypes.c_char_p), ("deviceName", ctypes.c_char_p)]


class _ClientStateRecord(ctypes.Structure):
    _fields_ = [("change", ctypes.c_int32), ("installed", ctypes.c_byte), ("running", ctypes.c_byte),
                ("transport", ctypes.c_int32), ("version", ctypes.c_char_p), ("installPath", ctypes.c_char_p)]


_PresenceCallback = ctypes.CFUNCTYPE(None, ctypes.POINTER(_PresenceRecord), ctypes.c_void_p)
_ClientStateCallback = ctypes.CFUNCTYPE(None, ctypes.POINTER(_ClientStateRecord), ctypes.c_void_p)
_AudioCallback = ctypes.CFUNCTYPE(None, ctypes.POINTER(_AudioRecord), ctypes.c_void_p)

_lib = ctypes.CDLL(os.environ.get("YUMOCLIENTSDK_LIBRARY") or "libYumoClientSdk.so.1")

_B, _I32, _I64, _TEXT, _V = ctypes.c_byte, ctypes.c_int32, ctypes.c_int64, ctypes.c_char_p, None
_SIGNATURES = {
    "ymSetPresenceStatusCallback": (_V, [_PresenceCallback, ctypes.c_void_p]),
    "ymSetAudioInfoCallback": (_V, [_AudioCallback, ctypes.c_void_p]),
    "ymSetClientStateCallback": (_V, [_ClientStateCallback, ctypes.c_void_p]),
    "ymGetClientState": (_B, [ctypes.POINTER(_ClientStateRecord)]),
    "ymRegisterAudioDevice": (_B, [_TEXT, _TEXT, ctypes.c_uint32, ctypes.c_uint32]),
    "ymRegisterAudioDeviceWithTexts": (_B, [_TEXT, _TEXT, _TEXT, _TEXT]),
    "ymCleanupAudioDevices": (_V, []),
    "ymIsRegisteredDevice": (_B, [_TEXT, _TEXT]),
    "ymGetIMPresenceStatus": (_I32, []),
    "ymSetAudioCmd": (_I32, [_I32, _TEXT, _TEXT, ctypes.c_uint32, ctypes.c_uint32]),
    "ymGetSDKAvailableFeatures": (_I64, []),
    "ymRegisterFeature": (_B, [_I64]),
    "ymGetFeatures": (_I64, []),
    "ymGetMainLoopDescriptor": (ctypes.c_int, []),
    "ymDispatchMainLoop": (ctypes.c_size_t, []),
    "ymRunMainLoop": (_V, []),
    "ymRunMainLoopFor": (_V, [_I64]),
    "ymStopMainLoop": (_V, []),
    "ymCheckYumoAppError": (_I32, []),
    "ymGetYumoAppStatus": (_I32, []),
    "ymGetErrorCode": (_I32, []),
    "ymSetErrorCode": (_V, [_I32]),
    "ymGetErrorText": (_TEXT, []),
    "ymIsYumoappInstalled": (_B, []),
    "ymIsYumoRunning": (_B, []),
    "ymGetYumoClientInstallPath": (_TEXT, []),
    "ymGetYumoClientVersion": (_TEXT, []),
    "ymIsSupportedYumoClientVersion": (_B, []),
    "ymIsYumoClientSupportNewIPC": (_B, []),
    "ymLaunchYumoClient": (_B, []),
    "ymSilentActiveYumoClient": (_V, []),
    "ymIsOutlookInstalled": (_B, []),
    "ymIsOutlookRunning": (_B, []),
    "ymGetOutlookVersion": (_TEXT, []),
    "ymIsSupportedOutlookVersion": (_B, []),
    "ymIsSupportedOSVersion": (_B, []),
    "ymGetSystemLanguage": (_TEXT, []),
    "ymCheckAppCodeSign": (_B, [_TEXT]),
    "ymCheckCodeSignForYumoPkg": (_B, [_TEXT]),
}
for _name, (_result, _arguments) in _SIGNATURES.items():
    _function = getattr(_lib, _name)
    _function.restype = _result
    _function.argtypes = _arguments


def _encoded(text: Optional[str]) -> Optional[bytes]:
    return None if text is None else text.encode("utf-8")


def _decoded(raw: Optional[bytes]) -> Optional[str]:
    return None if raw is None else raw.decode("utf-8", errors="replace")


# The C function pointers must live as long as the SDK may call them; an exception raised by a
# callable waits here for the run() or dispatch() that called it.
_callbacks = {}
_raised = []


def _reraise():
    if _raised:
        error = _raised.pop(0)
        _raised.clear()
        raise error


def on_presence_status(callback: Optional[Callable[[PresenceStatus], None]]) -> None:
    """Calls `callback` with a PresenceStatus for each presence answer (None: no more)."""
    def called(record, _context):
        try:
            value = record.contents
            callback(PresenceStatus(bool(value.error), value.code, _decoded(value.text), value.presenceStatus))
        except BaseException as error:  # noqa: B902 - raised again by the loop's caller
            _raised.append(error)
    _callbacks["presence"] = _PresenceCallback(called) if callback else _PresenceCallback()
    _lib.ymSetPresenceStatusCallback(_callbacks["presence"], None)


def on_audio_info(callback: Optional[Callable[[AudioInfo], None]]) -> None:
    """Calls `callback` with an AudioInfo for each audio event of a registered device (None: no more)."""
    def called(record, _context):
        try:
            value = record.contents
            callback(AudioInfo(value.audioCmd, _decoded(value.deviceIndex), _decoded(value.deviceName)))
        except BaseException as error:  # noqa: B902 - raised again by the loop's caller
            _raised.append(error)
    _callbacks["audio"] = _AudioCallback(called) if callback else _AudioCallback()
    _lib.ymSetAudioInfoCallback(_callbacks["audio"], None)


def _client_state_of(value: _ClientStateRecord) -> ClientState:
    return ClientState(value.change, bool(value.installed), bool(value.running), value.transport,
                       _decoded(value.version) or "", _decoded(value.installPath) or "")


def on_client_state(callback: Optional[Callable[[ClientState], None]]) -> None:
    """Calls `callback` with a ClientState each time the meeting client starts, quits, is installed,
    removed, updated or moved, within a second of the change (None: no more). Setting one starts the
    SDK's watch of the client; it does not poll."""
    def called(record, _context):
        try:
            callback(_client_state_of(record.contents))
        except BaseException as error:  # noqa: B902 - raised again by the loop's caller
            _raised.append(error)
    _callbacks["client"] = _ClientStateCallback(called) if callback else _ClientStateCallback()
    _lib.ymSetClientStateCallback(_callbacks["client"], None)


def client_state() -> ClientState:
    """The meeting client now."""
    record = _ClientStateRecord()
    _lib.ymGetClientState(ctypes.byref(record))
    return _client_state_of(record)


def register_audio_device(name: str, index: str, usb_vid, usb_pid) -> bool:
    """Registers a device this companion owns; the USB identifiers are stored as given (int or str)."""
    if isinstance(usb_vid, int) and isinstance(usb_pid, int):
        return bool(_lib.ymRegisterAudioDevice(_encoded(name), _encoded(index), usb_vid, usb_pid))
    return bool(_lib.ymRegisterAudioDeviceWithTexts(_encoded(name), _encoded(index), _encoded(str(usb_vid)),
                                                     _encoded(str(usb_pid))))


def cleanup_audio_devices() -> None:
    """Removes this process's devices from the shared list, releasing each (command 101)."""
    _lib.ymCleanupAudioDevices()


def is_registered_device(name: str, index: str) -> bool:
    """True when this process registered the device in its current run."""
    return bool(_lib.ymIsRegisteredDevice(_encoded(name), _encoded(index)))


def get_im_presence_status() -> int:
    """Asks for the presence status; answers a command status (COMMAND_SENT, CLIENT_NOT_RUNNING, ...)."""
    return _lib.ymGetIMPresenceStatus()


def set_audio_cmd(audio_cmd: int, device_index: str, device_name: str, usb_vid: int = 0, usb_pid: int = 0) -> int:
    """Sends an audio command for the device to the host process; answers a command status."""
    return _lib.ymSetAudioCmd(audio_cmd, _encoded(device_index), _encoded(device_name), usb_vid, usb_pid)


def available_features() -> int:
    """The features the SDK offers: 3."""
    return _lib.ymGetSDKAvailableFeatures()


def register_feature(mask: int) -> bool:
    """Stores the mask when it shares a bit with the available features."""
    return bool(_lib.ymRegisterFeature(mask))


def features() -> int:
    """The feature mask last accepted."""
    return _lib.ymGetFeatures()


def main_loop_fd() -> int:
    """A descriptor that is readable while the SDK has something to dispatch."""
    return _lib.ymGetMainLoopDescriptor()


def dispatch() -> int:
    """Runs what is ready, calling the callables; answers how many deliveries ran."""
    ran = _lib.ymDispatchMainLoop()
    _reraise()
    return ran


def run(seconds: Optional[float] = None) -> None:
    """Runs the main loop for `seconds` (None: until stop())."""
    if seconds is None:
        _lib.ymRunMainLoop()
    else:
        _lib.ymRunMainLoopFor(int(seconds * 1000))
    _reraise()


def run_until(done: Callable[[], bool], timeout: float) -> bool:
    """Runs the main loop until done() is true or `timeout` seconds have passed; answers done()."""
    deadline = time.monotonic() + timeout
    descriptor = main_loop_fd()
    while not done():
        remaining = deadline - time.monotonic()
        if remaining <= 0:
            return False
        ready, _, _ = select.select([descriptor], [], [], min(remaining, 0.5))
        if ready:
            dispatch()
    return True


def stop() -> None:
    """Makes run() return after the current round; any thread."""
    _lib.ymStopMainLoop()


def check_yumo_app_error() -> int:
    """Whether the meeting client can take a command: 0, or CLIENT_NOT_RUNNING."""
    return _lib.ymCheckYumoAppError()


def yumo_app_status() -> int:
    """1 not running (also when not installed), 2 running."""
    return _lib.ymGetYumoAppStatus()


def error_code() -> int:
    """The error code of the last check (or the last set_error_code())."""
    return _lib.ymGetErrorCode()


def set_error_code(code: int) -> None:
    """Stores an error code."""
    _lib.ymSetErrorCode(code)


def error_text() -> str:
    """The text of the stored error code, "0:Error YumoClientNotRunning" and its siblings, or ""."""
    return _decoded(_lib.ymGetErrorText()) or ""


def is_yumoapp_installed() -> bool:
    return bool(_lib.ymIsYumoappInstalled())


def is_yumo_running() -> bool:
    return bool(_lib.ymIsYumoRunning())


def yumo_client_install_path() -> Optional[str]:
    return _decoded(_lib.ymGetYumoClientInstallPath())


def yumo_client_version() -> str:
    return _decoded(_lib.ymGetYumoClientVersion()) or ""


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
    return _decoded(_lib.ymGetOutlookVersion())


def is_supported_outlook_version() -> bool:
    return bool(_lib.ymIsSupportedOutlookVersion())


def is_supported_os_version() -> bool:
    return bool(_lib.ymIsSupportedOSVersion())


def system_language() -> Optional[str]:
    return _decoded(_lib.ymGetSystemLanguage())


def check_app_code_sign(bundle_path: str) -> bool:
    return bool(_lib.ymCheckAppCodeSign(_encoded(bundle_path)))


def check_code_sign_for_yumo_pkg(package_path: str) -> bool:
    return bool(_lib.ymCheckCodeSignForYumoPkg(_encoded(package_path)))
