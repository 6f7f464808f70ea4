"""What the blocking session and the asyncio one share: all but the moving of bytes."""

from __future__ import annotations

import os
from typing import Iterable, List, Optional, Sequence, Tuple

from .errors import ConnectionLost, ReplyTimeout, UcfgError
from .model import Login
from .protocol import Exchange, Request, Wire

RESUME_ATTEMPTS = 12
RESUME_PAUSE = 0.25
#: Between two looks for a place in the daemon's queue of new connections.
QUEUE_PAUSE = 0.02


class Connection:
    """Where a session leads and what is under way there.

    The arguments are those of `ucfg.Login`; `wait` bounds in seconds how long a request may go
    without a word from the daemon (commits and actions may take their time), None does not.
    """

    def __init__(
        self,
        socket: Optional[str] = None,
        *,
        host: Optional[str] = None,
        port: int = 222,
        user: Optional[str] = None,
        password: Optional[str] = None,
        perms: Iterable[str] = (),
        timeout: Optional[int] = None,
        force: bool = False,
        wait: Optional[float] = 60.0,
    ) -> None:
        self.login = Login(socket, host, port, user, password, tuple(perms), timeout, force)
        self.wait = wait
        #: What resume() needs, "" before log-in; the user, and the rights that were granted.
        self.id = ""
        self.user = ""
        self.perms: Tuple[str, ...] = ()
        self._wire = Wire()
        self._process = os.getpid()
        #: What takes back the wishes of a commit whose connection was lost.
        self._owed: Sequence[Request] = ()

    def close(self) -> None:
        """Closes the connection without logging out."""
        raise NotImplementedError

    def _is_open(self) -> bool:
        raise NotImplementedError

    @property
    def connected(self) -> bool:
        """Whether the connection is open, as far as is known. It is not in the child of a fork,
        whose parent goes on with the session."""
        return self._is_open() and self._process == os.getpid()

    def __repr__(self) -> str:
        kind = f"{type(self).__module__.replace('.session', '')}.Session"
        return f"<{kind} of {self.login!r}{'' if self.connected else ', not connected'}>"

    def _begin(self) -> None:
        self.close()
        self._wire = Wire()
        self._process = os.getpid()

    def _start(self, requests: Sequence[Request]) -> List[Exchange]:
        return [self._wire.start(request) for request in requests]

    def _forget(self, exchanges: Iterable[Exchange]) -> None:
        for exchange in exchanges:
            self._wire.forget(exchange)

    def _take(self, data: bytes) -> None:
        if not data:
            raise self._lost("the connection was closed")
        try:
            self._wire.feed(data)
        except UcfgError:
            self.close()
            raise

    def _lost(self, problem: object) -> ConnectionLost:
        self.close()
        return ConnectionLost(f"{self.login.peer}: {problem}")

    def _late(self) -> ReplyTimeout:
        return ReplyTimeout(f"{self.login.peer}: no answer in {self.wait} seconds")
