"""The library and its C types (ymSdkC.h), as ctypes sees them.

The library is libYumoClientSdk.so.1 from the system's library path, or the file that the
environment variable YUMOCLIENTSDK_LIBRARY names. Loading it calls nothing in it: the facade is
created by the first call that needs it.
"""
from __future__ import annotations

import ctypes
import os
from typing import Any, Dict, List, Optional, Tuple, Type


class PresenceRecord(ctypes.Structure):
    _fields_ = [("error", ctypes.c_byte), ("code", ctypes.c_int32), ("text", ctypes.c_char_p),
                ("presenceStatus", ctypes.c_int32)]


class AudioRecord(ctypes.Structure):
    _fields_ = [("audioCmd", ctypes.c_int32), ("deviceIndex", ctypes.c_char_p), ("deviceName", ctypes.c_char_p)]


class ClientStateRecord(ctypes.Structure):
    _fields_ = [("change", ctypes.c_int32), ("installed", ctypes.c_byte), ("running", ctypes.c_byte),
                ("transport", ctypes.c_int32), ("version", ctypes.c_char_p), ("installPath", ctypes.c_char_p)]


PresenceCallback = ctypes.CFUNCTYPE(None, ctypes.POINTER(PresenceRecord), ctypes.c_void_p)
AudioCallback = ctypes.CFUNCTYPE(None, ctypes.POINTER(AudioRecord), ctypes.c_void_p)
ClientStateCallback = ctypes.CFUNCTYPE(None, ctypes.POINTER(ClientStateRecord), ctypes.c_void_p)

_B, _I32, _U32, _I64, _TEXT = ctypes.c_byte, ctypes.c_int32, ctypes.c_uint32, ctypes.c_int64, ctypes.c_char_p
_SIGNATURES: Dict[str, Tuple[Optional[Type[Any]], List[Type[Any]]]] = {
    "ymSetPresenceStatusCallback": (None, [PresenceCallback, ctypes.c_void_p]),
    "ymSetAudioInfoCallback": (None, [AudioCallback, ctypes.c_void_p]),
    "ymSetClientStateCallback": (None, [ClientStateCallback, ctypes.c_void_p]),
    "ymGetClientState": (_B, [ctypes.POINTER(ClientStateRecord)]),
    "ymSetTakesStandardError": (_B, [_B]),
    "ymSetLogSizeLimit": (_B, [ctypes.c_uint64]),
    "ymRegisterAudioDevice": (_B, [_TEXT, _TEXT, _U32, _U32]),
    "ymRegisterAudioDeviceWithTexts": (_B, [_TEXT, _TEXT, _TEXT, _TEXT]),
    "ymCleanupAudioDevices": (None, []),
    "ymIsRegisteredDevice": (_B, [_TEXT, _TEXT]),
    "ymGetIMPresenceStatus": (_I32, []),
    "ymSetAudioCmd": (_I32, [_I32, _TEXT, _TEXT, _U32, _U32]),
    "ymGetSDKAvailableFeatures": (_I64, []),
    "ymRegisterFeature": (_B, [_I64]),
    "ymGetFeatures": (_I64, []),
    "ymGetMainLoopDescriptor": (ctypes.c_int, []),
    "ymDispatchMainLoop": (ctypes.c_size_t, []),
    "ymRunMainLoopFor": (None, [_I64]),
    "ymStopMainLoop": (None, []),
    "ymCheckYumoAppError": (_I32, []),
    "ymGetYumoAppStatus": (_I32, []),
    "ymGetErrorCode": (_I32, []),
    "ymSetErrorCode": (None, [_I32]),
    "ymGetErrorText": (_TEXT, []),
    "ymIsYumoappInstalled": (_B, []),
    "ymIsYumoRunning": (_B, []),
    "ymGetYumoClientInstallPath": (_TEXT, []),
    "ymGetYumoClientVersion": (_TEXT, []),
    "ymIsSupportedYumoClientVersion": (_B, []),
    "ymIsYumoClientSupportNewIPC": (_B, []),
    "ymLaunchYumoClient": (_B, []),
    "ymSilentActiveYumoClient": (None, []),
    "ymIsOutlookInstalled": (_B, []),
    "ymIsOutlookRunning": (_B, []),
    "ymGetOutlookVersion": (_TEXT, []),
    "ymIsSupportedOutlookVersion": (_B, []),
    "ymIsSupportedOSVersion": (_B, []),
    "ymGetSystemLanguage": (_TEXT, []),
    "ymCheckAppCodeSign": (_B, [_TEXT]),
    "ymCheckCodeSignForYumoPkg": (_B, [_TEXT]),
}

lib = ctypes.CDLL(os.environ.get("YUMOCLIENTSDK_LIBRARY") or "libYumoClientSdk.so.1")
# Functions a library built before them lacks: the module loads without them, and configure_log()
# tells that they are missing.
_NEWER = {"ymSetTakesStandardError", "ymSetLogSizeLimit"}

for _name, (_result, _arguments) in _SIGNATURES.items():
    try:
        _function = getattr(lib, _name)
    except AttributeError:
        if _name in _NEWER:
            continue
        raise
    _function.restype = _result
    _function.argtypes = _arguments


def decoded(raw: Optional[bytes]) -> Optional[str]:
    """A text the SDK answered, which it keeps as UTF-8."""
    return None if raw is None else raw.decode("utf-8", errors="replace")


def newer_function(name: str) -> Any:
    """One of the functions a library may lack; RuntimeError when this one does."""
    try:
        return getattr(lib, name)
    except AttributeError:
        raise RuntimeError(f"{lib._name} has no {name}(): a newer libYumoClientSdk is needed") from None
