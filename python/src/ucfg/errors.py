"""What can go wrong, as exceptions.

    UcfgError
        UsageError          what no daemon could make sense of; nothing was sent
        TransportError      the connection, not the daemon, is the trouble
            ConnectError    nobody answers there
            ConnectionLost  it ended; Session.resume() may bring the session back
            ReplyTimeout    no answer in time
            ProtocolError   the peer speaks something else, or too much of it
        DaemonError         the daemon's own verdict
            Malformed       BAD: it did not understand the request
            Refused         NO: permission, log-in or time-out
                LoginFailed
                SessionEnded    it timed out, or was logged out
            InUse           INUSE: taken over by another writer, or still connected
            Failed          ERR: understood, but it did not work
                NotFound
                Exists
                CommitConflict
                    TrialRunning
                BatchRefused
                ActionFailed
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Optional, Sequence, Tuple

if TYPE_CHECKING:
    from .model import ItemResult, Output


class UcfgError(Exception):
    """Anything that this library raises on purpose.

    `message` is for people. `identifier` names the error for programs, such as
    "error.network.ip", where the daemon gave one, and `arguments` holds what fills its message.
    `where` is the path that it is about, as people type it, "" where it is about none; as a text
    the error is both.
    """

    where = ""

    def __init__(
        self,
        message: str,
        identifier: Optional[str] = None,
        arguments: Sequence[str] = (),
    ) -> None:
        super().__init__(message)
        self.message = message
        self.identifier = identifier
        self.arguments: Tuple[str, ...] = tuple(arguments)

    def __str__(self) -> str:
        return f"{self.where}: {self.message}" if self.where else self.message


class UsageError(UcfgError, ValueError):
    """A path, value or batch that the protocol cannot carry. Nothing was sent."""


class TransportError(UcfgError):
    """The way to the daemon, rather than the daemon, is the trouble."""


class ConnectError(TransportError):
    """No connection could be made."""


class ConnectionLost(TransportError):
    """The connection ended; the session may still be there to be resumed."""


class ReplyTimeout(TransportError):
    """No answer in time. A late one is skipped by the next request."""


class ProtocolError(TransportError):
    """The peer does not speak the protocol, or broke a limit."""


class DaemonError(UcfgError):
    """The daemon's verdict: a reply that did not end in OK."""


class Malformed(DaemonError):
    """The daemon did not understand the request."""


class Refused(DaemonError):
    """Permission, log-in or time-out."""


class LoginFailed(Refused):
    """The user is not let in, or not with the rights that were asked for."""


class SessionEnded(Refused):
    """There is no session any more: it timed out, or was logged out."""


class InUse(DaemonError):
    """Another writer has taken over, or the session to resume is still connected."""


class Failed(DaemonError):
    """The request was understood and did not work."""


class NotFound(Failed):
    """There is no such parameter, node or entry."""


class Exists(Failed):
    """There is such an entry already."""


class CommitConflict(Failed):
    """Somebody else has committed since this session last read; its changes are gone."""


class TrialRunning(CommitConflict):
    """A commit is on trial, and no other one may be made before that has ended."""


class BatchRefused(Failed):
    """Items of a batch were refused, so none was applied. `results` has one for each item."""

    def __init__(
        self,
        message: str,
        identifier: Optional[str],
        arguments: Sequence[str],
        results: Sequence[ItemResult],
    ) -> None:
        super().__init__(message, identifier, arguments)
        self.results: Tuple[ItemResult, ...] = tuple(results)


class ActionFailed(Failed):
    """A management action failed. `output` is what it printed, where that was collected."""

    def __init__(
        self,
        message: str,
        identifier: Optional[str] = None,
        arguments: Sequence[str] = (),
        output: Sequence[Output] = (),
    ) -> None:
        super().__init__(message, identifier, arguments)
        self.output: Tuple[Output, ...] = tuple(output)
