"""The protocol without a connection: escaping, requests, and replies put together from bytes.

Nothing here reads or writes a socket. A `Wire` turns requests into bytes to send, and bytes that
were received into replies; who moves the bytes, and whether that blocks, is for others.
"""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from typing import Dict, List, NamedTuple, Optional, Sequence, Tuple

from .errors import (
    CommitConflict,
    DaemonError,
    Exists,
    Failed,
    InUse,
    Malformed,
    NotFound,
    ProtocolError,
    Refused,
    SessionEnded,
    TrialRunning,
    UsageError,
)

#: What the daemon's buffers hold; it would cut longer words without a word.
WORD_LIMIT = 1023
COMPONENT_LIMIT = 255
ARGUMENT_LIMIT = 255
ADMIN_WORD_LIMIT = 2047
USER_LIMIT = 63
LINE_LIMIT = 16382
REQUEST_LIMIT = 16 << 20

#: What this side takes.
REPLY_LINE_LIMIT = 65536
REPLY_LIMIT = 64 << 20

_CHUNK_LIMIT = 16000
_NEWLINE = "%0a"
_TO_ESCAPE = re.compile("[\x00-\x1f .+%\x7f\udc80-\udcff]")
_ESCAPED = re.compile(rb"\+|%([0-9A-Fa-f]{2})")
_ITEM = re.compile(r"([0-9]{1,9})(\..*)?$")


def _escaped(found: re.Match[str]) -> str:
    character = found.group()
    return "+" if character == " " else f"%{ord(character) & 0xFF:02x}"


def escape(text: str) -> str:
    """One word as it travels. Bytes that are not UTF-8 stand in `text` as Python's
    "surrogateescape" puts them."""
    if "\0" in text:
        raise UsageError("a word cannot hold a NUL character")
    word = _TO_ESCAPE.sub(_escaped, text)
    try:
        word.encode()
    except UnicodeEncodeError:
        raise UsageError("the text holds half a character") from None
    return word


def unescape(word: str) -> str:
    """The reverse of escape()."""

    def plain(found: re.Match[bytes]) -> bytes:
        return bytes.fromhex(found.group(1).decode()) if found.group(1) else b" "

    raw = _ESCAPED.sub(plain, word.encode(errors="surrogateescape"))
    return raw.decode(errors="surrogateescape")


def checked_word(text: str, limit: int, what: str) -> str:
    """An escaped word that the daemon takes whole; `what` names it in a complaint."""
    word = escape(text)
    if not word:
        raise UsageError(f"{what} cannot be empty")
    if len(word.encode()) > limit:
        raise UsageError(f"{what} is too long")
    return word


def value_lines(word: str) -> List[str]:
    """Cuts an escaped value that is too long for one word at its newlines. The daemon joins the
    parts with newlines, so the one at each cut is left out; it drops empty parts, so none is
    made."""
    rest = word.encode()
    newline = _NEWLINE.encode()
    lines = []
    while len(rest) > _CHUNK_LIMIT:
        cut = rest.rfind(newline, 0, _CHUNK_LIMIT + len(newline))
        if cut > 0 and cut + len(newline) == len(rest):
            cut = rest.rfind(newline, 0, cut)
        if cut <= 0:
            raise UsageError("a line of the value is too long")
        lines.append(rest[:cut].decode())
        rest = rest[cut + len(newline) :]
    lines.append(rest.decode())
    return lines


@dataclass(frozen=True)
class Request:
    """A command line without its tag, and the continuation lines before it: what stands behind
    the tag, from the full stop on. `patient` ones may take their time. `secret` ones are never
    shown."""

    line: str
    continuation: Tuple[str, ...] = ()
    patient: bool = False
    secret: bool = False

    def __repr__(self) -> str:
        return f"<Request {self.line.split(' ', 1)[0] if self.secret else self.line}>"

    def encode(self, tag: str) -> bytes:
        """The bytes to send."""
        lines = [tag + text for text in self.continuation] + [f"{tag} {self.line}"]
        if any(character < " " for line in lines for character in line):
            raise UsageError("a request cannot hold control characters")
        try:
            coded = [line.encode(errors="surrogateescape") for line in lines]
        except UnicodeEncodeError:
            raise UsageError("the text holds half a character") from None
        if max(map(len, coded)) > LINE_LIMIT:
            raise UsageError("the arguments are too long together")
        data = b"\n".join(coded) + b"\n"
        if len(data) > REQUEST_LIMIT:
            raise UsageError("the request is too long")
        return data


class Line(NamedTuple):
    """A data line of a reply: what stands between tag and blank, and the text behind it."""

    qualifier: str
    text: str


#: What is said of a refusal that the daemon gives no reason for.
UNSAID = "refused without a reason"

_ENDED = ("timed out", "logged out", "login required")
_ABSENT = ("parameter not found", "No such file or directory", "Entry does not exist")


@dataclass
class Reply:
    """A whole reply: the final word, the text behind it, and the data lines before it. `cut` when
    one of them is as long as the daemon makes them, which drops the rest of longer ones."""

    word: str
    text: str
    lines: List[Line] = field(default_factory=list)
    cut: bool = False

    def values(self, qualifier: str = "1") -> List[str]:
        """The texts of all lines of that qualifier."""
        return [line.text for line in self.lines if line.qualifier == qualifier]

    def first(self, qualifier: str = "1") -> str:
        """The unescaped text of the last such line, "" where there is none."""
        texts = self.values(qualifier)
        return unescape(texts[-1]) if texts else ""

    @property
    def identifier(self) -> Optional[str]:
        """The identifier of the error, where the daemon gave one."""
        return next(iter(self.values("error")[-1:]), None)

    @property
    def arguments(self) -> List[str]:
        """The arguments of the error's message."""
        return self.values("error.arg")

    def error(self, where: object = "", unsaid: str = UNSAID) -> DaemonError:
        """The exception that this reply calls for. `where` is what was asked about; `unsaid` is
        the message of a reply that gives no reason."""
        error = verdict(self.word, self.text, self.identifier, self.arguments, unsaid)
        error.where = str(where)
        return error

    def check(self, where: object = "", unsaid: str = UNSAID) -> Reply:
        """The reply itself when all went well and all of it came; raises what error() says
        otherwise."""
        if self.word != "OK":
            raise self.error(where, unsaid)
        if self.cut:
            problem = ProtocolError("longer than a line of the protocol, 16 KiB: its end is lost")
            problem.where = str(where)
            raise problem
        return self


def _failure(text: str, identifier: Optional[str]) -> type[Failed]:
    if identifier in ("error.trial", "error.trial.undo"):
        return TrialRunning
    if text == "commit conflict" or text == "session is dirty and not current":
        return CommitConflict
    if text in _ABSENT or text.startswith("result=3"):
        return NotFound
    if identifier == "error.exists" or text == "Entry already exists":
        return Exists
    return Failed


_RESULT = re.compile("result=([1-5]) (.*)", re.DOTALL)
_RESULTS = {
    "1": "no answer from the node's method",
    "2": "refused by the node's method",
    "3": "no such parameter",
    "4": "no such parameter",
}
#: The system's words where no method had any.
_EMPTY = ("Success", "Invalid argument", "No such file or directory")


def _readable(text: str, unsaid: str) -> str:
    """What a reply says, for people; "" when it says nothing."""
    found = _RESULT.match(text)
    if not found:
        return "" if text == "Success" else text
    said = _RESULTS.get(found.group(1), unsaid)
    return said if found.group(2) in _EMPTY else f"{said}: {found.group(2)}"


def verdict(
    word: str,
    text: str,
    identifier: Optional[str] = None,
    arguments: Sequence[str] = (),
    unsaid: str = UNSAID,
) -> DaemonError:
    """The exception for a final word and the text behind it."""
    kind: type[DaemonError]
    if word == "ERR":
        kind = _failure(text, identifier)
    elif word == "NO":
        kind = SessionEnded if text in _ENDED else Refused
    else:
        kind = InUse if word == "INUSE" else Malformed
    said = _readable(text, unsaid) or identifier or unsaid
    if identifier == "error.trial" and len(arguments) > 2:
        said = f"a commit of {arguments[0]} is on trial until {arguments[2]}"
    return kind(said, identifier, arguments)


_WORDS = ("OK", "NO", "BAD", "ERR", "INUSE")


def read_verdict(text: str) -> Tuple[str, str]:
    """Final word and text of what stands behind the tag. One reply has no final word: it
    complains of a missing argument."""
    word, _, rest = text.partition(" ")
    return (word, rest) if word in _WORDS else ("BAD", text)


def item_of(qualifier: str) -> Tuple[int, str]:
    """The number of a batch's item, from 1, and what follows it; 0 where it is none."""
    found = _ITEM.match(qualifier)
    return (int(found.group(1)), found.group(2) or "") if found else (0, qualifier)


class Exchange:
    """A request under way. `data` is to be sent; `reply` is there once the answer is complete;
    take_lines() hands out data lines as they arrive."""

    def __init__(self, tag: str, request: Request) -> None:
        self.tag = tag
        self.request = request
        self.data = request.encode(tag)
        self.reply: Optional[Reply] = None
        self._lines: List[Line] = []
        self._size = 0
        self._cut = False

    @property
    def has_news(self) -> bool:
        """Whether there are lines to take, or the reply."""
        return bool(self._lines) or self.reply is not None

    def take_lines(self) -> List[Line]:
        """Data lines that have arrived since the last call. They do not stand in the reply."""
        lines, self._lines = self._lines, []
        self._size = 0
        return lines

    def add(self, rest: str, cut: bool = False) -> None:
        """A line of the answer, from behind the tag on."""
        self._cut = self._cut or cut
        if rest.startswith("."):
            qualifier, _, text = rest[1:].partition(" ")
            self._size += len(rest)
            if self._size > REPLY_LIMIT:
                raise ProtocolError("the reply is larger than this client takes")
            self._lines.append(Line(qualifier, text))
        else:
            word, text = read_verdict(rest[1:])
            self.reply = Reply(word, text, self._lines, self._cut)


class Wire:
    """Both directions of one connection, as bytes."""

    def __init__(self) -> None:
        self._open: Dict[str, Exchange] = {}
        self._buffer = bytearray()
        self._count = 0

    def start(self, request: Request) -> Exchange:
        """Gives the request a tag of its own."""
        self._count += 1
        exchange = Exchange(f"u{self._count % 100000000}", request)
        self._open[exchange.tag] = exchange
        return exchange

    def forget(self, exchange: Exchange) -> None:
        """Skips whatever still comes for it."""
        self._open.pop(exchange.tag, None)

    def feed(self, data: bytes) -> None:
        """Takes bytes that were received, and gives each line to its exchange."""
        scanned = len(self._buffer)
        self._buffer += data
        end = self._buffer.rfind(b"\n", scanned)
        if end >= 0:
            whole = bytes(self._buffer[:end])
            del self._buffer[: end + 1]
            for line in whole.split(b"\n"):
                self._take(line.decode(errors="surrogateescape"), len(line) >= LINE_LIMIT)
        if len(self._buffer) > REPLY_LINE_LIMIT:
            raise ProtocolError("a line of the reply is too long")

    def _take(self, line: str, cut: bool) -> None:
        at = re.search(r"[ .]|$", line)
        tag = line[: at.start()] if at else line
        exchange = self._open.get(tag)
        if exchange is None:
            return  # the rest of an answer that nobody waits for any more
        exchange.add(line[len(tag) :], cut)
        if exchange.reply is not None:
            del self._open[tag]
