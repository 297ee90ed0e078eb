"""What the tests share: a home of their own, the simulated meeting client in it, and companions
run as processes of their own in that home (so that none creates the facade in the test process).

The library and the simulator are the built ones ctest names (YUMOCLIENTSDK_LIBRARY, YMSIM).
"""
import os
import shutil
import subprocess
import sys
import tempfile
import textwrap

import pytest


@pytest.fixture
def home():
    path = tempfile.mkdtemp(prefix="ympython-")
    yield path
    shutil.rmtree(path, ignore_errors=True)


@pytest.fixture
def client(home):
    """The simulator installed as 5.6 in `home` and serving, with presence status 3."""
    environment = dict(os.environ, HOME=home)
    subprocess.run([os.environ.get("YMSIM") or shutil.which("ymsim"), "install", "--version", "5.6.0"],
                   check=True, stdout=subprocess.DEVNULL, env=environment)
    executable = os.path.join(home, "Applications", "yumoapp.app", "Contents", "MacOS", "yumoapp")
    process = subprocess.Popen([executable, "--presence", "3", "--quiet"], stdout=subprocess.PIPE, text=True,
                               env=environment)
    assert process.stdout.readline().strip() == "ready"
    yield process
    process.kill()
    process.wait()


@pytest.fixture
def companion(home):
    """Runs code as a Python companion in `home`: companion(code, *arguments, status=0, **environment)
    answers the finished process, which must have exited with `status`. The time limit only guards
    against a companion that hangs."""
    def run(code, *arguments, status=0, **environment):
        done = subprocess.run([sys.executable, "-c", textwrap.dedent(code), *arguments], capture_output=True,
                              text=True, env=dict(os.environ, HOME=home, **environment), timeout=60)
        assert done.returncode == status, done.stderr
        return done
    return run
