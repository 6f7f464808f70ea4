"""Lets one allocation after the other fail, in the start of the daemon and in each kind of request.

usage: alloc_sweep.py UCFGD LIBRARY [STEPS]

Without STEPS every allocation fails once; with it about that many of each row, and four times as
many of the start, which does the most. Whatever fails, the daemon neither ends without a word nor
hangs; a request is answered as usual or with an error, and what it left behind is what it said."""

import os
import sys
import time

import force


def files(daemon):
    return {name: daemon.text(name) for name in ("/etc/issue", "/etc/hosts", "/etc/ssh/sshd_config")}


class Sweep:
    def __init__(self, program, library, steps):
        self.failing = force.Failing(3)
        self.daemon = force.Daemon(program, {"LD_PRELOAD": library,
                                             "FAILING_MALLOC": self.failing.name})
        self.steps = steps
        self.rows = [("allocations that fail in", "failed", "as usual", "error", "closed", "FAULTS")]
        self.faults = []
        self.original = files(self.daemon)

    def run(self, what, total, one, steps):
        counts = {"usual": 0, "error": 0, "closed": 0, "fault": 0}
        failed = 0
        for number in range(1, total + 1, max(1, total // steps) if steps else 1):
            verdict = one(number)
            failed += 1
            if verdict not in counts:
                self.faults.append(f"{what}, allocation {number}: {verdict}")
                verdict = "fault"
            counts[verdict] += 1
        self.rows.append((what, failed) + tuple(counts.values()))

    # --- start ---

    def usual(self):
        client = self.daemon.client()
        return [client.ask(request) for request in ("LISTR", "GET system.hostname", "MLISTR")]

    def clean_start(self):
        self.failing.arm(0)
        assert self.daemon.start(), self.daemon.text("/log")

    def start(self):
        self.clean_start()
        total = self.failing.count()
        usual = self.usual()
        self.daemon.stop()
        ended = self.daemon.text("/log")

        def one(number):
            self.failing.arm(number)
            try:
                started = self.daemon.start()
            except force.Gone as error:
                self.daemon.stop()
                return f"hangs ({error})"
            self.failing.arm(0)
            same, locked_out = False, ""
            named = os.path.exists("/run/ucfgd.pid")
            if started:
                try:
                    same = self.usual() == usual
                except force.Gone as error:
                    locked_out = f"log-in: {error}"
            status = self.daemon.stop() if started else self.daemon.process.wait()
            log = self.daemon.text("/log")
            said = locked_out or set(log.splitlines()) - set(ended.splitlines())
            if status is None:
                return "does not stop"
            if status < 0 or "terminate called" in log:
                return f"dies with {status}: {log[-200:]}"
            if not started or status > 0:  # which may have listened for a moment
                return "error" if status > 0 and said else f"ends with {status} and no word"
            if not named:
                return "has no PID file"
            return "usual" if same else "error" if said else "answers other things without a word"

        self.run("start", total, one, 4 * self.steps)

    # --- requests ---

    def put_back(self):
        for name, text in self.original.items():
            with open(self.daemon.path(name), "w", encoding="utf-8") as file:
                file.write(text)

    def restart(self):
        if self.daemon.process:
            self.daemon.stop()
        self.put_back()
        self.clean_start()

    def request(self, what, request, before=(), after=(), commits=False):
        """`after` are requests whose answers show what was left behind: as usual after an answer as
        usual, as without the request after an error. With `commits`, the files show it too."""

        def attempt(number, skip=False):
            log_in = request.startswith("LOGIN")
            client = self.daemon.client(login=None if log_in else "root", patience=5)
            for line in before:
                client.ask(line)
            self.failing.arm(number)
            try:
                reply = "" if skip else client.ask(request)
            except force.Gone as error:
                reply = str(error)
            total, hit = self.failing.count(), self.failing.hit()
            self.failing.arm(0)
            if log_in and " SESSION " in reply:
                reply = "".join(line for line in reply.splitlines(True) if " SESSION " not in line)
            left = None
            try:
                left = [client.ask(line) for line in after]
                client.ask("LOGOUT")
            except force.Gone:
                pass
            return reply, left, files(self.daemon) if commits else None, total, hit

        self.restart()
        attempt(0)
        if commits:
            self.restart()
        _, untouched, unwritten, _, _ = attempt(0, skip=True)
        usual, left, written, total, _ = attempt(0)
        served = self.usual()

        def one(number):
            if commits or not self.daemon.alive():
                self.restart()
            reply, now_left, now_written, _, hit = attempt(number)
            if not self.daemon.alive():
                return f"the daemon ends with {self.daemon.process.wait()}: {self.daemon.text('/log')[-200:]}"
            if reply == "timed out":
                self.restart()
                return "hangs"
            try:
                again = self.usual()
            except force.Gone as error:
                self.restart()
                return f"nobody is served any more: {error}"
            if again != served and not commits:
                return "others are answered other things"
            last = reply.splitlines()[-1] if reply else ""
            if reply == usual:
                good = (now_left == left, now_written == written)
            elif last.startswith(("t ERR", "t NO", "t BAD")):
                # A commit goes file by file, and each is whole.
                good = (now_left in (untouched, None),
                        not commits or all(now_written[name] in (written[name], unwritten[name])
                                           for name in written))
            elif not last.startswith("t "):
                return "closed" if now_written in (written, unwritten) else "closed, half a file"
            else:
                return f"answers {reply[-200:]!r}"
            if all(good):
                return "usual" if reply == usual or not hit else "error"
            return f"answers {last!r}, but leaves {now_left if not good[0] else now_written}"

        self.run(what, total, one, self.steps)

    def finish(self):
        self.daemon.remove()
        os.unlink(self.failing.name)
        force.table(self.rows)
        for fault in self.faults[:40]:
            print("FAULT:", fault)
        return 1 if self.faults else 0


def main():
    force.isolate()
    steps = int(sys.argv[3]) if len(sys.argv) > 3 else 0
    sweep = Sweep(sys.argv[1], sys.argv[2], steps)
    begin = time.monotonic()
    banner = "SET system.banner one%0atwo%0athree"
    host = 'network.hosts.192%2e0%2e2%2e10.name'
    sweep.start()
    sweep.request("log-in", "LOGIN root", after=["GET ssh.port"])
    sweep.request("GET", "GET ssh.port")
    sweep.request("LIST", "LIST network.hosts")
    sweep.request("LISTR", "LISTR")
    sweep.request("ATTR", "ATTR network.rp-filter")
    sweep.request("SET", banner, after=["GET system.banner", "DIRTY"])
    sweep.request("second SET", "SET ssh.port 2222", before=[banner],
                  after=["GET system.banner", "GET ssh.port"])
    sweep.request("ADD", "ADD network.hosts 192.0.2.77", after=["LISTR network.hosts", "DIRTY"])
    sweep.request("SUBMIT", f"1 {banner}\n2 SET {host} store.example.net\nSUBMIT",
                  after=["GET system.banner", "GET " + host, "DIRTY"])
    sweep.request("SET and COMMIT", "COMMIT", before=[banner, "SET ssh.port 2222"], commits=True)
    status = sweep.finish()
    print(f"{len(sweep.faults)} faults, {time.monotonic() - begin:.0f} s")
    return status


if __name__ == "__main__":
    sys.exit(main())
