"""What the daemon tells of itself, in Prometheus' text format: the program ucfgd-metrics.

    ucfgd-metrics [--socket PATH] [--output FILE]

With a file, it is replaced as a whole: for the folder of a textfile collector.
"""

from __future__ import annotations

import argparse
import calendar
import os
import sys
import tempfile
import time
from typing import Callable, Dict, List, NamedTuple, Optional, Sequence, Tuple

from .errors import DaemonError, UcfgError
from .paths import path
from .session import Session

Sample = Tuple[Dict[str, str], float]
Samples = Sequence[Sample]


class Family(NamedTuple):
    """A metric: how it is described, and where its samples come from."""

    name: str
    kind: str
    help: str
    read: Callable[[Session], Samples]


def _number(session: Session, *node: str) -> Optional[float]:
    """The number that a management node tells; None where this daemon has no such node."""
    try:
        return float(session.info(path(*node)))
    except (DaemonError, ValueError):
        return None


def _node(name: str) -> Callable[[Session], Samples]:
    def read(session: Session) -> Samples:
        value = _number(session, "daemon", name)
        return [] if value is None else [({}, value)]

    return read


def _sessions(session: Session) -> Samples:
    every = _number(session, "daemon", "sessions")
    suspended = _number(session, "daemon", "suspended-sessions")
    if every is None or suspended is None:
        return []
    connected = every - suspended - 1  # without the one that asks
    return [({"state": "connected"}, connected), ({"state": "suspended"}, suspended)]


def _answers(session: Session) -> Samples:
    sources = (("kept", "kept-answers"), ("evaluated", "fresh-answers"))
    told = [({"source": label}, _number(session, "daemon", name)) for label, name in sources]
    return [(labels, value) for labels, value in told if value is not None]


def _limits(part: str) -> Callable[[Session], Samples]:
    def read(session: Session) -> Samples:
        try:
            names = session.list("daemon.limits", management=True)
        except DaemonError:
            return []
        told = ((name, _number(session, "daemon", "limits", name, part)) for name in names)
        return [({"limit": name}, value) for name, value in told if value is not None]

    return read


def _last_commit(session: Session) -> Samples:
    """As the history has it, which outlives the daemon; else since its start."""
    try:
        for number in session.list("commits.history", management=True)[:20]:
            node = path("commits", "history", number)
            if session.info(node / "state") in ("done", "trial"):
                made = time.strptime(session.info(node / "time"), "%Y-%m-%d %H:%M:%S UTC")
                return [({}, calendar.timegm(made))]
    except (DaemonError, ValueError):
        pass
    since_start = _number(session, "daemon", "last-commit")
    return [({}, since_start)] if since_start else []


def _trial(session: Session) -> Samples:
    try:
        return [({}, 0 if session.trial() is None else 1)]
    except DaemonError:
        return []


def _trial_left(session: Session) -> Samples:
    try:
        trial = session.trial()
    except DaemonError:
        return []
    return [] if trial is None else [({}, trial.seconds or 0)]


FAMILIES = (
    Family("ucfgd_start_time_seconds", "gauge", "When the daemon was started.", _node("started")),
    Family("ucfgd_memory_bytes", "gauge", "Resident memory of the daemon.", _node("memory")),
    Family("ucfgd_sessions", "gauge", "Sessions, by whether they are connected.", _sessions),
    Family(
        "ucfgd_suspended_memory_bytes",
        "gauge",
        "Memory held by sessions without a connection.",
        _node("suspended-memory"),
    ),
    Family("ucfgd_jobs", "gauge", "Children that run actions and commits.", _node("jobs")),
    Family("ucfgd_commits_total", "counter", "Commits of changes that succeeded.", _node("commits")),
    Family(
        "ucfgd_commit_failures_total",
        "counter",
        "Commits that failed while they wrote.",
        _node("failed-commits"),
    ),
    Family(
        "ucfgd_commit_refusals_total",
        "counter",
        "Commits refused before they wrote.",
        _node("refused-commits"),
    ),
    Family(
        "ucfgd_login_refusals_total", "counter", "Log-ins refused.", _node("refused-logins")
    ),
    Family(
        "ucfgd_last_commit_timestamp_seconds",
        "gauge",
        "When the last commit was made.",
        _last_commit,
    ),
    Family("ucfgd_trial_running", "gauge", "Whether a commit is on trial.", _trial),
    Family(
        "ucfgd_trial_remaining_seconds",
        "gauge",
        "Seconds until the trial is undone, 0 while that is done.",
        _trial_left,
    ),
    Family("ucfgd_limit", "gauge", "A limit, in its own unit.", _limits("value")),
    Family(
        "ucfgd_limit_met_total",
        "counter",
        "How often the daemon acted on a limit.",
        _limits("met"),
    ),
    Family(
        "ucfgd_answers_total",
        "counter",
        "Values and access verdicts, by whether they were kept from an earlier request.",
        _answers,
    ),
)


def _label(text: str) -> str:
    return text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")


def _family(name: str, kind: str, help_text: str, samples: Samples) -> List[str]:
    lines = [f"# HELP {name} {help_text}", f"# TYPE {name} {kind}"]
    for labels, value in samples:
        inside = ",".join(f'{key}="{_label(text)}"' for key, text in labels.items())
        lines.append(f"{name}{{{inside}}} {value:.16g}" if inside else f"{name} {value:.16g}")
    return lines


def text_of(session: Session) -> str:
    """All metrics of the daemon that the session is with."""
    lines = _family("ucfgd_up", "gauge", "Whether the daemon answers.", [({}, 1)])
    for family in FAMILIES:
        samples = family.read(session)
        if samples:
            lines += _family(family.name, family.kind, family.help, samples)
    return "\n".join(lines) + "\n"


def text_of_none() -> str:
    """The metrics of a daemon that does not answer."""
    return "\n".join(_family("ucfgd_up", "gauge", "Whether the daemon answers.", [({}, 0)])) + "\n"


def replace_file(name: str, text: str) -> None:
    """Writes a file so that readers find the old contents or the new, never a part."""
    folder = os.path.dirname(os.path.abspath(name))
    handle, temporary = tempfile.mkstemp(prefix=".ucfgd-metrics-", dir=folder)
    try:
        with os.fdopen(handle, "w", encoding="utf-8") as file:
            file.write(text)
            os.fchmod(file.fileno(), 0o644)
        os.replace(temporary, name)
    except BaseException:
        os.unlink(temporary)
        raise


def main(arguments: Optional[Sequence[str]] = None) -> int:
    """The program. Its status is 0 also when the daemon does not answer: the metrics say so."""
    parser = argparse.ArgumentParser(
        prog="ucfgd-metrics", description="Writes what ucfgd tells of itself as Prometheus metrics."
    )
    parser.add_argument("--socket", help="the daemon's local socket (default: /dev/ucfgd)")
    parser.add_argument("--output", metavar="FILE", help="replaces this file (default: print)")
    options = parser.parse_args(arguments)
    try:
        with Session(options.socket, perms=("read", "exec"), wait=10) as session:
            text = text_of(session)
    except UcfgError as problem:
        print(f"ucfgd-metrics: {problem}", file=sys.stderr)
        text = text_of_none()
    try:
        if options.output:
            replace_file(options.output, text)
        else:
            print(text, end="", flush=True)
    except OSError as problem:
        name = options.output or "standard output"
        print(f"ucfgd-metrics: {name}: {problem.strerror}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
