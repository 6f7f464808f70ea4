"""Years of use in minutes: log-ins, reads, changes, batches, commits, refused requests, dropped
connections, resumed sessions and reloads in a random mix, while memory, descriptors and children are
watched.

usage: soak.py UCFGD SECONDS

Ends with a table; fails when an answer is none that fits, or when something has grown from the first
third (when everything that is made once has been made) to the end."""

import os
import random
import signal
import sys
import time

import force

USERS = 12
MEMORY_KIB = 1024
DESCRIPTORS = 4
HOST = "network.hosts.192%2e0%2e2%2e10.name"
LIMITS = """
limits {
    login-delay: 0
    suspended-sessions: 20
}
"""


class User:
    """A connection that does something each time it is asked to."""

    def __init__(self, daemon, counts):
        self.daemon, self.counts, self.client = daemon, counts, None

    def expect(self, what, request, *ends):
        reply = self.client.ask(request)
        last = reply.splitlines()[-1]
        if not last.startswith(tuple("t " + end for end in ends)):
            raise AssertionError(f"{request!r} is answered {reply!r}")
        self.counts[what] = self.counts.get(what, 0) + 1
        return reply

    def act(self):
        if not self.client:
            self.client = self.daemon.client()
            self.counts["log-in"] = self.counts.get("log-in", 0) + 1
            return
        random.choices(ACTIONS, WEIGHTS)[0](self)

    def read(self):
        request = random.choice(("GET ssh.port", "LISTR network", "GET system.banner", "HELP ssh.port",
                                 "MLISTR", "INFO system.version", "ATTR network.rp-filter", "DIRTY"))
        self.expect("read", request, "OK")

    def change(self):
        number = random.randrange(1, 60000)
        request = random.choice((f"SET ssh.port {number}", f"SET {HOST} h{number}.example.net",
                                 f"SET system.banner {number}%0a%0alast", f"SET system.contact a+{number}"))
        self.expect("change", request, "OK", "ERR")

    def list_entry(self):
        name = f"192.0.2.{random.randrange(100, 120)}".replace(".", "%2e")
        self.expect("change", f"{random.choice(('ADD', 'DEL'))} network.hosts {name}", "OK", "ERR")

    def submit(self):
        good = f"1 SET ssh.port {random.randrange(1, 60000)}\n2 SET ssh.max-tries 5\n"
        bad = random.choice(("", "3 SET ssh.port none\n"))
        self.expect("batch", good + bad + "SUBMIT", "ERR" if bad else "OK")

    def commit(self):
        self.expect("commit", "COMMIT", "OK", "ERR", "INUSE")
        self.expect("commit", "REVERT", "OK")

    def refused(self):
        request = random.choice(("GET none.such", "SET ssh.port x", "NOSUCH", "SET", "DEL network.hosts 9"))
        self.expect("refused", request, "ERR", "BAD", "NO")

    def guess(self):
        stranger = self.daemon.client(login=None)
        stranger.ask("LOGIN nobody wrong")
        stranger.close()
        self.counts["wrong log-in"] = self.counts.get("wrong log-in", 0) + 1

    def drop(self):
        self.client.send("LISTR")
        self.client.close()
        self.client = None
        self.counts["dropped"] = self.counts.get("dropped", 0) + 1

    def resume(self):
        session = self.client.session
        self.client.close()
        self.client = self.daemon.client(login=None)
        end = time.monotonic() + 1
        while not self.client.ask(f"RESUME {session}").endswith("t OK welcome back root\n"):
            if time.monotonic() > end:  # the place was needed for another
                self.client = None
                return
            time.sleep(0.001)
        self.client.session = session
        self.counts["resumed"] = self.counts.get("resumed", 0) + 1

    def reload(self):
        os.kill(self.daemon.pid, signal.SIGHUP)
        self.counts["reload"] = self.counts.get("reload", 0) + 1

    def log_out(self):
        self.expect("log-out", "LOGOUT", "OK")
        self.client = None


ACTIONS = (User.read, User.change, User.list_entry, User.submit, User.commit, User.refused, User.guess,
           User.drop, User.resume, User.log_out, User.reload)
WEIGHTS = (40, 15, 5, 8, 4, 10, 2, 3, 3, 3, 1)


def main():
    force.isolate()
    seconds = float(sys.argv[2])
    random.seed(1)
    daemon = force.Daemon(sys.argv[1], background=True)
    daemon.add("/etc/ucfgd/ucfgd.conf", LIMITS)
    assert daemon.start(), daemon.text("/log")
    counts, seen = {}, []
    users = [User(daemon, counts) for _ in range(USERS)]
    begin = time.monotonic()
    rows = [("after", "requests", "KiB", "descriptors", "children")]

    def look():
        """Between requests, with nobody connected, so that nothing is in use just now."""
        for user in users:
            if user.client:
                user.log_out()
        time.sleep(0.1)
        seen.append((daemon.resident_kib(), daemon.descriptors(), daemon.children()))
        rows.append((f"{time.monotonic() - begin:.0f} s", sum(counts.values())) + seen[-1])

    for third in range(1, 4):
        while time.monotonic() - begin < seconds * third / 3:
            random.choice(users).act()
        look()
    force.table(rows)
    print(", ".join(f"{count} {what}" for what, count in sorted(counts.items())))
    grown = [after - before for before, after in zip(seen[0], seen[-1])]
    print("grown in the last two thirds: %d KiB, %d descriptors, %d children" % tuple(grown))
    daemon.remove()
    return 0 if grown[0] <= MEMORY_KIB and grown[1] <= DESCRIPTORS and seen[-1][2] == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
