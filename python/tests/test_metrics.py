"""The metrics of a live daemon, read back from the text format."""

import os
import re
import stat
import time

from support import DaemonTest
import ucfg
from ucfg import metrics

SAMPLE = re.compile(r'([a-z_]+)(?:\{([a-z]+)="([^"\\]*)"\})? (-?[0-9.e+]+)$')


def parsed(text):
    """Samples by name and label; every one has a type and a help text before it."""
    samples, described = {}, {}
    for line in text.splitlines():
        if line.startswith("# "):
            _, what, name, rest = line.split(" ", 3)
            described.setdefault(name, {})[what] = rest
            continue
        name, _, label, value = SAMPLE.match(line).groups()
        assert set(described[name]) == {"HELP", "TYPE"}, line
        assert (described[name]["TYPE"] == "counter") == name.endswith("_total"), line
        assert (name, label) not in samples, line
        samples[name, label] = float(value)
    return samples


class Metrics(DaemonTest):
    def collect(self, socket=None):
        name = str(self.root / "ucfgd.prom")
        self.assertEqual(metrics.main(["--socket", socket or self.socket, "--output", name]), 0)
        self.assertEqual(stat.S_IMODE(os.stat(name).st_mode), 0o644)
        self.assertEqual([n for n in os.listdir(self.root) if "metrics" in n], [])
        return parsed(self.text("ucfgd.prom"))

    def test_what_happens_is_counted(self):
        before = self.collect()
        self.assertNotIn(("ucfgd_last_commit_timestamp_seconds", None), before)
        with ucfg.Session(self.socket) as first, ucfg.Session(self.socket) as second:
            second.set("ssh.port", 2301)
            first.set("ssh.port", 2300)
            first.commit(trial=60)
            with self.assertRaises(ucfg.TrialRunning):
                second.commit()
            first.commit()  # of nothing
            with self.assertRaises(ucfg.LoginFailed):
                ucfg.Session(self.socket, user="nobody", password="wrong").open()
            second.close()
            during = self.collect()
            first.cancel()
        grown = {key: during[key] - before[key] for key in before if key[0].endswith("_total")}
        for name in ("commits", "commit_refusals", "login_refusals"):
            self.assertEqual(grown[f"ucfgd_{name}_total", None], 1, name)
        self.assertEqual(grown["ucfgd_commit_failures_total", None], 0)
        self.assertEqual(during["ucfgd_sessions", "connected"], 1)
        self.assertEqual(during["ucfgd_sessions", "suspended"], 1)
        self.assertEqual(during["ucfgd_trial_running", None], 1)
        self.assertGreater(during["ucfgd_trial_remaining_seconds", None], 30)
        self.assertGreater(during["ucfgd_memory_bytes", None], 1 << 20)
        made = during["ucfgd_last_commit_timestamp_seconds", None]
        self.assertLess(abs(made - during["ucfgd_start_time_seconds", None]), 60)
        self.assertIn(("ucfgd_limit_met_total", "jobs"), during)
        with ucfg.Session(self.socket) as session:
            session.set("ssh.port", 2302)
            session.commit(trial=1)
            for _ in range(100):
                if session.trial() is None:
                    break
                time.sleep(0.1)
        after = self.collect()
        self.assertEqual(after["ucfgd_trial_running", None], 0)
        self.assertEqual(after["ucfgd_commits_total", None], 2)
        self.assertEqual(self.collect(str(self.root / "nobody")), {("ucfgd_up", None): 0})
