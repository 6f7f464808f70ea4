"""The records that sessions take and hand out."""

from __future__ import annotations

import os
import pwd
from dataclasses import dataclass
from typing import NamedTuple, Optional, Tuple, Union

from .errors import ConnectError, DaemonError, UsageError
from .paths import PathLike

#: What a parameter is set to; a number is written in decimal digits.
Value = Union[str, int]


@dataclass(frozen=True)
class Login:
    """Where the daemon is and as whom to enter.

    Without a host, over the local socket: `socket`, else the environment's UCFGD_SOCKET, else
    /dev/ucfgd. Without a user, as the account that the program runs under; over the local socket
    that needs no password. `perms` asks for fewer rights ("read", "write", "exec"), `timeout`
    for another time of idling in seconds, `force` logs every other writer out.
    """

    socket: Optional[str] = None
    host: Optional[str] = None
    port: int = 222
    user: Optional[str] = None
    password: Optional[str] = None
    perms: Tuple[str, ...] = ()
    timeout: Optional[int] = None
    force: bool = False

    def __post_init__(self) -> None:
        number = isinstance(self.port, int) and not isinstance(self.port, bool)
        if not number or not 1 <= self.port <= 65535:
            raise UsageError(f"a port is a number from 1 to 65535, not {self.port!r}")

    @property
    def address(self) -> str:
        """The local socket's path."""
        return self.socket or os.environ.get("UCFGD_SOCKET") or "/dev/ucfgd"

    @property
    def peer(self) -> str:
        """Where this leads, for messages."""
        return f"{self.host}:{self.port}" if self.host else self.address

    @property
    def account(self) -> str:
        """The user to log in as."""
        if self.user:
            return self.user
        try:
            return pwd.getpwuid(os.geteuid()).pw_name
        except KeyError:
            return str(os.geteuid())

    def unreachable(self, problem: Exception) -> ConnectError:
        """What to raise when no connection comes about; a host's name or a port may be none."""
        return ConnectError(f"{self.peer}: {getattr(problem, 'strerror', None) or problem}")

    def __repr__(self) -> str:
        return f"<Login {self.account} at {self.peer}>"


@dataclass(frozen=True)
class Attributes:
    """What a node can do.

    `operations` has a letter each: g get, s set, a add, d delete, m move, h help, A admin,
    I info, l has children. `length` is the longest value in characters, 0 without a limit.
    """

    operations: str = ""
    length: int = 0
    choices: Tuple[str, ...] = ()
    flags: Tuple[str, ...] = ()
    type: Optional[str] = None


@dataclass(frozen=True)
class Set:
    """Gives a parameter a value."""

    path: PathLike
    value: Value


@dataclass(frozen=True)
class Add:
    """Adds an entry to a list."""

    path: PathLike
    name: str


@dataclass(frozen=True)
class Delete:
    """Takes an entry out of a list."""

    path: PathLike
    name: str


@dataclass(frozen=True)
class Move:
    """Moves or renames an entry, as the list defines it."""

    path: PathLike
    name: str
    other: str


Order = Union[Set, Add, Delete, Move]


@dataclass(frozen=True)
class ItemResult:
    """What became of one item of a batch. `error` is None when the item alone would have passed."""

    order: Order
    error: Optional[DaemonError] = None


class Output(NamedTuple):
    """A line that an action has printed: stream 1 is its standard output, 2 its standard
    error."""

    stream: int
    text: str


@dataclass(frozen=True)
class Commit:
    """A commit of the history. `state` is "done", "trial", "undone", "failed" or "open"; `origin`
    tells where it came from; `files` and `notes` have a line each."""

    number: int
    state: str
    time: str
    user: str
    origin: str
    comment: str
    files: Tuple[str, ...]
    notes: Tuple[str, ...]


@dataclass(frozen=True)
class Trial:
    """The commit on trial. `seconds` are left; None while it is being undone, and then `text`
    tells how that goes."""

    number: int
    user: str
    seconds: Optional[int]
    text: str
