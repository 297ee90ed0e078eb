"""The main loop served from Python: how it waits (on its descriptor, whatever its number, and
not at all busily), what ends it (Ctrl-C, a signal handler's exception, stop()), where a callable's
exception is raised again, and when a removed callable stops being called.

Each runs as a companion process of its own (conftest.py). A companion's time limit only guards
against a hang; nothing here asserts how long anything took.
"""
import pytest

ENDED = """
    import os, signal, sys, threading
    import yumoclientsdk as ym
    class Handled(Exception):
        pass
    def handled(*_):
        raise Handled()
    heard = []
    signal.signal(signal.SIGUSR1, handled)
    signal.signal(signal.SIGUSR2, lambda *_: heard.append("SIGUSR2"))  # returns: the loop goes on
    how, loop = sys.argv[1:]
    def end():
        os.kill(os.getpid(), signal.SIGUSR2)
        threading.Event().wait(0.2)
        if how == "stop":
            ym.stop()
        else:
            os.kill(os.getpid(), signal.SIGINT if how == "ctrl-c" else signal.SIGUSR1)
    threading.Timer(0.2, end).start()
    try:
        if loop == "run":
            ym.run()
        else:
            print("done" if ym.run_until(lambda: False, timeout=ym.MAX_SECONDS) else "not done")
    except (KeyboardInterrupt, Handled) as error:
        print(type(error).__name__)
    print(*heard)
"""


@pytest.mark.parametrize("loop", ["run", "run_until"])
@pytest.mark.parametrize("how, ending", [("ctrl-c", ["KeyboardInterrupt"]), ("signal", ["Handled"]), ("stop", [])])
def test_the_loop_ends_on_ctrl_c_a_signal_handlers_exception_and_stop_from_another_thread(companion, how, ending, loop):
    lines = companion(ENDED, how, loop).stdout.splitlines()
    assert lines == (ending or ["not done"] * (loop == "run_until")) + ["SIGUSR2"]


HIGH_DESCRIPTOR = """
    import os, resource, threading
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    held = [os.open(os.devnull, os.O_RDONLY) for _ in range(1100)]  # the SDK's descriptors come after these
    import yumoclientsdk as ym
    print("descriptor above 1023:", ym.main_loop_fd() >= 1024)
    answers = []
    ym.on_presence_status(answers.append)
    assert ym.get_im_presence_status() == ym.COMMAND_SENT
    print("answered:", ym.run_until(lambda: answers, 20) and answers[0].presence_status)
    threading.Timer(0.2, ym.stop).start()
    ym.run()
    print("stopped")
"""


def test_the_loop_waits_on_a_descriptor_above_1023(client, companion):
    import resource
    if resource.getrlimit(resource.RLIMIT_NOFILE)[1] < 2048:
        pytest.skip("the hard limit of open files leaves no room for 1100 more")
    assert companion(HIGH_DESCRIPTOR).stdout.splitlines() == ["descriptor above 1023: True", "answered: 3", "stopped"]


IDLE = """
    import yumoclientsdk as ym
    from yumoclientsdk import _loop
    # Everything that could wake the loop is there: the facade with its I/O thread and session bus,
    # a device, the watch of the meeting client (which does not run).
    ym.register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3)
    ym.on_client_state(lambda state: None)
    ym.on_presence_status(lambda status: None)
    ym.run_until(lambda: False, 0.5)  # whatever starting up delivers
    rounds = []
    ym.run_until(lambda: rounds.append("round"), 1)
    dispatched = _loop.dispatch
    def counted():
        rounds.append("dispatch")
        return dispatched()
    _loop.dispatch = counted
    ym.run(1)
    print(rounds.count("round"), rounds.count("dispatch"))
    ym.cleanup_audio_devices()
"""


def test_an_idle_loop_sleeps_instead_of_dispatching_over_and_over(companion):
    rounds, dispatches = map(int, companion(IDLE).stdout.split())
    # An idle second: the first round, the one at the deadline, and room for a stray wake or two.
    assert 1 <= rounds <= 4 and 1 <= dispatches <= 4


ON_ITS_THREAD = """
    import select, sys, threading
    import yumoclientsdk as ym
    from yumoclientsdk import _native
    told = []
    sys.unraisablehook = lambda unraisable: told.append(f"unraisable: {unraisable.exc_value}")
    called = threading.Event()
    def broken(status):
        called.set()
        raise RuntimeError("the callable's error on " + threading.current_thread().name)
    ym.on_presence_status(broken)

    def from_python():
        ym.run_until(called.is_set, 20)
    def from_c():  # a thread that runs the loop through the C interface, as a C extension would
        waiting = select.poll()
        waiting.register(ym.main_loop_fd(), select.POLLIN)
        while not called.is_set() and waiting.poll(20000):
            _native.lib.ymDispatchMainLoop()
    def serving(how):
        try:
            how()
        except RuntimeError as error:
            told.append(f"raised on {threading.current_thread().name}: {error}")
    for how in (from_python, from_c):
        called.clear()
        assert ym.get_im_presence_status() == ym.COMMAND_SENT
        thread = threading.Thread(target=serving, args=(how,), name=how.__name__)
        thread.start()
        thread.join()
        serving(ym.dispatch)  # the main thread's dispatches raise nothing of it
        serving(lambda: ym.run(0.2))
    print(*told, sep="\\n")
"""


def test_a_callables_error_is_raised_in_the_thread_that_dispatched_and_no_other(client, companion):
    assert companion(ON_ITS_THREAD).stdout.splitlines() == [
        "raised on from_python: the callable's error on from_python",
        "unraisable: the callable's error on from_c"]


REMOVED = """
    import threading, time
    import yumoclientsdk as ym
    ym.register_audio_device(name="Headset", index="1", usb_vid=2830, usb_pid=3)
    heard = []
    def send(*commands):
        for command in commands:
            assert ym.set_audio_cmd(command, device_index="1", device_name="Headset") == ym.COMMAND_SENT
        time.sleep(1)  # the events come back and wait in the loop's queue, to be delivered in one batch
    def heard_all(count):
        assert ym.run_until(lambda: len(heard) >= count, 20)

    # Removed inside its own call: the rest of the batch goes to the replacement, in arrival order,
    # also when the old callable runs the loop itself to wait for them.
    def second(info):
        heard.append(("second", info.audio_cmd))
    def first(info):
        heard.append(("first", info.audio_cmd))
        ym.on_audio_info(second)
        heard.append(("waited", ym.run_until(lambda: len(heard) >= 3, 20)))
    ym.on_audio_info(first)
    send(1, 2, 3)
    heard_all(4)
    print(*heard)

    # Removed by another thread while it runs: the removal returns once the call has, and the
    # rest of the batch is not delivered to it.
    heard.clear()
    removed = threading.Event()
    def remove():
        ym.on_audio_info(None)
        removed.set()
    remover = threading.Thread(target=remove)
    def long(info):
        heard.append(("long", info.audio_cmd))
        if not remover.is_alive():
            remover.start()
            heard.append(("removed during the call", removed.wait(0.5)))
    ym.on_audio_info(long)
    ym.on_presence_status(lambda status: heard.append(("presence", status.presence_status)))
    send(4, 5, 6)
    assert ym.get_im_presence_status() == ym.COMMAND_SENT
    heard_all(3)
    remover.join()
    print(*heard)
    ym.cleanup_audio_devices()
"""


def test_a_removed_callable_is_not_called_again(client, companion):
    assert companion(REMOVED).stdout.splitlines() == [
        "('first', 1) ('second', 2) ('second', 3) ('waited', True)",
        "('long', 4) ('removed during the call', False) ('presence', 3)"]
