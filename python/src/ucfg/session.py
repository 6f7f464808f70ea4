"""The blocking session."""

from __future__ import annotations

import socket
import time
from types import TracebackType
from typing import Dict, Iterable, Iterator, List, Optional, Sequence, Type, TypeVar

from . import operations
from .connection import QUEUE_PAUSE, RESUME_ATTEMPTS, RESUME_PAUSE, Connection
from .errors import ConnectError, ConnectionLost, InUse, UcfgError
from .model import Add, Attributes, Commit, Delete, Move, Order, Output, Set, Trial, Value
from .operations import Operation
from .paths import Path, PathLike
from .protocol import Exchange, Reply, Request

T = TypeVar("T")


class Session(Connection):
    """A session with the daemon, as a context manager that logs in and out:

        with ucfg.Session() as session:
            session.set("ssh.port", 2222)
            session.commit(comment="out of the way of scanners")

    The arguments are those of `ucfg.Login`: without any, the local socket as the account that the
    program runs under. `wait` bounds in seconds how long a request may go without a word from
    the daemon (commits and actions may take their time). Where a path is asked for, text is
    taken as one types it, and `ucfg.path()` takes plain components. A text of more than 16 KiB,
    longer than a line of the protocol, raises ProtocolError.

    Leaving the context logs out, and changes that were not committed are gone. close() instead
    keeps the session at the daemon until its time-out, for resume(). A commit that is broken
    off, by Ctrl-C say, is made as a whole or not at all; the history tells.

    One session serves one thread at a time, and the process that opened it: a child made by
    fork opens one of its own.
    """

    _socket: Optional[socket.socket] = None

    # ---- connecting, log-in and log-out ----

    def open(self) -> Session:
        """Connects and logs in. Returns the session itself."""
        self._owed = ()
        self._connect()
        try:
            self.id, self.perms = self._run(operations.login(self.login))
        except BaseException:
            self.close()
            raise
        self.user = self.login.account
        return self

    def resume(self, session_id: Optional[str] = None) -> None:
        """Takes up the session of that id, or this one's own after its connection was lost, with
        its uncommitted changes. The daemon may need a moment to see that the old connection is
        gone."""
        wanted = session_id or self.id
        for attempt in range(RESUME_ATTEMPTS):
            if attempt:
                time.sleep(RESUME_PAUSE)
            try:
                self._connect()
                self.user = self._run(operations.resume(wanted))
                self.id = wanted
                self._take_back(self._owed)
                return
            except (InUse, ConnectError, ConnectionLost):
                self.close()
                if attempt == RESUME_ATTEMPTS - 1:
                    raise
            except BaseException:
                self.close()
                raise

    def logout(self) -> None:
        """Ends the session, with its uncommitted changes, and closes the connection."""
        try:
            self._run(operations.simple("LOGOUT"))
        finally:
            self.close()
        self.id = ""

    def close(self) -> None:
        """Closes the connection without logging out."""
        if self._socket is not None:
            self._socket.close()
            self._socket = None

    def _is_open(self) -> bool:
        return self._socket is not None

    def __enter__(self) -> Session:
        return self if self.connected else self.open()

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        try:
            if self.connected:
                self.logout()
        except UcfgError:
            pass  # The session has ended in another way, which who asked last has been told.
        finally:
            self.close()

    def noop(self) -> None:
        """Asks for nothing: keeps the session from timing out."""
        self._run(operations.simple("NOOP"))

    def request(self, request: Request) -> Reply:
        """Sends a request of the protocol and returns its reply, whatever it says."""
        return self._exchange([request])[0]

    # ---- reading ----

    def get(self, path: PathLike) -> str:
        """The value of a parameter."""
        return self._run(operations.get(path))

    def get_many(self, paths: Iterable[PathLike]) -> Dict[Path, str]:
        """The values of many parameters, asked for without waiting in between. Those that cannot
        be had, or are too long, are left out."""
        return self._run(operations.get_many(paths))

    def values(self, below: PathLike = "") -> Dict[Path, str]:
        """All values at a node and below it, by their whole paths."""
        return self._run(operations.values(below))

    def list(self, path: PathLike = "", management: bool = False) -> List[str]:
        """The plain names of a node's children."""
        return self._run(operations.list_names(path, management))

    def list_all(self, path: PathLike = "", management: bool = False) -> List[Path]:
        """All nodes below a node, depth first, as paths relative to it."""
        return self._run(operations.list_all(path, management))

    def attr(self, path: PathLike, management: bool = False) -> Attributes:
        """What a node can do, and what values it takes."""
        return self._run(operations.attr(path, management))

    def help(self, path: PathLike = "", management: bool = False) -> str:
        """The help text of a node, "" where there is none."""
        return self._run(operations.help_text(path, management))

    def access(
        self, path: PathLike, perms: str, *args: str, management: bool = False
    ) -> bool:
        """Whether the node's access method grants `perms`: "r", "w" or "x"."""
        return self._run(operations.access(path, perms, args, management))

    # ---- the management tree ----

    def info(self, path: PathLike, *args: str) -> str:
        """The text of a management node."""
        return self._run(operations.info(path, args))

    def admin(self, path: PathLike, *args: str) -> Iterator[Output]:
        """Runs a management action and iterates over its output as it arrives. Raises
        ActionFailed behind the last line when the action failed. A line of more than 16 KiB comes
        in pieces, without a few bytes where it was cut. Other requests wait for the
        action's end, also when the iteration is given up; one that never ends, such as
        commits.watch, wants a session of its own."""
        exchange = self._send([operations.admin_request(path, args)])[0]
        return self._output(path, exchange)

    def run(self, path: PathLike, *args: str) -> List[str]:
        """Runs an action and returns the lines of its standard output. ActionFailed has all of
        the output of one that failed; ProtocolError tells that a line was too long to come whole."""
        return self._run(operations.run(path, args))

    # ---- changes ----

    def set(self, path: PathLike, value: Value) -> None:
        """Gives a parameter a value."""
        self._run(operations.change(Set(path, value)))

    def add(self, path: PathLike, name: str) -> None:
        """Adds an entry to a list."""
        self._run(operations.change(Add(path, name)))

    def delete(self, path: PathLike, name: str) -> None:
        """Takes an entry out of a list."""
        self._run(operations.change(Delete(path, name)))

    def move(self, path: PathLike, name: str, other: str) -> None:
        """Moves or renames an entry, as the list defines it."""
        self._run(operations.change(Move(path, name, other)))

    def submit(self, orders: Iterable[Order]) -> None:
        """Makes all changes, or none: BatchRefused then tells of each."""
        self._run(operations.submit(orders))

    @property
    def dirty(self) -> bool:
        """Whether the session holds changes."""
        return self._run(operations.dirty())

    def changes(self) -> str:
        """What a commit would change now, parameter by parameter."""
        return self._run(operations.preview("changes"))

    def diff(self) -> str:
        """What a commit would write now, as a unified diff of the files."""
        return self._run(operations.preview("diff"))

    def revert(self) -> None:
        """Drops the session's changes."""
        self._run(operations.simple("REVERT"))

    def update(self) -> None:
        """Brings a session without changes up to what others have committed."""
        self._run(operations.simple("UPDATE"))

    # ---- commits ----

    def commit(
        self, comment: Optional[str] = None, trial: Optional[int] = None
    ) -> Optional[Commit]:
        """Writes the changes to the files. With `trial` seconds they are undone unless somebody
        calls confirm() in time. None when nothing was to be written, or no history is kept."""
        return self._run(operations.commit(comment, trial, self.id))

    def trial(self) -> Optional[Trial]:
        """The commit on trial, if there is one."""
        return self._run(operations.trial())

    def confirm(self) -> None:
        """Keeps the commit on trial for good."""
        self._run(operations.run("commits.confirm"))

    def cancel(self) -> None:
        """Undoes the commit on trial at once."""
        self._run(operations.run("commits.cancel"))

    def history(self, most: Optional[int] = None) -> List[Commit]:
        """The commits, the newest first, at most so many."""
        return self._run(operations.history(most))

    def commit_record(self, number: int) -> Commit:
        """What the history has of one commit."""
        return self._run(operations.commit_record(number))

    def commit_changes(self, number: int) -> str:
        """What a commit has changed, parameter by parameter."""
        return self._run(operations.commit_text(number, "changes"))

    def commit_diff(self, number: int) -> str:
        """What a commit has changed, line by line."""
        return self._run(operations.commit_text(number, "diff"))

    def undo(self, number: int) -> None:
        """Takes back what a commit has changed, as changes of this session."""
        self._run(operations.bring_back("undo", number))

    def load(self, number: int) -> None:
        """Makes the files as they stood after a commit changes of this session."""
        self._run(operations.bring_back("load", number))

    def transaction(
        self, comment: Optional[str] = None, trial: Optional[int] = None
    ) -> Transaction:
        """A context that commits when it is left, and reverts when an exception leaves it:

            with session.transaction(comment="second server") as done:
                session.add("network.hosts", "192.0.2.20")
            print(done.commit)
        """
        return Transaction(self, comment, trial)

    # ---- the connection ----

    def _connect(self) -> None:
        self._begin()
        try:
            if self.login.host is not None:
                address = (self.login.host, self.login.port)
                self._socket = socket.create_connection(address, self.wait)
                return
            self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            self._socket.settimeout(self.wait)
            self._connect_local(self._socket)
        except (OSError, ValueError) as problem:
            self.close()
            raise self.login.unreachable(problem) from problem
        except BaseException:
            self.close()
            raise

    def _connect_local(self, local: socket.socket) -> None:
        # With a timeout, connect() does not wait for a place in the daemon's queue.
        end = time.monotonic() + (self.wait or 0)
        while True:
            try:
                local.connect(self.login.address)
                return
            except BlockingIOError:
                if time.monotonic() >= end:
                    raise socket.timeout(f"no answer in {self.wait} seconds") from None
                time.sleep(QUEUE_PAUSE)

    def _open_socket(self) -> socket.socket:
        if self._socket is None or not self.connected:
            raise ConnectionLost("not connected")
        return self._socket

    def _send(self, requests: Sequence[Request]) -> List[Exchange]:
        peer = self._open_socket()
        exchanges = self._start(requests)
        try:
            peer.settimeout(self.wait)
            peer.sendall(b"".join(exchange.data for exchange in exchanges))
        except (BrokenPipeError, ConnectionResetError):
            pass  # a reply may tell why the daemon listens no more
        except BaseException as problem:
            # What was sent in part cannot be gone on with.
            lost = self._lost(problem)
            if isinstance(problem, OSError):
                raise lost from problem
            raise
        return exchanges

    def _receive(self, patient: bool) -> None:
        peer = self._open_socket()
        try:
            peer.settimeout(None if patient else self.wait)
            data = peer.recv(65536)
        except socket.timeout:
            raise self._late() from None
        except OSError as problem:
            raise self._lost(problem) from problem
        self._take(data)

    def _exchange(self, requests: Sequence[Request]) -> List[Reply]:
        exchanges = self._send(requests)
        replies = []
        try:
            for exchange in exchanges:
                while exchange.reply is None:
                    self._receive(exchange.request.patient)
                replies.append(exchange.reply)
        finally:
            self._forget(exchanges)
        return replies

    def _run(self, operation: Operation[T]) -> T:
        try:
            requests = next(operation)
            while True:
                try:
                    replies = self._exchange(requests)
                except BaseException as problem:
                    self._take_back(operation.throw(problem))
                    raise
                requests = operation.send(replies)
        except StopIteration as end:
            result: T = end.value
            return result

    def _take_back(self, requests: Sequence[Request]) -> None:
        """Sends what an operation that was broken off leaves to be done. Nobody waits for it."""
        self._owed = requests
        try:
            self._forget(self._send(requests))
            self._owed = ()
        except UcfgError:
            pass  # resume() comes back to it

    def _output(self, path: PathLike, exchange: Exchange) -> Iterator[Output]:
        cutter = operations.OutputCutter()
        told: List[Output] = []
        try:
            ended = False
            while not ended:
                if not exchange.has_news:
                    self._receive(patient=True)
                # Requests between the lines may bring more of them, and the end.
                ended = exchange.reply is not None
                for line in cutter.take(exchange.take_lines()):
                    told = (told + [line])[-20:]
                    yield line
        finally:
            self._wire.forget(exchange)
        operations.check_action(path, exchange.reply, told)


class Transaction:
    """What Session.transaction() gives; `commit` is the commit that was made, None before that,
    and when nothing was to be written."""

    def __init__(self, session: Session, comment: Optional[str], trial: Optional[int]) -> None:
        self._session = session
        self._comment = comment
        self._trial = trial
        self.commit: Optional[Commit] = None

    def __enter__(self) -> Transaction:
        self._session._run(operations.begin_transaction())
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        if error is None:
            try:
                self.commit = self._session.commit(self._comment, self._trial)
                return
            except BaseException:
                self._revert()
                raise
        self._revert()

    def _revert(self) -> None:
        try:
            self._session.revert()
        except UcfgError:
            pass  # the session is gone, and its changes with it
