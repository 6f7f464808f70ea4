# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""What the modules share: a session of the daemon, its errors as results, and records of commits."""

from __future__ import annotations

import signal
from typing import Any, Callable, Iterable, NoReturn

from ansible.module_utils.basic import AnsibleModule

from . import ucfg
from .changes import told
from .ucfg import Path
from .words import path_of

SESSION_ARGUMENTS: dict[str, dict[str, Any]] = dict(
    socket=dict(type="path"),
    user=dict(type="str"),
    password=dict(type="str", no_log=True),
    timeout=dict(type="int", default=60),
)

# What a module that was killed has not committed is gone after so many seconds.
_IDLE = 30
# The least that a number may be, whichever module takes it.
_LEAST = {"back_to": 1, "commit": 1, "limit": 0, "timeout": 1, "trial": 0, "trial_delay": 0}

HISTORY = Path("commits", "history")


def make_module(argument_spec: dict[str, Any], one_of: tuple[str, ...] = (), **further: Any) -> AnsibleModule:
    """The module with its options checked; one at least of `one_of` has to be given. Ansible's own check of
    that comes before the one for options that there are not, and would hide a misspelt one."""
    # A connection that is lost takes the terminal away; what the module has opened is to be closed.
    for ending in (signal.SIGHUP, signal.SIGTERM):
        if signal.getsignal(ending) is not signal.SIG_IGN:  # as nohup has it
            signal.signal(ending, _leave)
    module = AnsibleModule(argument_spec=argument_spec, **further)
    for name, least in _LEAST.items():
        number = module.params.get(name)
        if isinstance(number, int) and number < least:
            module.fail_json(msg=f"{name}: {number} is less than {least}")
    if one_of and all(module.params[name] is None for name in one_of):
        module.fail_json(msg=f"one of the following is required: {', '.join(one_of)}")
    return module


def open_session(module: AnsibleModule) -> ucfg.Session:
    """A session with the module's options."""
    params = module.params
    return ucfg.Session(
        params["socket"],
        user=params["user"],
        password=params["password"],
        force=bool(params.get("force")),
        wait=params["timeout"],
        timeout=_IDLE,
    )


def _leave(number: int, _frame: Any) -> None:
    raise SystemExit(128 + number)


def with_session(module: AnsibleModule, work: Callable[[ucfg.Session], dict[str, Any]]) -> NoReturn:
    """Ends the module with what the work returns, or with the daemon's refusal."""
    try:
        with open_session(module) as session:
            result = work(session)
    except (ucfg.UcfgError, OSError) as error:
        module.fail_json(**failure(error))
    if result.get("failed"):
        module.fail_json(**{name: value for name, value in result.items() if name != "failed"})
    module.exit_json(**result)


def failure(error: Exception) -> dict[str, Any]:
    """An error as a module tells it."""
    result: dict[str, Any] = {"msg": worded(error)}
    if getattr(error, "identifier", None):
        result.update(error=error.identifier, arguments=list(error.arguments))
    return result


def worded(error: Exception) -> str:
    """What an error says, to somebody who knows of parameters and not of files."""
    return "there is no such parameter" if isinstance(error, ucfg.NotFound) else getattr(error, "message", str(error))


def option_path(module: AnsibleModule, option: str, text: str) -> Path:
    """The components of a path that was given as an option."""
    try:
        return path_of(text)
    except ValueError as error:
        module.fail_json(msg=f"{option}: {error}")


def run_action(session: ucfg.Session, path: Path, arguments: Iterable[str]) -> tuple[str, str, str]:
    """Standard output, standard error, and why the action failed or nothing."""
    texts: dict[int, list[str]] = {1: [], 2: []}
    refusal = ""
    try:
        for line in session.admin(path, *arguments):
            texts[line.stream].append(line.text)
    except ucfg.ActionFailed as error:
        refusal = error.message
    return "\n".join(texts[1]), "\n".join(texts[2]), refusal


def brief(commit: ucfg.Commit) -> dict[str, Any]:
    """A commit as a module tells it."""
    return {
        "number": commit.number, "state": commit.state, "time": commit.time, "user": commit.user,
        "from": commit.origin, "comment": commit.comment, "files": list(commit.files),
    }


def details(module: AnsibleModule, session: ucfg.Session, number: int) -> dict[str, Any]:
    """All that is known of a commit, as far as this user may see it."""
    commit = session.commit_record(number)
    more: dict[str, Any] = {"changes": [], "diff": "", "notes": list(commit.notes)}
    try:
        more["changes"] = told(module, session, session.commit_changes(number))
        more["diff"] = session.commit_diff(number)
    except (ucfg.Failed, ucfg.Refused):
        pass
    return {**brief(commit), **more}


def state_of(session: ucfg.Session, number: int) -> str:
    """The state of a commit; nothing when it is not kept."""
    if str(number) not in session.list(HISTORY, management=True):
        return ""
    return session.commit_record(number).state
