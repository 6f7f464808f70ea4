"""A daemon on a copy of the sample appliance, for the tests of a class."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "python" / "src"))
PROGRAM = pathlib.Path(os.environ.get("UCFGD_BUILD", TOP / "build")) / "src/daemon/ucfgd"
# Its PID file must not be the machine's own.
APART = ["unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /run && exec "$@"', "sh"]


def _can_run():
    return os.geteuid() == 0 and PROGRAM.exists() and subprocess.call(APART + ["true"]) == 0


class DaemonTest(unittest.TestCase):
    """Each class has a daemon of its own; `root` is its machine, `socket` where it listens."""

    @classmethod
    def setUpClass(cls):
        if not _can_run():
            raise unittest.SkipTest("needs a built daemon, root and a mount namespace")
        scratch = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, scratch)
        cls.root = pathlib.Path(scratch) / "appliance"
        shutil.copytree(TOP / "examples/appliance", cls.root, symlinks=True)
        cls.socket = str(cls.root / "dev/ucfgd")
        daemon = subprocess.Popen(
            [*APART, str(PROGRAM), "--foreground", f"--root={cls.root}"],
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        cls.addClassCleanup(daemon.wait, 20)
        cls.addClassCleanup(daemon.terminate)
        for _ in range(200):
            if os.path.exists(cls.socket):
                return
            time.sleep(0.05)
        raise RuntimeError("the daemon does not start")

    def text(self, name):
        """A file of the machine."""
        return (self.root / name).read_text()
