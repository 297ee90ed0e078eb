"""The Python module against the simulated meeting client, in a home of the tests' own.

Run by ctest, which says where the built library and the simulator are (YUMOCLIENTSDK_LIBRARY,
YMSIM); the module is imported from the source tree.
"""
import os
import shutil
import subprocess
import tempfile

import pytest

# The SDK finds its group container, its sockets and the meeting client under $HOME when it first
# needs them: the home is the tests' own from before the module is loaded.
HOME = tempfile.mkdtemp(prefix="ympython-")
os.environ["HOME"] = HOME
import yumoclientsdk as ym  # noqa: E402


@pytest.fixture(scope="module")
def client():
    """The simulator installed as 5.6 and serving; stopped at the end, and the home removed."""
    subprocess.run([os.environ.get("YMSIM") or shutil.which("ymsim"), "install", "--version", "5.6.0"],
                   check=True, stdout=subprocess.DEVNULL)
    executable = os.path.join(HOME, "Applications", "yumoapp.app", "Contents", "MacOS", "yumoapp")
    process = subprocess.Popen([executable, "--presence", "3", "--quiet"], stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline().strip() == "ready"
    yield process
    process.kill()
    process.wait()
    shutil.rmtree(HOME, ignore_errors=True)


def test_presence_answer_reaches_the_callable_and_its_errors_the_loop(client):
    answers = []
    ym.on_presence_status(answers.append)
    assert ym.get_im_presence_status() == ym.COMMAND_SENT
    assert ym.run_until(lambda: answers, 20)
    assert answers[0] == ym.PresenceStatus(error=False, code=1, text="OK", presence_status=3)

    # A callable that raises is heard from: its error comes out of the loop.
    def broken(_status):
        raise RuntimeError("the companion's own mistake")
    ym.on_presence_status(broken)
    assert ym.get_im_presence_status() == ym.COMMAND_SENT
    with pytest.raises(RuntimeError, match="own mistake"):
        ym.run_until(lambda: False, 20)
    ym.on_presence_status(None)


def test_audio_events_reach_only_devices_registered_here(client):
    events = []
    ym.on_audio_info(events.append)
    assert ym.register_audio_device("Headset", "1", 2830, 3)
    assert ym.register_audio_device("Dock", "2", "0x0B0E", "7")  # identifiers as texts
    assert not ym.register_audio_device("", "3", 1, 1)
    assert ym.is_registered_device("Headset", "1") and not ym.is_registered_device("Headset", "2")
    with open(os.path.join(HOME, "Library", "Preferences", "YumoClientSdk.ShareData.plist"), encoding="utf-8") as suite:
        assert "0x0B0E" in suite.read()
    # Another companion's device: the simulator answers, and the event is not delivered here.
    assert ym.set_audio_cmd(7, "9", "Speaker", 2830, 4) == ym.COMMAND_SENT
    ym.run(0.5)
    assert events == []
    assert ym.set_audio_cmd(5, "1", "Headset", 2830, 3) == ym.COMMAND_SENT
    assert ym.run_until(lambda: events, 20)
    assert events == [ym.AudioInfo(audio_cmd=5, device_index="1", device_name="Headset")]


def test_the_client_quitting_is_told_and_commands_answer_5(client):
    changes = []
    ym.on_client_state(changes.append)
    now = ym.client_state()
    assert now == ym.ClientState(change=ym.CLIENT_CHANGE_NONE, installed=True, running=True,
                                 transport=ym.TRANSPORT_SOCKETS, version="5.6.0",
                                 install_path=os.path.join(HOME, "Applications", "yumoapp.app"))
    client.kill()
    client.wait()
    assert ym.run_until(lambda: changes, 20)
    assert changes == [now._replace(change=ym.CLIENT_QUIT, running=False, transport=ym.TRANSPORT_NONE)]
    ym.on_client_state(None)
    assert ym.get_im_presence_status() == ym.CLIENT_NOT_RUNNING
    assert ym.error_text() == "0:Error YumoClientNotRunning"
    assert ym.check_yumo_app_error() == ym.CLIENT_NOT_RUNNING
    assert ym.is_yumoapp_installed() and not ym.is_yumo_running()
    assert ym.yumo_client_version() == "5.6.0"
    ym.cleanup_audio_devices()
