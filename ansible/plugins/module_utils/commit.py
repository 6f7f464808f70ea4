# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""From edits of a session to a commit: what would change, check mode, trial, and what came of it."""

from __future__ import annotations

import random
import time
from typing import Any, Callable

from ansible.module_utils.basic import AnsibleModule

from . import ucfg
from .changes import told
from .daemon import SESSION_ARGUMENTS, failure, open_session
from .plan import Refused

WRITER_ARGUMENTS: dict[str, dict[str, Any]] = dict(
    SESSION_ARGUMENTS,
    force=dict(type="bool", default=False),
    comment=dict(type="str"),
    trial=dict(type="int", default=0),
    trial_delay=dict(type="int", default=1),
    confirm=dict(type="bool", default=True),
)

# Who has lost begins anew as soon as those who win: with longer and longer pauses, busy neighbours would
# always be faster.
PATIENCE = 30.0
PAUSES = (0.05, 0.5)
# An action fails without an identifier of the reason.
OVERTAKEN = ("commit conflict", "others have changed it meanwhile")

Edit = Callable[[ucfg.Session], None]


def change(module: AnsibleModule, edit: Edit) -> None:
    """Ends the module with the edits committed, or with what was refused and nothing changed."""
    if module.params["confirm"] and 0 < module.params["trial"] <= module.params["trial_delay"]:
        module.fail_json(msg="trial_delay: the trial would be over before anybody confirms it")
    end = time.monotonic() + PATIENCE
    while True:
        try:
            with open_session(module) as session:
                result = _attempt(module, session, edit)
            module.exit_json(**result)
        except Refused as error:
            module.fail_json(msg=f"nothing was committed. {error}", refused=[
                {"name": name, "reason": told["msg"], "error": told.get("error", ""),
                 "arguments": told.get("arguments", [])}
                for name, told in ((name, failure(reason)) for name, reason in error.refusals)])
        except (ucfg.UcfgError, OSError) as error:
            if time.monotonic() >= end or not _overtaken(error):
                module.fail_json(**failure(error))
            time.sleep(random.uniform(*PAUSES))


def _overtaken(error: Exception) -> bool:
    """Whether somebody else was faster, so that a new session would begin on what is there now."""
    if isinstance(error, ucfg.TrialRunning):
        return False
    if isinstance(error, ucfg.CommitConflict):
        return True
    if isinstance(error, ucfg.ActionFailed):
        return any(text in str(error) for text in OVERTAKEN)
    return getattr(error, "identifier", "") == "error.commit.conflict"


def _attempt(module: AnsibleModule, session: ucfg.Session, edit: Edit) -> dict[str, Any]:
    params = module.params
    if params["trial"] > 0:
        _refuse_second_trial(module, session)
    edit(session)
    diff, changes = _what_changes(module, session)
    result: dict[str, Any] = {"changed": bool(diff), "commit": None, "changes": changes}
    if module._diff:
        result["diff"] = {"prepared": diff}
    if not diff or module.check_mode:
        return result  # the edits end with the session
    commit = session.commit(comment=params["comment"], trial=params["trial"] or None)
    if commit is None:
        if params["trial"] > 0 and session.trial() is not None:
            module.fail_json(msg="a commit is on trial that is not found in the history, where this user may not read "
                                 "it; nobody confirms it, and the daemon takes it back")
        return result
    result.update(commit=commit.number, files=list(commit.files), notes=list(commit.notes))
    for note in commit.notes:
        if "fail" in note or "error" in note:
            module.warn(f"committed, but {note}")
    if params["trial"] > 0:
        result["trial"] = {"seconds": params["trial"], "running": True, "confirmed": False, "undone": False}
    return result


def _refuse_second_trial(module: AnsibleModule, session: ucfg.Session) -> None:
    # The daemon would make it a part of the trial that runs, and both would be confirmed together.
    running = session.trial()
    if running is not None:
        module.fail_json(msg=f"a commit is on trial: {running.text}; confirm it or cancel it first",
                         error="error.trial", arguments=[running.user])


def _what_changes(module: AnsibleModule, session: ucfg.Session) -> tuple[str, list[str]]:
    """The diff of the files, empty when a commit would write nothing, and the parameters."""
    if not session.dirty:
        return "", []
    changes = told(module, session, session.changes())
    try:
        diff = session.diff()
        return diff + "\n" if diff else "", changes
    except ucfg.Refused:
        # Lines of files may hold secrets; who may not see them gets the parameters.
        return "".join(line + "\n" for line in changes), changes
