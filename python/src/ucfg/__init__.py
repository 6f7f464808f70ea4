"""Client library of the Unified Configuration Daemon.

    import ucfg

    with ucfg.Session() as session:
        print(session.get("ssh.port"))
        with session.transaction(comment="a second store"):
            session.add("network.hosts", "192.0.2.21")
            session.set(ucfg.path("network", "hosts", "192.0.2.21", "name"), "store.example.net")

`ucfg.aio` has the same session for asyncio.
"""

from __future__ import annotations

from .errors import (
    ActionFailed,
    BatchRefused,
    CommitConflict,
    ConnectError,
    ConnectionLost,
    DaemonError,
    Exists,
    Failed,
    InUse,
    LoginFailed,
    Malformed,
    NotFound,
    ProtocolError,
    Refused,
    ReplyTimeout,
    SessionEnded,
    TransportError,
    TrialRunning,
    UcfgError,
    UsageError,
)
from .model import (
    Add,
    Attributes,
    Commit,
    Delete,
    ItemResult,
    Login,
    Move,
    Order,
    Output,
    Set,
    Trial,
    Value,
)
from .paths import Path, PathLike, path
from .protocol import Reply, Request
from .session import Session, Transaction

__all__ = [
    "ActionFailed",
    "Add",
    "Attributes",
    "BatchRefused",
    "Commit",
    "CommitConflict",
    "ConnectError",
    "ConnectionLost",
    "DaemonError",
    "Delete",
    "Exists",
    "Failed",
    "InUse",
    "ItemResult",
    "Login",
    "LoginFailed",
    "Malformed",
    "Move",
    "NotFound",
    "Order",
    "Output",
    "Path",
    "PathLike",
    "ProtocolError",
    "Refused",
    "Reply",
    "ReplyTimeout",
    "Request",
    "Session",
    "SessionEnded",
    "Set",
    "Transaction",
    "TransportError",
    "Trial",
    "TrialRunning",
    "UcfgError",
    "UsageError",
    "Value",
    "path",
]
