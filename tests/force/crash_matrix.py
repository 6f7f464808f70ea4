"""Kills the daemon, the child of a commit or both at each call that changes the file system, and lets
each such call fail, while a commit changes four files in three folders.

usage: crash_matrix.py UCFGD LIBRARY [STEPS]

Without STEPS every call is hit in every way; with it about that many of each row. After each: the
next start leaves all files old or all new and nothing beside them, the record says which, and OK was
answered only for all new."""

import errno
import glob
import os
import shutil
import subprocess
import sys
import tempfile
import time

import force

DIE, DIE_WITH_DAEMON = 1000, 1001
ALL, DAEMON, CHILDREN = 0, 1, 2
ARCHIVE = "/var/lib/ucfgd/commits"
NAMES = ("/etc/first", "/srv/new", "/srv/owned", "/etc/some.d/kept.conf", "/etc/some.d/gone.conf",
         "/etc/some.d/more.conf")

MODULES = """
crash-first {
    module: lines
    file: /etc/first
}
crash-new {
    module: lines
    file: /srv/new
    flags: create
    mode: 0640
}
crash-owned {
    module: lines
    file: /srv/owned
    uid: daemon
    mode: 0600
}
crash-some {
    module: lines
    dir: /etc/some.d
    pattern: *.conf
}
"""
PARAM = """
crash {
    set: llset('crash-first', 'line', $_) && llset('crash-owned', 'line', $_)
    set: lladd('crash-new', '', 'line') && llset('crash-new', 'line', $_)
    set: llset('crash-some', 'kept.conf/line', $_) && lldel('crash-some', '', 'gone.conf')
}
"""
FILES = {"/etc/first": "first\n", "/srv/owned": "owned\n", "/etc/some.d/kept.conf": "kept\n",
         "/etc/some.d/gone.conf": "gone\n", "/etc/some.d/more.conf": "more\n"}


class Matrix:
    def __init__(self, program, library, steps):
        self.failing = force.Failing(5)
        self.daemon = force.Daemon(program, {"LD_PRELOAD": library,
                                             "FAILING_CALL": self.failing.name})
        self.steps = steps
        self.rows = [("what is hit", "calls", "all old", "all new", "FAULTS")]
        self.faults = []
        daemon = self.daemon
        if ARCHIVE not in daemon.text("/etc/ucfgd/ucfgd.conf"):
            daemon.replace("/etc/ucfgd/ucfgd.conf", "config {", f"config {{\n    commits: {ARCHIVE}")
        daemon.add("/etc/ucfgd/modules.conf", MODULES)
        daemon.add("/etc/ucfgd/param.conf", PARAM)
        self.put_back()
        self.saved = tempfile.mkdtemp(dir="/run")

    def path(self, name):
        return self.daemon.path(name)

    def put_back(self):
        for name in NAMES:
            os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
            for left in glob.glob(self.path(name) + "*"):
                os.unlink(left)
        for name, text in FILES.items():
            with open(self.path(name), "w", encoding="utf-8") as file:
                file.write(text)
            os.chmod(self.path(name), 0o644)
        shutil.rmtree(self.path(ARCHIVE), ignore_errors=True)

    def state(self):
        """What stands under each name, and every file beside them that should not be there."""
        found = {}
        for name in NAMES:
            try:
                status = os.stat(self.path(name))
                found[name] = (self.daemon.text(name), status.st_mode, status.st_uid)
            except FileNotFoundError:
                found[name] = None
        left = [name for folder in ("/etc", "/etc/some.d", "/srv")
                for name in glob.glob(self.path(folder) + "/*.ucfgd-*")]
        return found, left

    def record(self):
        """The state that the newest record tells; "none" without one."""
        folders = sorted(int(name) for name in os.listdir(self.path(ARCHIVE)) if name.isdigit())
        if not folders:
            return "none"
        text = self.daemon.text(f"{ARCHIVE}/{folders[-1]}/record")
        return text.split("state: ")[1].split("\n")[0]

    def commit(self, number, what, whose):
        """Makes the change and commits it with one call hit; the reply, or "" when none came."""
        client = self.daemon.client(patience=20)
        assert client.ask("SET crash changed").endswith("t OK\n"), self.daemon.text("/log")
        self.failing.arm(number, what, whose)
        try:
            reply = client.ask("COMMIT")
        except force.Gone:
            reply = ""
        self.calls = self.failing.count()
        self.was_hit = self.failing.hit()
        self.failing.arm(0)
        return reply

    def fresh(self):
        if self.daemon.process and self.daemon.alive():
            self.daemon.stop(9)
        self.put_back()
        self.failing.arm(0)
        assert self.daemon.start(), self.daemon.text("/log")

    def look(self, reply):
        """What the next start finds and leaves: "old" or "new", or what is wrong."""
        if self.daemon.alive():
            found, left = self.state()
            told = "OK" if " OK" in reply else "ERR"
            # A child that is killed behind its commit has not run all hooks: that is no success.
            cut_off = told == "ERR" and found == self.new and self.record() == "done"
            if found != (self.new if told == "OK" else self.old) and reply and not cut_off:
                return f"answers {reply!r}, but files are {found}"
            if left and reply:
                return f"answers {reply!r} and leaves {left}"
            self.daemon.stop(9)
        self.failing.arm(0)
        if not self.daemon.start():
            return "does not start again: " + self.daemon.text("/log")[-300:]
        found, left = self.state()
        # A child brings the record of a trial whose undoing was interrupted up to date.
        for _ in range(500):
            if found != self.old or self.record() != "trial":
                break
            time.sleep(0.01)
        record = self.record()
        self.daemon.stop(9)
        if left:
            return f"leaves {left}"
        if found == self.new and record in ("done", "trial"):
            return "new"
        if found == self.old and record in ("none", "failed", "undone") and " OK" not in reply:
            return "old"
        return f"a mixture or a wrong record: {record}, {reply!r}, {found}"

    def run(self, what, total, one):
        counts = {"old": 0, "new": 0, "fault": 0}
        for number in range(1, total + 1, max(1, total // self.steps) if self.steps else 1):
            verdict = one(number)
            if verdict not in counts:
                self.faults.append(f"{what}, call {number}: {verdict}")
                verdict = "fault"
            counts[verdict] += 1
        self.rows.append((what, sum(counts.values())) + tuple(counts.values()))

    def commits(self):
        self.fresh()
        self.old, _ = self.state()
        reply = self.commit(0, 0, CHILDREN)
        assert reply == "t OK\n", reply + self.daemon.text("/log")
        children = self.calls
        self.new, left = self.state()
        assert not left and self.look(reply) == "new", left
        self.fresh()
        self.commit(0, 0, DAEMON)
        own = self.calls

        def hit(what, whose):
            def one(number):
                self.fresh()
                return self.look(self.commit(number, what, whose))
            return one

        self.run("a commit: its child is killed", children, hit(DIE, CHILDREN))
        self.run("a commit: child and daemon are killed", children, hit(DIE_WITH_DAEMON, CHILDREN))
        self.run("a commit: the daemon is killed", own, hit(DIE, DAEMON))
        for name in ("ENOSPC", "EIO", "ENOMEM", "EMFILE", "EINTR"):
            self.run(f"a commit: {name}", children, hit(getattr(errno, name), CHILDREN))

    def put_backs(self):
        """A start that puts back is itself killed, or its calls fail; the one after it finishes."""
        self.fresh()
        self.commit(0, 0, CHILDREN)
        total = self.calls
        for middle in range(total, 0, -1):
            self.fresh()
            self.commit(middle, DIE_WITH_DAEMON, CHILDREN)
            if self.state()[0] not in (self.old, self.new):
                break
        self.daemon.process.wait()
        shutil.rmtree(self.saved)
        copy(self.daemon.root, self.saved)

        def again():
            self.put_back()
            for name in NAMES:
                if os.path.exists(self.path(name)):
                    os.unlink(self.path(name))
            for folder in ("/etc/some.d", "/srv", ARCHIVE):
                shutil.rmtree(self.path(folder), ignore_errors=True)
            copy(self.saved, self.daemon.root)

        def start(number, what):
            again()
            self.failing.arm(number, what, DAEMON)
            try:
                self.daemon.start()
            except force.Gone:
                pass
            calls = self.failing.count()
            if self.daemon.alive():
                self.daemon.stop(9)
            self.failing.arm(0)
            return calls

        total = start(0, 0)
        for name, what in (("the start is killed", DIE), ("ENOSPC", errno.ENOSPC),
                           ("EIO", errno.EIO)):
            self.run(f"putting back: {name}", total,
                     lambda number, what=what: (start(number, what), self.look(""))[1])

    def trials(self):
        """The child that undoes a commit on trial is killed, or its calls fail."""

        def cancel(number, what):
            self.fresh()
            client = self.daemon.client(patience=20)
            client.ask("SET crash changed")
            client.ask("SET commits.trial 3000")
            assert client.ask("COMMIT") == "t OK\n", self.daemon.text("/log")
            self.failing.arm(number, what, CHILDREN)
            client.ask("ADMIN commits.cancel")
            calls = self.failing.count()
            self.failing.arm(0)
            self.daemon.stop(9)
            return calls

        total = cancel(0, 0)
        for name, what in (("its child is killed", DIE), ("ENOSPC", errno.ENOSPC),
                           ("EIO", errno.EIO)):
            self.run(f"the end of a trial: {name}", total,
                     lambda number, what=what: (cancel(number, what), self.look(""))[1])

    def trims(self):
        """The child that removes what is too old is killed: no commit is left half there."""
        self.daemon.replace("/etc/ucfgd/ucfgd.conf", f"commits: {ARCHIVE}",
                            f"commits: {ARCHIVE}\n    commits-kept: 1")

        def second(number, what):
            self.fresh()
            client = self.daemon.client(patience=20)
            for value in ("before", "changed"):
                client.ask(f"SET crash {value}")
                if value == "changed":
                    self.failing.arm(number, what, CHILDREN)
                client.ask("COMMIT")
            calls = self.failing.count()
            self.failing.arm(0)
            self.daemon.stop(9)
            return calls

        total = second(0, 0)
        before = max(1, total - 24)

        def one(number):
            second(before + number, DIE)
            if not self.daemon.start():
                return "does not start again: " + self.daemon.text("/log")[-300:]
            self.daemon.stop(9)
            folders = [name for name in os.listdir(self.path(ARCHIVE)) if name.isdigit()]
            half = [name for name in folders
                    if not os.path.exists(self.path(f"{ARCHIVE}/{name}/record"))]
            return f"leaves half of {half}" if half or not folders else "new"

        self.run("trimming: its child is killed", total - before, one)

    def finish(self):
        self.daemon.remove()
        os.unlink(self.failing.name)
        shutil.rmtree(self.saved, ignore_errors=True)
        force.table(self.rows)
        for fault in self.faults[:20]:
            print("FAULT:", fault[:600])
        print(f"{len(self.faults)} faults")
        return 1 if self.faults else 0


def copy(source, target):
    """Keeps owners and links, and goes over what is there."""
    os.makedirs(target, exist_ok=True)
    subprocess.run(["cp", "-a", source + "/.", target], check=True)


def main():
    force.isolate()
    matrix = Matrix(sys.argv[1], sys.argv[2], int(sys.argv[3]) if len(sys.argv) > 3 else 0)
    matrix.commits()
    matrix.put_backs()
    matrix.trials()
    matrix.trims()
    sys.exit(matrix.finish())


main()
