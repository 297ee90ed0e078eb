"""The module's edges: arguments refused where they enter, the asyncio helpers against the
simulated meeting client, and Python's standard error kept apart from the SDK's log. (How the loop
waits, stops and delivers: test_main_loop.py.)

Nothing here creates the facade in the test process: what needs one runs as a companion process
of its own, in a home of its own (conftest.py).
"""
import asyncio
import os

import pytest

import yumoclientsdk as ym

LOG = os.path.join("Library", "Group Containers", "Q4W7N2R8TX.YumoClient3rd", "yumoclientsdk.log")


def awaited(helper):
    def call(*arguments, **keywords):
        return asyncio.run(helper(*arguments, **keywords))
    call.__name__ = helper.__name__
    return call


REFUSED = [
    # Device names and indexes: a str without NUL, and nothing that merely prints as one.
    (ym.register_audio_device, (1, 2, 3, 4), {}, TypeError, "name must be a str without NUL characters, not int"),
    (ym.register_audio_device, (None, "1", 1, 1), {}, TypeError, "name must be a str"),
    (ym.register_audio_device, ("D\0x", "1", 1, 1), {}, ValueError, "name must be a str without NUL"),
    (ym.register_audio_device, (), dict(name="D", index=b"1", usb_vid=1, usb_pid=1), TypeError, "index must be a str"),
    (ym.register_audio_device, ("\udc80", "1", 1, 1), {}, ValueError, "name .* UTF-8"),
    (ym.is_registered_device, (), dict(name="Headset", index=1), TypeError, "index must be a str"),
    (ym.set_audio_cmd, (5,), dict(device_index="1", device_name=None), TypeError, "device_name must be a str"),
    # USB identifiers: an int from 0 to 65535, or a str when registering.
    (ym.register_audio_device, ("D", "1", 2**40, 1), {}, ValueError, "usb_vid must be an int from 0 to 65535"),
    (ym.register_audio_device, ("D", "1", 1, -1), {}, ValueError, "usb_pid must be an int from 0 to 65535"),
    (ym.register_audio_device, ("D", "1", 1.5, 1), {}, TypeError, "usb_vid must be an int from 0 to 65535 or a str"),
    (ym.register_audio_device, ("D", "1", True, 1), {}, TypeError, "usb_vid"),
    (ym.register_audio_device, ("D", "1", 1, "7\0"), {}, ValueError, "usb_pid must be a str without NUL"),
    (ym.set_audio_cmd, (5, "1", "D"), dict(usb_vid="0x0B0E"), TypeError, "usb_vid must be an int from 0 to 65535"),
    # Seconds: a number from 0 to MAX_SECONDS.
    (ym.run, ("5",), {}, TypeError, "seconds must be a number of seconds"),
    (ym.run, ("0.5",), {}, TypeError, "seconds must be a number"),
    (ym.run, (True,), {}, TypeError, "seconds must be a number"),
    (ym.run, (10**30,), {}, ValueError, "seconds must be a number of seconds from 0 to 9223372036854775, not 1"),
    (ym.run, (9223372036854776,), {}, ValueError, "seconds"),  # one past what fits in milliseconds
    (ym.run, (float("inf"),), {}, ValueError, "seconds"),
    (ym.run, (float("nan"),), {}, ValueError, "seconds"),
    (ym.run, (-0.5,), {}, ValueError, "seconds"),
    (ym.run_until, (lambda: True,), dict(timeout="1"), TypeError, "timeout must be a number"),
    (ym.run_until, (None, 1), {}, TypeError, "done must be callable"),
    (awaited(ym.wait_presence_status), (), dict(timeout=-1), ValueError, "timeout must be a number"),
    (awaited(ym.wait_audio_info), ("1",), {}, TypeError, "timeout must be a number"),
    # Numbers the C interface takes: the audio command int32, the feature mask int64, error codes int32.
    (ym.set_audio_cmd, (2**40, "1", "D"), {}, ValueError, "audio_cmd must be an int from -2147483648 to 2147483647"),
    (ym.set_audio_cmd, ("5", "1", "D"), {}, TypeError, "audio_cmd must be an int"),
    (ym.register_feature, (2**63,), {}, ValueError, "mask must be an int from -9223372036854775808"),
    (ym.register_feature, (1.0,), {}, TypeError, "mask must be an int"),
    (ym.set_error_code, (), dict(code=2**31), ValueError, "code must be an int from -2147483648 to 2147483647"),
    # Callables and paths.
    (ym.on_audio_info, ("x",), {}, TypeError, "callback must be callable or None, not str"),
    (ym.on_presence_status, (1,), {}, TypeError, "callback must be callable"),
    (ym.on_client_state, (), dict(callback="print"), TypeError, "callback must be callable"),
    (ym.check_app_code_sign, (b"/Applications/yumoapp.app",), {}, TypeError, "bundle_path must be a str or os.PathLike"),
    (ym.check_code_sign_for_yumo_pkg, ("/tmp/a\0b.pkg",), {}, ValueError, "package_path must be a str .* without NUL"),
    # The log and the loops.
    (ym.configure_log, (), dict(size_limit=100), ValueError, "size_limit must be 0 .* or from 65536"),
    (ym.configure_log, (), dict(size_limit=-1), ValueError, "size_limit must be an int from 0"),
    (ym.configure_log, (), dict(keep_stderr="yes"), TypeError, "keep_stderr must be True or False"),
    (ym.configure_log, (True,), {}, TypeError, "positional"),
    (ym.attach, ("loop",), {}, TypeError, "loop must be an asyncio event loop"),
]


@pytest.mark.parametrize("function, arguments, keywords, error, message", REFUSED,
                         ids=[f"{row[0].__name__}{row[1] or row[2]}" for row in REFUSED])
def test_arguments_are_refused_where_they_enter(function, arguments, keywords, error, message):
    with pytest.raises(error, match=message):
        function(*arguments, **keywords)


AWAITING = """
    import asyncio
    import yumoclientsdk as ym
    heard = []
    ym.on_presence_status(heard.append)
    async def main():
        loop = asyncio.get_running_loop()
        loop.add_reader(ym.main_loop_fd(), ym.dispatch)  # the companion's own, beside the helpers'
        assert ym.get_im_presence_status() == ym.COMMAND_SENT
        status = await ym.wait_presence_status(timeout=20)
        print("presence", status.presence_status, "heard" if heard == [status] else "not heard")
        ym.register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3)
        assert ym.set_audio_cmd(5, device_index="1", device_name="Headset", usb_vid=2830, usb_pid=3) == 0
        print("audio", await ym.wait_audio_info(timeout=20))
        try:
            await ym.wait_audio_info(timeout=0.2)
        except asyncio.TimeoutError:
            print("timeout")
        answered = loop.create_future()
        ym.on_presence_status(answered.set_result)
        ym.get_im_presence_status()
        print("own reader", (await asyncio.wait_for(answered, 20)).presence_status)
        loop.remove_reader(ym.main_loop_fd())
    asyncio.run(main())
    ym.on_presence_status(lambda status: ym.stop())
    ym.get_im_presence_status()
    ym.run()  # until stop(): a companion that is never stopped hangs, and is ended by the time limit
    print("stopped from the callable")
    ym.cleanup_audio_devices()
"""


def test_asyncio_helpers_await_the_next_answer(client, companion):
    assert companion(AWAITING).stdout.splitlines() == [
        "presence 3 heard", "audio AudioInfo(audio_cmd=5, device_index='1', device_name='Headset')", "timeout",
        "own reader 3", "stopped from the callable"]


UNCAUGHT = """
    import sys
    import yumoclientsdk as ym
    if sys.argv[1] == "configure_log":
        ym.configure_log(keep_stderr=True)
    ym.register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3)  # creates the facade
    try:
        ym.configure_log(keep_stderr=False)
    except RuntimeError:
        print("too late to choose")
    raise RuntimeError("the companion's own mistake")
"""


@pytest.mark.parametrize("mode, environment", [("default", {}), ("configure_log", {}),
                                               ("environment", {"YUMOCLIENTSDK_STDERR": "keep"})])
def test_uncaught_exception_reaches_stderr_and_the_log_stays_in_its_file(home, companion, mode, environment):
    done = companion(UNCAUGHT, mode, status=1, **environment)
    assert done.stdout == "too late to choose\n"
    assert "Traceback (most recent call last)" in done.stderr
    assert done.stderr.rstrip().endswith("RuntimeError: the companion's own mistake")
    with open(os.path.join(home, LOG), encoding="utf-8") as log:
        lines = log.read().splitlines()
    assert lines and not any(line in done.stderr for line in lines)
