"""Sessions with a live daemon, blocking and with asyncio."""

import asyncio
import contextlib
import io
import os
import re
import textwrap
import threading
import time
import unittest.mock as mock

from support import TOP, DaemonTest
import ucfg
import ucfg.aio


class Sessions(DaemonTest):
    def session(self, **how):
        return ucfg.Session(self.socket, **how)

    def test_reads_what_is_there(self):
        with self.session(perms=("read",)) as session:
            self.assertEqual(session.perms, ("read",))
            name = session.get('network.hosts."192.0.2.10".name')
            self.assertIn(name, self.text("etc/hosts"))
            everything = session.values("network.hosts")
            self.assertEqual(everything[ucfg.path("network", "hosts", "192.0.2.10", "name")], name)
            self.assertEqual(session.attr("network.rp-filter").choices, ("0", "1", "2"))
            self.assertIn("port", session.help("ssh.port"))
            with self.assertRaises(ucfg.NotFound):
                session.get("no.such")
            with self.assertRaises(ucfg.Refused):
                session.set("ssh.port", 1)

    def test_a_transaction_commits_or_leaves_nothing(self):
        banner = "\n".join(["über uns"] * 100)  # too long for one word
        line = "x" * 15998 + "ü%\t" * 9000  # too long for one reply
        (self.root / "etc/issue").write_text(f"{line}\nall of it: 100%\n")
        # As in a container, where the process has another number.
        with mock.patch("os.getpid", return_value=1), self.session() as session:
            with session.transaction(comment="two at once") as done:
                session.set("ssh.port", 2200)
                session.set("system.banner", banner)
                for lines in ("+Port 2200\n", f"-{line}\n-all of it: 100%\n+über uns\n"):
                    self.assertIn(lines, session.diff())
            self.assertEqual((done.commit.comment, done.commit.state), ("two at once", "done"))
            self.assertIn("Port 2200\n", self.text("etc/ssh/sshd_config"))
            self.assertEqual(self.text("etc/issue"), banner + "\n")
            with self.assertRaises(ZeroDivisionError):
                with session.transaction():
                    session.set("ssh.port", 2201)
                    raise ZeroDivisionError
            with self.assertRaises(ucfg.UsageError):
                with session.transaction(comment="a\0b", trial=60):
                    session.set("ssh.port", 2201)
            self.assertFalse(session.dirty)
            self.assertEqual(session.get("commits.trial"), "0")
            session.undo(done.commit.number)
            self.assertIn("- ssh.port: 2200\n", session.changes())
            self.assertEqual(session.commit().number, done.commit.number + 1)
            self.assertNotIn("Port 2200\n", self.text("etc/ssh/sshd_config"))

    def test_refusals_say_why(self):
        with self.session() as session:
            with self.assertRaises(ucfg.Failed) as refused:
                session.set("ssh.port", 70000)
            self.assertEqual(refused.exception.identifier, "error.type.port")
            with self.assertRaises(ucfg.BatchRefused):
                session.submit([ucfg.Set("ssh.port", 2202), ucfg.Add("network.hosts", "x y")])
            self.assertFalse(session.dirty)
            for told, ask, *words in (
                ("ssh.x: no list that can be changed like that", session.add, "ssh", "x"),
                ("ssh: no parameter that can be set", session.set, "ssh", 1),
                ("ssh: this node has no value", session.get, "ssh"),
                ('network.hosts."1.2": Entry does', session.delete, "network.hosts", "1.2"),
            ):
                self.assertRaisesRegex(ucfg.Failed, "^" + told, ask, *words)
            with self.assertRaises(ucfg.ActionFailed) as failed:
                list(session.admin("services.restart", "nothing"))
            self.assertIn("nothing is not one of", str(failed.exception))

    def test_a_trial_runs_out_or_is_confirmed(self):
        with self.session() as session:
            session.set("ssh.port", 2203)
            self.assertEqual(session.commit(trial=1).state, "trial")
            with self.session() as other, self.assertRaisesRegex(ucfg.TrialRunning, "of root is on"):
                other.set("ssh.port", 2204)
                other.commit()
            for _ in range(100):
                if session.trial() is None:
                    break
                time.sleep(0.1)
            self.assertNotIn("Port 2203", self.text("etc/ssh/sshd_config"))
            session.update()
            session.set("ssh.port", 2205)
            session.commit(trial=60)
            session.confirm()
            self.assertIsNone(session.trial())
            self.assertEqual(session.history(1)[0].state, "done")

    def test_a_lost_session_is_resumed_and_a_conflict_told(self):
        with self.session() as session, self.session() as other:
            session.set("ssh.port", 2206)
            session.close()
            session.resume()
            self.assertEqual(session.get("ssh.port"), "2206")
            other.set("ssh.port", 2207)
            other.commit()
            with self.assertRaises(ucfg.CommitConflict):
                session.commit()
            with self.session(force=True), self.assertRaises(ucfg.InUse):
                other.noop()
        with self.assertRaises(ucfg.LoginFailed):
            self.session(user="nobody", password="wrong").open()
        for nowhere in ({"host": ".."}, {"socket": "s" * 200}):
            self.assertRaises(ucfg.ConnectError, ucfg.Session(**nowhere).open)
            with self.assertRaises(ucfg.ConnectError):
                asyncio.run(ucfg.aio.Session(**nowhere).open())

    def test_what_is_broken_off_leaves_nothing(self):
        steps = iter([None, KeyboardInterrupt])

        def receive(patient):
            if next(steps, None):
                raise KeyboardInterrupt
            ucfg.Session._receive(session, patient)

        with self.session() as session:
            session._receive = receive
            self.assertRaises(KeyboardInterrupt, session.commit, trial=60)
            self.assertEqual(session.get("commits.trial"), "0")
            child = os.fork()
            if child == 0:
                session.__exit__(None, None, None)
                os._exit(1 if session.connected else 0)
            self.assertEqual(os.waitpid(child, 0)[1], 0)
            session.noop()

    def test_the_examples_run(self):
        readme = (TOP / "python/README.md").read_text()
        indented = textwrap.dedent(ucfg.__doc__[ucfg.__doc__.index("    ") : ucfg.__doc__.index("`")])
        with mock.patch.dict(os.environ, UCFGD_SOCKET=self.socket):
            for example in re.findall("```python\n(.*?)```", readme, re.DOTALL) + [indented]:
                with contextlib.redirect_stdout(io.StringIO()) as told:
                    exec(compile(example, "example", "exec"), {})
                self.assertIn("22", told.getvalue())

    def test_output_comes_as_it_arrives(self):
        seen = []
        ready = threading.Event()

        def watch():
            with self.session() as session:
                ready.set()
                for line in session.admin("commits.watch"):
                    seen.append(line.text)
                    return

        thread = threading.Thread(target=watch, daemon=True)
        thread.start()
        ready.wait(10)
        with self.session() as session:
            for port in range(2210, 2220):
                session.set("ssh.port", port)
                session.commit()
                thread.join(0.5)
                if seen:
                    break
        self.assertIn("root", seen[0])

    def test_tasks_share_a_session(self):
        async def talk():
            async with ucfg.aio.Session(self.socket) as session:
                paths = ("ssh.port", "system.hostname", "network.forwarding")
                told = await asyncio.gather(*map(session.get, paths))
                self.assertEqual(told, list((await session.get_many(paths)).values()))
                async with session.transaction(comment="aio") as done:
                    await session.set("ssh.port", 2221)
                self.assertEqual(done.commit.comment, "aio")
                with self.assertRaises(ZeroDivisionError):
                    async with session.transaction():
                        await session.set("ssh.port", 2222)
                        raise ZeroDivisionError
                self.assertFalse(await session.dirty())
                lines = []
                async for line in session.admin("services.restart", "ssh"):
                    lines.append(line.text)
                    await asyncio.wait_for(session.noop(), 10)
                self.assertEqual(lines, ["restarting ssh", "done"])
                session.close()
                await session.resume()

        asyncio.run(talk())
