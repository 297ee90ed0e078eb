"""Arguments checked where they enter the module: a TypeError for a value of the wrong kind, a
ValueError for one of the right kind out of range, each naming the argument and what it takes.
Nothing is converted by guessing: 1.5 is no index, None no name, 2**40 no USB identifier."""
from __future__ import annotations

import os
from typing import Callable, Optional, TypeVar, Union

# The longest wait taken, in seconds: what a signed 64-bit count of milliseconds holds.
MAX_SECONDS = (2**63 - 1) // 1000

INT32 = (-2**31, 2**31 - 1)
INT64 = (-2**63, 2**63 - 1)
USB_ID = (0, 0xFFFF)

_Callable = TypeVar("_Callable", bound=Callable[..., object])


def _kind(value: object) -> str:
    return type(value).__name__


def integer(argument: str, value: object, bounds: tuple[int, int]) -> int:
    """An int within the bounds (a bool is no number here)."""
    low, high = bounds
    accepted = f"{argument} must be an int from {low} to {high}"
    if not isinstance(value, int) or isinstance(value, bool):
        raise TypeError(f"{accepted}, not {_kind(value)}")
    if not low <= value <= high:
        raise ValueError(f"{accepted}, not {value}")
    return value


def text(argument: str, value: object) -> bytes:
    """A str without NUL, as the UTF-8 the SDK takes."""
    accepted = f"{argument} must be a str without NUL characters"
    if not isinstance(value, str):
        raise TypeError(f"{accepted}, not {_kind(value)}")
    if "\0" in value:
        raise ValueError(f"{accepted}, not {value!r}")
    try:
        return value.encode("utf-8")
    except UnicodeEncodeError as error:
        raise ValueError(f"{accepted} that UTF-8 can encode: {error}") from None


def usb_id(argument: str, value: object) -> Union[int, bytes]:
    """A USB identifier: an int from 0 to 0xFFFF, or a str (stored as the text it is)."""
    if isinstance(value, str):
        return text(argument, value)
    if not isinstance(value, int) or isinstance(value, bool):
        raise TypeError(f"{argument} must be an int from 0 to 65535 or a str, not {_kind(value)}")
    return integer(argument, value, USB_ID)


def path(argument: str, value: object) -> bytes:
    """A file system path: a str or path-like without NUL, as the file system's bytes."""
    accepted = f"{argument} must be a str or os.PathLike path without NUL characters"
    if not isinstance(value, (str, os.PathLike)):
        raise TypeError(f"{accepted}, not {_kind(value)}")
    name = os.fspath(value)
    if not isinstance(name, str):
        raise TypeError(f"{accepted}, not a path of {_kind(name)}")
    if "\0" in name:
        raise ValueError(f"{accepted}, not {name!r}")
    return os.fsencode(name)


def seconds(argument: str, value: object) -> float:
    """A time: a real number (int or float) from 0 to MAX_SECONDS."""
    accepted = f"{argument} must be a number of seconds from 0 to {MAX_SECONDS}"
    if not isinstance(value, (int, float)) or isinstance(value, bool):
        raise TypeError(f"{accepted}, not {_kind(value)}")
    if not 0 <= value <= MAX_SECONDS:  # also refuses NaN
        raise ValueError(f"{accepted}, not {value}")
    return float(value)


def seconds_or_none(argument: str, value: object) -> Optional[float]:
    return None if value is None else seconds(argument, value)


def callback(argument: str, value: Optional[_Callable]) -> Optional[_Callable]:
    """A callable, or None."""
    if value is not None and not callable(value):
        raise TypeError(f"{argument} must be callable or None, not {_kind(value)}")
    return value


def flag(argument: str, value: object) -> bool:
    """True or False, and nothing that merely reads as one."""
    if not isinstance(value, bool):
        raise TypeError(f"{argument} must be True or False, not {_kind(value)}")
    return value

