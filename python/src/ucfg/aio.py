"""The session for asyncio: the methods of `ucfg.Session` as coroutines.

    async with ucfg.aio.Session() as session:
        print(await session.get("ssh.port"))
        async for line in session.admin("network.ping", "192.0.2.10"):
            print(line.text)

Tasks may share a session: their requests take turns, the changes are the session's as a whole. A
task may be cancelled, and asyncio.wait_for() used, at any time: the reply that comes late is skipped,
and a commit that was under way is made as a whole or not at all, which the history tells.
"""

from __future__ import annotations

import asyncio
import contextlib
import os
import socket as sockets
from types import TracebackType
from typing import AsyncIterator, Dict, Iterable, List, Optional, Sequence, Tuple, Type, TypeVar

from . import operations
from .connection import QUEUE_PAUSE, RESUME_ATTEMPTS, RESUME_PAUSE, Connection
from .errors import ConnectError, ConnectionLost, InUse, UcfgError
from .model import Add, Attributes, Commit, Delete, Move, Order, Output, Set, Trial, Value
from .operations import Operation
from .paths import Path, PathLike
from .protocol import Exchange, Reply, Request

__all__ = ["Session", "Transaction"]

T = TypeVar("T")

_Streams = Tuple[asyncio.StreamReader, asyncio.StreamWriter]


async def _open_local(address: str) -> _Streams:
    # asyncio takes a full queue of the daemon for a connection that is on its way.
    local = sockets.socket(sockets.AF_UNIX, sockets.SOCK_STREAM)
    try:
        local.setblocking(False)
        while True:
            try:
                local.connect(address)
                break
            except BlockingIOError:
                await asyncio.sleep(QUEUE_PAUSE)
        return await asyncio.open_unix_connection(sock=local)
    except BaseException:
        local.close()
        raise


class Transaction:
    """What Session.transaction() gives; `commit` is the commit that was made, if any."""

    def __init__(self) -> None:
        self.commit: Optional[Commit] = None


class Session(Connection):
    """As `ucfg.Session`, with the same arguments, for `async with`."""

    _reader: Optional[asyncio.StreamReader] = None
    _writer: Optional[asyncio.StreamWriter] = None
    _lock: Optional[asyncio.Lock] = None

    # ---- connecting, log-in and log-out ----

    async def open(self) -> Session:
        """Connects and logs in. Returns the session itself."""
        self._owed = ()
        await self._connect()
        try:
            self.id, self.perms = await self._run(operations.login(self.login))
        except BaseException:
            self.close()
            raise
        self.user = self.login.account
        return self

    async def resume(self, session_id: Optional[str] = None) -> None:
        """Takes up the session of that id, or this one's own after its connection was lost."""
        wanted = session_id or self.id
        for attempt in range(RESUME_ATTEMPTS):
            if attempt:
                await asyncio.sleep(RESUME_PAUSE)
            try:
                await self._connect()
                self.user = await self._run(operations.resume(wanted))
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

    async def logout(self) -> None:
        """Ends the session, with its uncommitted changes, and closes the connection."""
        try:
            await self._run(operations.simple("LOGOUT"))
        finally:
            self.close()
        self.id = ""

    def close(self) -> None:
        """Closes the connection without logging out."""
        # In the child of a fork, closing would take it out of the parent's event loop.
        if self._writer is not None and self._process == os.getpid():
            self._writer.close()
        self._reader = self._writer = None

    def _is_open(self) -> bool:
        return self._writer is not None

    async def __aenter__(self) -> Session:
        return self if self.connected else await self.open()

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        writer = self._writer
        try:
            if self.connected:
                with contextlib.suppress(UcfgError):
                    await self.logout()
        finally:
            self.close()
        if writer is not None:
            try:
                await asyncio.wait_for(writer.wait_closed(), self.wait)
            except (OSError, asyncio.TimeoutError):
                writer.transport.abort()

    async def noop(self) -> None:
        """Asks for nothing: keeps the session from timing out."""
        await self._run(operations.simple("NOOP"))

    async def request(self, request: Request) -> Reply:
        """Sends a request of the protocol and returns its reply, whatever it says."""
        async with self._turn:
            return (await self._exchange([request]))[0]

    # ---- reading ----

    async def get(self, path: PathLike) -> str:
        """The value of a parameter."""
        return await self._run(operations.get(path))

    async def get_many(self, paths: Iterable[PathLike]) -> Dict[Path, str]:
        """The values of many parameters, asked for without waiting in between. Those that cannot
        be had, or are too long, are left out."""
        return await self._run(operations.get_many(paths))

    async def values(self, below: PathLike = "") -> Dict[Path, str]:
        """All values at a node and below it, by their whole paths."""
        return await self._run(operations.values(below))

    async def list(self, path: PathLike = "", management: bool = False) -> List[str]:
        """The plain names of a node's children."""
        return await self._run(operations.list_names(path, management))

    async def list_all(self, path: PathLike = "", management: bool = False) -> List[Path]:
        """All nodes below a node, depth first, as paths relative to it."""
        return await self._run(operations.list_all(path, management))

    async def attr(self, path: PathLike, management: bool = False) -> Attributes:
        """What a node can do, and what values it takes."""
        return await self._run(operations.attr(path, management))

    async def help(self, path: PathLike = "", management: bool = False) -> str:
        """The help text of a node, "" where there is none."""
        return await self._run(operations.help_text(path, management))

    async def access(
        self, path: PathLike, perms: str, *args: str, management: bool = False
    ) -> bool:
        """Whether the node's access method grants `perms`: "r", "w" or "x"."""
        return await self._run(operations.access(path, perms, args, management))

    # ---- the management tree ----

    async def info(self, path: PathLike, *args: str) -> str:
        """The text of a management node."""
        return await self._run(operations.info(path, args))

    async def admin(self, path: PathLike, *args: str) -> AsyncIterator[Output]:
        """Runs a management action and iterates over its output as it arrives, as the blocking
        session does. Other requests are answered at its end, and hold up its output until then."""
        cutter = operations.OutputCutter()
        told: List[Output] = []
        async with self._turn:
            exchange = (await self._send([operations.admin_request(path, args)]))[0]
        try:
            ended = False
            while not ended:
                # Not while the lines are looked at, or requests in between would wait for ever.
                async with self._turn:
                    if not exchange.has_news:
                        await self._receive(patient=True)
                ended = exchange.reply is not None
                for line in cutter.take(exchange.take_lines()):
                    told = (told + [line])[-20:]
                    yield line
        finally:
            self._wire.forget(exchange)
        operations.check_action(path, exchange.reply, told)

    async def run(self, path: PathLike, *args: str) -> List[str]:
        """Runs an action and returns the lines of its standard output. ActionFailed has all of
        the output of one that failed; ProtocolError tells that a line was too long to come whole."""
        return await self._run(operations.run(path, args))

    # ---- changes ----

    async def set(self, path: PathLike, value: Value) -> None:
        """Gives a parameter a value."""
        await self._run(operations.change(Set(path, value)))

    async def add(self, path: PathLike, name: str) -> None:
        """Adds an entry to a list."""
        await self._run(operations.change(Add(path, name)))

    async def delete(self, path: PathLike, name: str) -> None:
        """Takes an entry out of a list."""
        await self._run(operations.change(Delete(path, name)))

    async def move(self, path: PathLike, name: str, other: str) -> None:
        """Moves or renames an entry, as the list defines it."""
        await self._run(operations.change(Move(path, name, other)))

    async def submit(self, orders: Iterable[Order]) -> None:
        """Makes all changes, or none: BatchRefused then tells of each."""
        await self._run(operations.submit(orders))

    async def dirty(self) -> bool:
        """Whether the session holds changes."""
        return await self._run(operations.dirty())

    async def changes(self) -> str:
        """What a commit would change now, parameter by parameter."""
        return await self._run(operations.preview("changes"))

    async def diff(self) -> str:
        """What a commit would write now, as a unified diff of the files."""
        return await self._run(operations.preview("diff"))

    async def revert(self) -> None:
        """Drops the session's changes."""
        await self._run(operations.simple("REVERT"))

    async def update(self) -> None:
        """Brings a session without changes up to what others have committed."""
        await self._run(operations.simple("UPDATE"))

    # ---- commits ----

    async def commit(
        self, comment: Optional[str] = None, trial: Optional[int] = None
    ) -> Optional[Commit]:
        """Writes the changes to the files. With `trial` seconds they are undone unless somebody
        calls confirm() in time. None when nothing was to be written, or no history is kept."""
        return await self._run(operations.commit(comment, trial, self.id))

    async def trial(self) -> Optional[Trial]:
        """The commit on trial, if there is one."""
        return await self._run(operations.trial())

    async def confirm(self) -> None:
        """Keeps the commit on trial for good."""
        await self._run(operations.run("commits.confirm"))

    async def cancel(self) -> None:
        """Undoes the commit on trial at once."""
        await self._run(operations.run("commits.cancel"))

    async def history(self, most: Optional[int] = None) -> List[Commit]:
        """The commits, the newest first, at most so many."""
        return await self._run(operations.history(most))

    async def commit_record(self, number: int) -> Commit:
        """What the history has of one commit."""
        return await self._run(operations.commit_record(number))

    async def commit_changes(self, number: int) -> str:
        """What a commit has changed, parameter by parameter."""
        return await self._run(operations.commit_text(number, "changes"))

    async def commit_diff(self, number: int) -> str:
        """What a commit has changed, line by line."""
        return await self._run(operations.commit_text(number, "diff"))

    async def undo(self, number: int) -> None:
        """Takes back what a commit has changed, as changes of this session."""
        await self._run(operations.bring_back("undo", number))

    async def load(self, number: int) -> None:
        """Makes the files as they stood after a commit changes of this session."""
        await self._run(operations.bring_back("load", number))

    @contextlib.asynccontextmanager
    async def transaction(
        self, comment: Optional[str] = None, trial: Optional[int] = None
    ) -> AsyncIterator[Transaction]:
        """A context that commits when it is left, and reverts when an exception leaves it."""
        await self._run(operations.begin_transaction())
        done = Transaction()
        try:
            yield done
            done.commit = await self.commit(comment, trial)
        except BaseException:
            with contextlib.suppress(UcfgError):
                await self.revert()
            raise

    # ---- the connection ----

    @property
    def _turn(self) -> asyncio.Lock:
        # Made where it is waited for: older Pythons tie it to the loop that they find here.
        if self._lock is None:
            self._lock = asyncio.Lock()
        return self._lock

    async def _connect(self) -> None:
        self._begin()
        if self._lock is not None and not self._lock.locked():
            self._lock = None  # of an earlier loop
        opening = (
            _open_local(self.login.address)
            if self.login.host is None
            else asyncio.open_connection(self.login.host, self.login.port)
        )
        try:
            self._reader, self._writer = await asyncio.wait_for(opening, self.wait)
        except asyncio.TimeoutError:
            raise ConnectError(f"{self.login.peer}: no answer in {self.wait} seconds") from None
        except (OSError, ValueError) as problem:
            raise self.login.unreachable(problem) from problem

    async def _send(self, requests: Sequence[Request]) -> List[Exchange]:
        if self._writer is None or not self.connected:
            raise ConnectionLost("not connected")
        exchanges = self._start(requests)
        self._writer.write(b"".join(exchange.data for exchange in exchanges))
        try:
            await asyncio.wait_for(self._writer.drain(), self.wait)
        except asyncio.TimeoutError:
            raise self._lost(f"takes nothing in {self.wait} seconds") from None
        except ConnectionError:
            pass  # a reply may tell why the daemon listens no more
        return exchanges

    async def _receive(self, patient: bool) -> None:
        if self._reader is None:
            raise ConnectionLost("not connected")
        try:
            data = await asyncio.wait_for(self._reader.read(65536), None if patient else self.wait)
        except asyncio.TimeoutError:
            raise self._late() from None
        except OSError as problem:
            raise self._lost(problem) from problem
        self._take(data)

    async def _exchange(self, requests: Sequence[Request]) -> List[Reply]:
        exchanges = await self._send(requests)
        replies = []
        try:
            for exchange in exchanges:
                while exchange.reply is None:
                    await self._receive(exchange.request.patient)
                replies.append(exchange.reply)
        finally:
            self._forget(exchanges)
        return replies

    async def _run(self, operation: Operation[T]) -> T:
        async with self._turn:
            try:
                requests = next(operation)
                while True:
                    try:
                        replies = await self._exchange(requests)
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
        if self._writer is not None and self.connected:
            exchanges = self._start(requests)
            self._writer.write(b"".join(exchange.data for exchange in exchanges))
            self._forget(exchanges)
            self._owed = ()
