"""What the scripts share that use the daemon roughly: a namespace of their own, the daemon in a
scratch root, and clients of it that never wait for ever."""

import mmap
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PATIENCE = 10.0
SKIPPED = 77  # the exit status that the tests take for "skipped"

MOUNTS = """
mount --make-rprivate / && mount -t tmpfs none "$1" && mkdir "$1/shm" || exit 1
for node in null zero full random urandom; do
    touch "$1/$node" && mount --bind "/dev/$node" "$1/$node" || exit 1
done
mount --rbind "$1" /dev && mount -t tmpfs none /run || exit 1
shift
exec "$@"
"""


def isolate():
    """Goes on in a mount namespace with a /run and a /dev of its own, or ends as skipped."""
    if os.environ.pop("FORCE_ISOLATED", None):
        return
    if subprocess.call(["unshare", "--mount", "true"], stderr=subprocess.DEVNULL) != 0:
        print("skipped: no mount namespace can be made here", file=sys.stderr)
        sys.exit(SKIPPED)
    os.environ["FORCE_ISOLATED"] = "1"
    with tempfile.TemporaryDirectory() as scratch:
        sys.exit(subprocess.call(["unshare", "--mount", "sh", "-c", MOUNTS, "sh", scratch,
                                  sys.executable] + sys.argv))


class Gone(Exception):
    """The daemon closed the connection, or nothing came in time."""


class Client:
    """One connection; replies come as text, tag and newlines included."""

    def __init__(self, path, login="root", patience=PATIENCE):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(patience)
        self.buffer = b""
        self.session = ""
        try:
            self.socket.connect(path)
        except OSError as error:
            raise Gone(str(error)) from error
        if login:
            reply = self.ask("LOGIN " + login)
            if not reply.endswith("t OK\n"):
                raise Gone(reply)
            self.session = reply.split("SESSION ")[1].split("\n")[0]

    def send(self, request, tag="t"):
        lines = request.split("\n")
        text = "".join(f"{tag}.{line}\n" for line in lines[:-1]) + f"{tag} {lines[-1]}\n"
        try:
            self.socket.sendall(text.encode())
        except OSError as error:
            raise Gone(str(error)) from error

    def reply(self, tag="t"):
        text = ""
        while True:
            end = self.buffer.find(b"\n") + 1
            if end > 0:
                line, self.buffer = self.buffer[:end].decode(errors="replace"), self.buffer[end:]
                text += line
                if line.startswith(tag + " "):
                    return text
                continue
            try:
                more = self.socket.recv(65536)
            except OSError as error:
                raise Gone(str(error)) from error
            if not more:
                raise Gone("closed")
            self.buffer += more

    def ask(self, request, tag="t"):
        self.send(request, tag)
        return self.reply(tag)

    def close(self):
        self.socket.close()


class Daemon:
    """The program on a copy of the sample appliance."""

    def __init__(self, program, environment=None, background=False):
        self.program = program
        self.environment = dict(os.environ, **(environment or {}))
        self.background = background
        self.root = tempfile.mkdtemp(dir="/run")
        self.process = None
        self.pid = 0
        shutil.copytree(SOURCE + "/examples/appliance", self.root, dirs_exist_ok=True)
        for directory in ("/dev", "/var/log"):
            os.makedirs(self.root + directory, exist_ok=True)
        os.chmod(self.root, 0o755)

    def path(self, name):
        return self.root + name

    def text(self, name):
        with open(self.path(name), encoding="utf-8", errors="replace") as file:
            return file.read()

    def add(self, name, text):
        with open(self.path(name), "a", encoding="utf-8") as file:
            file.write(text)

    def replace(self, name, old, new):
        text = self.text(name)
        assert old in text, f"{name} has no {old}"
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text.replace(old, new, 1))

    def start(self):
        """Starts and waits; False when the program has ended instead."""
        self.launch()
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            if self.process.poll() is not None and not (self.background and self.process.poll() == 0):
                return False
            try:
                Client(self.path("/dev/ucfgd"), login=None).close()
                if self.background:
                    self.process.wait(PATIENCE)
                    with open("/run/ucfgd.pid", encoding="ascii") as file:
                        self.pid = int(file.read())
                return True
            except (Gone, FileNotFoundError):
                time.sleep(0.002)
        raise Gone("nobody listens")

    def launch(self):
        for name in ("/dev/ucfgd", "/dev/open"):
            if os.path.exists(self.path(name)):
                os.unlink(self.path(name))
        words = [self.program, "--root=" + self.root] + ([] if self.background else ["--foreground"])
        with open(self.path("/log"), "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(words, env=self.environment, stdout=log, stderr=log,
                                            stdin=subprocess.DEVNULL)
        self.pid = self.process.pid

    def client(self, **options):
        return Client(self.path("/dev/ucfgd"), **options)

    def alive(self):
        if not self.background:
            return self.process.poll() is None
        try:  # A zombie that nobody has reaped yet has no program.
            return self.pid > 0 and os.readlink(f"/proc/{self.pid}/exe") != ""
        except OSError:
            return False

    def stop(self, number=signal.SIGTERM):
        """The exit status, or minus the signal; None when it had to be killed."""
        if self.background:
            os.kill(self.pid, signal.SIGKILL)
            while self.alive():
                time.sleep(0.002)
            os.unlink("/run/ucfgd.pid")
            return None
        try:
            self.process.send_signal(number)
            return self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            return None

    def remove(self):
        if self.alive():
            self.stop(signal.SIGKILL)
        shutil.rmtree(self.root, ignore_errors=True)

    def resident_kib(self):
        with open(f"/proc/{self.pid}/statm", encoding="ascii") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE") // 1024

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def children(self):
        with open(f"/proc/{self.pid}/task/{self.pid}/children", encoding="ascii") as file:
            return len(file.read().split())


class Failing:
    """Numbers that a preloaded library shares with us: the first counts its calls, the last those that
    were hit; what stands between arms it."""

    def __init__(self, size):
        self.format = f"{size}Q"
        handle, self.name = tempfile.mkstemp(dir="/run")
        os.ftruncate(handle, struct.calcsize(self.format))
        self.map = mmap.mmap(handle, struct.calcsize(self.format))
        os.close(handle)

    def arm(self, *numbers):
        between = len(self.map) // 8 - 2
        self.map[:] = struct.pack(self.format, 0, *numbers, *[0] * (between - len(numbers)), 0)

    def numbers(self):
        return struct.unpack(self.format, self.map[:])

    def count(self):
        return self.numbers()[0]

    def hit(self):
        return self.numbers()[-1] > 0


def table(rows):
    """Prints rows of texts with their columns aligned, the first to the left."""
    widths = [max(len(str(row[i])) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        cells = [str(cell).rjust(width) for cell, width in zip(row[1:], widths[1:])]
        print("  ".join([str(row[0]).ljust(widths[0])] + cells).rstrip(), flush=True)
