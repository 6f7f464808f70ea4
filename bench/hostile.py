"""What an ordinary client's GET takes while others are hostile or hung, beside what it takes when it
is quiet, in one run on one machine.

usage: hostile.py UCFGD [SECONDS [PART OF A SITUATION'S TITLE]]

Each situation gets a daemon of its own, in the background as a service runs it. An answer that has
not come after ten seconds counts as ten. COMMIT is that of a second client in the same situation."""

import ctypes
import fcntl
import os
import select
import signal
import socket
import statistics
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tests/force"))

import force  # noqa: E402, found there

PAUSE = 0.002
WRAPPER = "libnss_wrapper.so"

CONFIGURATION = """
limits {
    command-time: 2
    commit-time: 3
}
listen {
    local {
        type: unix
        path: /dev/ucfgd
        mode: 0600
        authtype: usercred
    }
    open {
        type: unix
        path: /dev/open
        mode: 0666
        authtype: %s
    }
}
users {
    root {
        access: rwx
    }
}
"""


class Situation:
    """A daemon and the ordinary client's measurements."""

    def __init__(self, program, method="usercred", setup=None):
        self.daemon = force.Daemon(program, {
            "LD_PRELOAD": WRAPPER,
            "NSS_WRAPPER_PASSWD": "/run/passwd",
            "NSS_WRAPPER_GROUP": "/run/group",
            "NSS_WRAPPER_SHADOW": "/run/shadow",
        }, background=True)
        with open(self.daemon.path("/etc/ucfgd/ucfgd.conf"), "w", encoding="utf-8") as file:
            file.write(CONFIGURATION % method)
        if setup:
            setup(self.daemon)
        assert self.daemon.start(), self.daemon.text("/log")
        self.client = None

    def measure(self, seconds):
        """Median and worst in seconds. One connection for all, made anew when it is lost."""
        took = []
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            begin = time.monotonic()
            try:
                self.client = self.client or self.daemon.client()
                self.client.ask("GET ssh.port")
                took.append(time.monotonic() - begin)
                time.sleep(PAUSE)
            except force.Gone:
                # Locked out: whoever comes back at once finds the same.
                self.client = None
                took.append(force.PATIENCE)
                time.sleep(PAUSE)
                if len(took) > 20 and min(took[-20:]) >= force.PATIENCE:
                    break
        return statistics.median(took), max(took)

    def commit(self):
        """What a second client's log-in, SET and COMMIT take."""
        begin = time.monotonic()
        try:
            client = self.daemon.client()
            client.ask("SET ssh.port 2%03d" % (time.monotonic_ns() // 1000 % 1000))
            client.ask("COMMIT")
            client.close()
        except force.Gone:
            return force.PATIENCE
        return time.monotonic() - begin


# --- who does harm: each starts something and returns how to end it ---


def idle_connections(daemon):
    silent = []
    end = time.monotonic() + force.PATIENCE
    while len(silent) < 1100 and time.monotonic() < end:
        one = socket.socket(socket.AF_UNIX)
        one.setblocking(False)
        try:
            one.connect(daemon.path("/dev/open"))
            silent.append(one)
        except OSError:  # so many wait already to be taken
            time.sleep(0.002)
    time.sleep(0.5)
    return lambda: [one.close() for one in silent]


def guessers(daemon):
    """Another user's: a peer is delayed as a whole."""

    def guess():
        connections = {}
        while True:
            while len(connections) < 100:
                one = socket.socket(socket.AF_UNIX)
                try:
                    one.settimeout(0.2)
                    one.connect(daemon.path("/dev/open"))
                    one.sendall(b"g LOGIN anna wrong\n")
                    connections[one.fileno()] = one
                except OSError:
                    one.close()
                    break
            readable, _, _ = select.select(list(connections), [], [], 0.05)
            for number in readable:
                try:
                    if not connections[number].recv(4096):
                        raise OSError
                    connections[number].sendall(b"g LOGIN anna wrong\n")
                except OSError:
                    connections.pop(number).close()

    child = os.fork()
    if child == 0:
        os.setuid(1001)
        guess()
    time.sleep(0.5)

    def end():
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
    return end


def denied(daemon):
    """A client that makes log lines, where nobody reads them."""
    client = daemon.client(patience=1)
    for number in range(2000):
        try:
            client.send(f"SET ssh.port x{number}")
            if number % 50 == 49:
                time.sleep(0.01)
        except force.Gone:
            break
    return client.close


def hung(path):
    def start(daemon):
        client = daemon.client()
        client.send("GET " + path)
        time.sleep(0.2)
        return client.close
    return start


def hung_hook(daemon):
    client = daemon.client()
    client.ask("SET system.contact me")
    client.send("COMMIT")
    time.sleep(0.2)
    return client.close


def hung_store(daemon):
    """A program that holds the lock of the whole store while others log in by it. They are another
    user's: whose log-ins are refused, has to wait for the next one."""
    store = os.open("/dev/shm/hlxauth-sessions", os.O_RDWR | os.O_CREAT, 0o600)
    fcntl.flock(store, fcntl.LOCK_EX)
    clients = []
    os.seteuid(1001)
    try:
        for _ in range(5):
            clients.append(force.Client(daemon.path("/dev/open"), login=None))
            clients[-1].send("LOGIN .hlxaaa " + "0" * 32)
    except force.Gone:
        pass  # nobody is let in any more
    os.seteuid(0)
    time.sleep(0.1)

    def end():
        os.close(store)
        for client in clients:
            client.close()
    return end


# --- set-up of daemons ---


def add_hung_command(daemon):
    daemon.add("/etc/ucfgd/param.conf", "hung {\n get: system('sleep 30') .. ''\n}\n")


def add_hung_hook(daemon):
    daemon.replace("/etc/ucfgd/modules.conf", "mode: 0640\n",
                   "mode: 0640\n    pre-commit: system('sleep 30')\n")


def accounts():
    library = ctypes.CDLL("libcrypt.so.1")
    library.crypt.restype = ctypes.c_char_p
    hashed = library.crypt(b"opensesame", b"$y$j9T$abcdefgh$").decode()
    for name, text in (("passwd", "root:x:0:0::/:/bin/sh\nanna:x:1001:1001::/:/bin/sh\n"),
                       ("group", "root:x:0:\nanna:x:1001:\n"),
                       ("shadow", f"root:*:19000::::::\nanna:{hashed}:19000::::::\n")):
        with open("/run/" + name, "w", encoding="ascii") as file:
            file.write(text)
    # A system log that takes what its socket holds, and nobody who reads it.
    log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    log.bind("/dev/log")
    return log


def drained(log):
    """Reads the log, as a system does, until the returned function is called."""
    ended = threading.Event()

    def read():
        while not ended.is_set():
            if select.select([log], [], [], 0.05)[0]:
                log.recv(65536)

    thread = threading.Thread(target=read, daemon=True)
    thread.start()

    def end():
        ended.set()
        thread.join()
    return end


SITUATIONS = (
    ("1,100 idle connections", "usercred", None, idle_connections, True),
    ("100 guessers (yescrypt)", "shadow", None, guessers, True),
    ("system log that nobody reads", "usercred", None, denied, False),
    ("hung commit hook", "usercred", add_hung_hook, hung_hook, True),
    ("AAA store locked for ever", "hlxaaa", None, hung_store, True),
    ("hung command in a GET", "usercred", add_hung_command, hung("hung"), True),
)


def milliseconds(seconds):
    return "never" if seconds >= force.PATIENCE else f"{seconds * 1000:.2f}"


def main():
    force.isolate()
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 5.0
    log = accounts()
    rows = [("milliseconds of a GET", "median", "worst", "quiet median", "quiet worst", "median ratio",
             "COMMIT", "quiet COMMIT")]
    only = sys.argv[3] if len(sys.argv) > 3 else ""
    for title, method, setup, harm, reads_log in SITUATIONS:
        if only not in title:
            continue
        stop_reading = drained(log)
        situation = Situation(sys.argv[1], method, setup)
        quiet = situation.measure(seconds / 2)
        quiet_commit = situation.commit()
        situation.client = None  # the ordinary client comes when the others are there
        if not reads_log:
            stop_reading()
        end = harm(situation.daemon)
        now = situation.measure(seconds)
        commit = situation.commit()
        situation.daemon.remove()
        end()
        stop_reading()
        rows.append((title,) + tuple(map(milliseconds, now + quiet)) +
                    (f"{now[0] / quiet[0]:.1f}", milliseconds(commit), milliseconds(quiet_commit)))
        print(title, file=sys.stderr, flush=True)
    force.table(rows)


if __name__ == "__main__":
    main()
