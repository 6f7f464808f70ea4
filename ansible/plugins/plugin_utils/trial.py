# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""The controller's part of a commit on trial: it confirms over a new connection, or says what became
of the commit."""

from __future__ import annotations

import time
from typing import Any

from ansible.errors import AnsibleActionFail, AnsibleConnectionFailure, AnsibleError
from ansible.plugins.action import ActionBase
from ansible.plugins.connection import ConnectionBase
from ansible.utils.display import Display

SESSION_OPTIONS = ("socket", "user", "password", "timeout")
# A machine that was cut off answers again when the daemon has taken the commit back; its services may
# need a while for that.
AFTERMATH = 15
PAUSE = 1

display = Display()


class TrialActionModule(ActionBase):
    """The action beside each module that commits."""

    TRANSFERS_FILES = False

    def run(self, tmp: Any = None, task_vars: dict[str, Any] | None = None) -> dict[str, Any]:
        task_vars = task_vars or {}
        self._supports_async = True
        result: dict[str, Any] = super().run(tmp, task_vars)
        is_async = bool(self._task.async_val)
        if is_async and self._wants_trial() and self._option("confirm", True):
            raise AnsibleActionFail(
                "an async task ends before its commit could be confirmed: give it confirm: false, and confirm with "
                "ucfgd.config.trial later")
        try:
            result.update(self._execute_module(task_vars=task_vars, wrap_async=is_async))
        except AnsibleConnectionFailure as error:
            if not self._wants_trial():
                raise
            result.update(unreachable=True, msg=(
                f"{error}. If that was during the commit, it is on trial, nobody confirms it, "
                "and the daemon takes it back by itself"))
            return result
        trial = result.get("trial") or {}
        if result.get("failed") or not trial.get("running") or not self._option("confirm", True):
            return result
        self._display_waiting(result)
        result.update(self._confirm(result["commit"], trial, task_vars))
        return result

    def cleanup(self, force: bool = False) -> None:
        try:
            super().cleanup(force)
        except AnsibleConnectionFailure as error:
            display.vvv(f"scratch files of the target stay there: {error}")

    def _option(self, name: str, default: Any) -> Any:
        value = self._task.args.get(name)
        if value is None:
            return default
        if isinstance(default, bool):
            return str(value).lower() in ("true", "yes", "on", "1", "y", "t")
        return value

    def _wants_trial(self) -> bool:
        return str(self._option("trial", 0)) not in ("0", "") and not self._task.check_mode

    def _display_waiting(self, result: dict[str, Any]) -> None:
        display.vv(f"commit {result['commit']} is on trial; it is confirmed over a new connection")
        time.sleep(float(self._option("trial_delay", 1)))

    def _confirm(self, number: int, trial: dict[str, Any], task_vars: dict[str, Any]) -> dict[str, Any]:
        """Tries until the trial is over. What the daemon answers is final; what connections do is not."""
        deadline = time.monotonic() + trial["seconds"]
        arguments = {"state": "confirmed", "commit": number}
        reason = ""
        while True:
            try:
                answer = self._ask("trial", arguments, task_vars)
            except AnsibleError as error:
                reason = f"no new connection could be made: {error}"
            else:
                if not answer.get("failed"):
                    return {"trial": dict(trial, running=False, confirmed=True)}
                reason = reason or str(answer.get("msg"))
                if "state" in answer:
                    break
            if time.monotonic() >= deadline:
                break
            time.sleep(PAUSE)
        return self._taken_back(number, trial, reason, task_vars)

    def _taken_back(self, number: int, trial: dict[str, Any], reason: str,
                    task_vars: dict[str, Any]) -> dict[str, Any]:
        """Waits for the machine to answer again, and tells in which state the commit is."""
        state, end = "", time.monotonic() + AFTERMATH
        while state in ("", "trial") and time.monotonic() < end:
            try:
                answer = self._ask("history", {"commit": number}, task_vars)
                state = (answer.get("commits") or [{}])[0].get("state", "")
            except AnsibleError as error:
                display.vvv(f"still no connection: {error}")
            if state in ("", "trial"):
                time.sleep(PAUSE)
        outcome = {
            "undone": "The daemon has taken it back, the files are as they were",
            "": "The daemon takes it back by itself; the machine could not be asked yet",
        }.get(state, f"Its state is: {state}")
        return {
            "failed": True,
            "changed": state != "undone",
            "msg": f"commit {number} was on trial for {trial['seconds']} seconds and was not confirmed, "
                   f"since {reason}. {outcome}",
            "trial": dict(trial, running=state == "trial", confirmed=False, undone=state == "undone"),
        }

    def _ask(self, module: str, arguments: dict[str, Any], task_vars: dict[str, Any]) -> dict[str, Any]:
        """Runs a module of this collection over a connection of its own."""
        connection = self._connection
        if type(connection).reset is ConnectionBase.reset:
            connection.close()
        else:
            connection.reset()
        session = {name: self._task.args[name] for name in SESSION_OPTIONS if name in self._task.args}
        answer: dict[str, Any] = self._execute_module(
            module_name=f"ucfgd.config.{module}", module_args={**session, **arguments}, task_vars=task_vars)
        return answer
