"""What a session can be asked, without a connection.

Each operation is a generator: it yields the requests that may travel together, is sent their
replies, and returns its result. The blocking session and the asyncio one drive the same ones.
"""

from __future__ import annotations

import re
from hashlib import sha256
from typing import Callable, Dict, Generator, Iterable, List, Optional, Sequence, Tuple, TypeVar

from .errors import (
    ActionFailed,
    BatchRefused,
    DaemonError,
    InUse,
    LoginFailed,
    ProtocolError,
    SessionEnded,
    UcfgError,
    UsageError,
)
from .model import Add, Attributes, Commit, ItemResult, Login, Move, Order, Output
from .model import Set, Trial, Value
from .paths import Path, PathLike, as_path, path, wire_path
from .protocol import (
    ADMIN_WORD_LIMIT,
    ARGUMENT_LIMIT,
    UNSAID,
    USER_LIMIT,
    WORD_LIMIT,
    Line,
    Reply,
    Request,
    checked_word,
    escape,
    item_of,
    read_verdict,
    unescape,
    value_lines,
    verdict,
)

T = TypeVar("T")

#: Requests out, replies in, and a result in the end.
Operation = Generator[Sequence[Request], Sequence[Reply], T]

_WINDOW = 64
_PERMS = ("read", "write", "exec")
_TRIAL = re.compile(r"commit ([0-9]+), user (.*?), (?:([0-9]+) seconds left|(.*))$", re.DOTALL)
_HISTORY = path("commits", "history")
_COMMIT_PARTS = ("state", "time", "user", "from", "comment", "files", "notes")


def ask(request: Request, of: PathLike = "", unsaid: str = UNSAID) -> Operation[Reply]:
    """One request, about that node, that must succeed."""
    (reply,) = yield [request]
    return reply.check(as_path(of), unsaid)


def _number(text: str) -> int:
    """A number in a reply."""
    if not re.fullmatch("[0-9]{1,18}", text):
        raise ProtocolError(f"{text!r} came where a number belongs")
    return int(text)


def _in_windows(requests: Sequence[Request]) -> Operation[List[Reply]]:
    replies: List[Reply] = []
    for start in range(0, len(requests), _WINDOW):
        replies += yield requests[start : start + _WINDOW]
    return replies


# ---- the session ----


def login(with_: Login) -> Operation[Tuple[str, Tuple[str, ...]]]:
    """Returns the session's id and its rights."""
    user = with_.account
    if not user or any(character <= " " for character in user):
        raise UsageError("a user name without blanks is needed")
    if len(user.encode(errors="replace")) > USER_LIMIT:
        raise UsageError("the user name is too long")
    if set(with_.perms) - set(_PERMS):
        raise UsageError(f"rights are {', '.join(_PERMS)}")
    before = []
    if with_.perms:
        before.append(f".1 perms {' '.join(with_.perms)}")
    if with_.timeout is not None:
        before.append(f".2 timeout {int(with_.timeout)}")
    line = f"{'LOGINFORCE' if with_.force else 'LOGIN'} {user}"
    if with_.password:
        line += " " + checked_word(with_.password, ARGUMENT_LIMIT, "the password")
    (reply,) = yield [Request(line, tuple(before), secret=True)]
    if reply.word == "NO":
        raise LoginFailed(f"log-in of {user} at {with_.peer} failed: {reply.text}")
    words = dict(text.partition(" ")[::2] for text in reply.check().values())
    granted = words.get("PERMS", "").split()
    return words.get("SESSION", ""), tuple(word for word in _PERMS if word in granted)


def resume(session_id: str) -> Operation[str]:
    """Returns the user's name."""
    if not re.fullmatch("[0-9A-Za-z]{1,16}", session_id):
        raise UsageError("there is no session to resume")
    reply = yield from ask(Request(f"RESUME {session_id}"))
    return reply.text.replace("welcome back ", "", 1)


def simple(command: str, patient: bool = False) -> Operation[None]:
    """A command that answers OK or not."""
    yield from ask(Request(command, patient=patient))


# ---- reading ----


def get(of: PathLike) -> Operation[str]:
    """The value of a parameter."""
    request = Request(f"GET {wire_path(of)}")
    return (yield from ask(request, of, "this node has no value")).first()


def get_many(paths: Iterable[PathLike]) -> Operation[Dict[Path, str]]:
    """The values that can be had."""
    plain = [as_path(given) for given in paths]
    replies = yield from _in_windows([Request(f"GET {wire_path(of)}") for of in plain])
    for where, reply in zip(plain, replies):
        if reply.word != "OK" and isinstance(reply.error(), (InUse, SessionEnded)):
            raise reply.error(where)
    told = zip(plain, replies)
    return {of: reply.first() for of, reply in told if reply.word == "OK" and not reply.cut}


def _of_tree(command: str, of: PathLike, management: bool) -> Request:
    where = as_path(of)
    line = ("M" if management else "") + command
    return Request(f"{line} {wire_path(where)}" if where else line)


def list_names(of: PathLike, management: bool) -> Operation[List[str]]:
    """The names of a node's children."""
    reply = yield from ask(_of_tree("LIST", of, management), of)
    return [unescape(name) for name in reply.values()]


def list_all(of: PathLike, management: bool) -> Operation[List[Path]]:
    """All nodes below a node."""
    reply = yield from ask(_of_tree("LISTR", of, management), of)
    try:
        return [Path.from_wire(wire) for wire in reply.values()]
    except UsageError as problem:
        raise ProtocolError(problem.message) from None


def values(below: PathLike) -> Operation[Dict[Path, str]]:
    """All values at a node and below it."""
    where = as_path(below)
    found = yield from list_all(where, False)
    return (yield from get_many([where / child for child in found] or [where]))


def attr(of: PathLike, management: bool) -> Operation[Attributes]:
    """A node's attributes."""
    reply = yield from ask(Request(f"{'M' if management else ''}ATTR {wire_path(of)}"), of)

    def several(what: str) -> Tuple[str, ...]:
        start = what + "."
        return tuple(unescape(text) for name, text in reply.lines if name.startswith(start))

    return Attributes(
        operations=reply.first("ops"),
        length=_number(reply.first("len") or "0"),
        choices=several("choices"),
        flags=several("flags"),
        type=reply.first("type") or None,
    )


def help_text(of: PathLike, management: bool) -> Operation[str]:
    """A node's help, "" where there is none."""
    if management:
        return (yield from info("daemon.help", [str(as_path(of))]))
    return (yield from ask(_of_tree("HELP", of, False), of)).first()


def _with_words(command: str, of: PathLike, args: Iterable[str], limit: int) -> str:
    words = [checked_word(arg, min(limit, WORD_LIMIT * 2), "an argument") for arg in args]
    return " ".join([command, wire_path(of, max(limit, WORD_LIMIT)), *words])


def access(of: PathLike, perms: str, args: Sequence[str], management: bool) -> Operation[bool]:
    """Whether a node's access method grants the rights."""
    command = "MACCESS" if management else "ACCESS"
    line = _with_words(command, of, [perms, *args], ARGUMENT_LIMIT)
    return (yield from ask(Request(line), of)).first() == "1"


def info(of: PathLike, args: Sequence[str]) -> Operation[str]:
    """The text of a management node."""
    request = Request(_with_words("INFO", of, args, ARGUMENT_LIMIT))
    return (yield from ask(request, of, "this node has no text to tell")).first()


# ---- actions ----


def admin_request(of: PathLike, args: Sequence[str]) -> Request:
    """The request that runs an action."""
    return Request(_with_words("ADMIN", of, args, ADMIN_WORD_LIMIT), patient=True)


class OutputCutter:
    """Cuts an action's output into its lines. The daemon ends each stream with what was left of
    its last line, mostly nothing; an empty line is therefore held back until another one of that
    stream proves that it was meant."""

    def __init__(self) -> None:
        self._held: Dict[str, bool] = {}

    def take(self, lines: Iterable[Line]) -> List[Output]:
        """The lines that are certain by now."""
        output = []
        for qualifier, text in lines:
            if qualifier not in ("1", "2"):
                continue
            if self._held.get(qualifier):
                output.append(Output(int(qualifier), ""))
            self._held[qualifier] = not text
            if text:
                output.append(Output(int(qualifier), text))
        return output


def check_action(of: PathLike, reply: Optional[Reply], output: Sequence[Output]) -> None:
    """Raises when the action failed; what it last complained of is the message."""
    if reply is None or reply.word == "OK":
        return
    if reply.word != "ERR":
        raise reply.error(as_path(of))
    said = [line.text for line in output if line.stream == 2] or [line.text for line in output]
    message = reply.text or (said[-1] if said else "failed without a word, or is no action")
    failed = ActionFailed(message, reply.identifier, reply.arguments, output)
    failed.where = str(as_path(of))
    raise failed


def run(of: PathLike, args: Sequence[str] = ()) -> Operation[List[str]]:
    """An action's standard output, as lines."""
    (reply,) = yield [admin_request(of, args)]
    output = OutputCutter().take(reply.lines)
    check_action(of, reply, output)
    reply.check(as_path(of))
    return [line.text for line in output if line.stream == 1]


# ---- changes ----


def _text(value: Value) -> str:
    if isinstance(value, bool) or not isinstance(value, (str, int)):
        raise UsageError(f"a value is a text or a number, not {value!r}")
    return str(value)


def order_line(order: Order) -> str:
    """An order as a command line."""
    where = wire_path(order.path)
    if isinstance(order, Set):
        text = _text(order.value)
        line = f"SET {where}"
        return f"{line} {checked_word(text, WORD_LIMIT, 'the value')}" if text else line
    name = checked_word(order.name, WORD_LIMIT, "the name")
    if isinstance(order, Move):
        return f"MOVE {where} {name} " + checked_word(order.other, WORD_LIMIT, "the other name")
    return f"{'ADD' if isinstance(order, Add) else 'DEL'} {where} {name}"


def _where(order: Order) -> Path:
    return as_path(order.path) if isinstance(order, Set) else as_path(order.path) / order.name


def _unsaid(order: Order) -> str:
    if isinstance(order, Set):
        return "no parameter that can be set"
    return "no list that can be changed like that"


def change(order: Order) -> Operation[None]:
    """One change."""
    if isinstance(order, Set):
        word = escape(_text(order.value))
        if len(word.encode()) > WORD_LIMIT:
            lines = tuple(f". {line}" for line in value_lines(word))
            request = Request(f"SET {wire_path(order.path)}", lines)
            yield from ask(request, order.path, _unsaid(order))
            return
    (reply,) = yield [Request(order_line(order))]
    if reply.word == "ERR" and (not reply.text or reply.text.startswith("result=2 ")):
        # Told as a number alone, or not at all. The same change as a batch of one tells the
        # reason, and applies nothing when it is refused again.
        try:
            yield from submit([order])
        except BatchRefused as refused:
            raise refused.results[0].error or refused from None
        return
    reply.check(_where(order), _unsaid(order))


def _results(orders: Sequence[Order], lines: Iterable[Line]) -> List[ItemResult]:
    identifiers: Dict[int, str] = {}
    arguments: Dict[int, List[str]] = {}
    errors: Dict[int, DaemonError] = {}
    for qualifier, text in lines:
        number, part = item_of(qualifier)
        if part == ".error":
            identifiers[number] = text
        elif part == ".error.arg":
            arguments.setdefault(number, []).append(text)
        elif not part and number not in errors:
            # A denied item is answered twice; the first line, which says why, stands.
            word, said = read_verdict(text)
            if word != "OK":
                told = arguments.get(number, ())
                order = orders[number - 1] if 0 < number <= len(orders) else None
                unsaid = _unsaid(order) if order else UNSAID
                errors[number] = verdict(word, said, identifiers.get(number), told, unsaid)
                errors[number].where = str(_where(order)) if order else ""
    return [ItemResult(order, errors.get(i)) for i, order in enumerate(orders, 1)]


def submit(orders: Iterable[Order]) -> Operation[None]:
    """A batch, all or nothing."""
    items = list(orders)
    lines = []
    for number, order in enumerate(items, 1):
        try:
            lines.append(f".{number} {order_line(order)}")
        except UsageError as problem:
            raise UsageError(f"item {number}: {problem}") from None
    (reply,) = yield [Request("SUBMIT", tuple(lines))]
    if reply.word in ("OK", "NO", "INUSE"):
        reply.check()
        return
    results = _results(items, reply.lines)
    first = next((result.error for result in results if result.error), reply.error())
    refused = BatchRefused(first.message, first.identifier, first.arguments, results)
    refused.where = first.where
    raise refused


def dirty() -> Operation[bool]:
    """Whether the session holds changes."""
    return (yield from ask(Request("DIRTY"))).first("dirty") == "1"


# ---- commits ----


def _numbers() -> Operation[List[int]]:
    """The commits of the history, the newest first; none where there is no archive, or where it
    may not be looked at."""
    (reply,) = yield [Request(f"MLIST {_HISTORY.wire}")]
    return [_number(number) for number in reply.values()] if reply.word == "OK" else []


def commit(
    comment: Optional[str], seconds: Optional[int], session: str
) -> Operation[Optional[Commit]]:
    """Makes the changes real. None when nothing was to be written, or when no history tells.
    `session` is the identifier of this one; the history has the first digits of its
    digest. (A container knows its processes by other numbers than the daemon.)"""
    before = yield from _numbers()
    wishes = [Set("commits.trial", seconds)] if seconds else []
    withdrawals = [Request("SET commits.trial 0")] if seconds else []
    if comment:
        wishes.append(Set("commits.comment", comment))
        withdrawals.append(Request("SET commits.comment"))
    try:
        for wish in wishes:
            yield from change(wish)
        yield from simple("COMMIT", patient=True)
    except GeneratorExit:
        raise
    except BaseException:
        # The next commit may be meant otherwise.
        yield withdrawals
        raise
    after = yield from _numbers()
    fresh = [number for number in after if not before or number > before[0]]
    digest = sha256(session.encode()).hexdigest()
    for number in reversed(fresh):
        made = yield from commit_record(number)
        if digest.startswith(made.origin.rpartition("session ")[2]):
            return made
    return None


def commit_record(number: int) -> Operation[Commit]:
    """What is known of a commit."""
    return (yield from _records([number]))[0]


def _records(numbers: Sequence[int]) -> Operation[List[Commit]]:
    node: Callable[[int, str], str] = lambda number, part: (_HISTORY / str(number) / part).wire
    wanted = [(number, part) for number in numbers for part in _COMMIT_PARTS]
    replies = yield from _in_windows([Request(f"INFO {node(*each)}") for each in wanted])
    told: Dict[Tuple[int, str], str] = {}
    for each, reply in zip(wanted, replies):
        where = _HISTORY / str(each[0]) / each[1]
        if reply.word == "OK" and reply.cut:  # names of files, say, of which there are many
            told[each] = yield from _printed(where)
        else:
            told[each] = reply.check(where).first()

    def record(number: int) -> Commit:
        state, time, user, origin, comment, files, notes = (
            told[number, part] for part in _COMMIT_PARTS
        )
        return Commit(
            number,
            state,
            time,
            user,
            origin,
            comment,
            tuple(files.splitlines()),
            tuple(notes.splitlines()),
        )

    return [record(number) for number in numbers]


def history(most: Optional[int]) -> Operation[List[Commit]]:
    """The commits, the newest first."""
    reply = yield from ask(Request(f"MLIST {_HISTORY.wire}"))
    return (yield from _records([_number(number) for number in reply.values()][:most]))


def _printed(node: Path) -> Operation[str]:
    """What an action of the archive prints: control characters travel escaped in that, and "%",
    which at the end of a line breaks a long one."""
    text = "".join(line + "\n" for line in (yield from run(node)))
    return re.sub("%(\n|[0-9a-f]{2})", lambda found: _printed_as(found.group(1)), text)


def _printed_as(code: str) -> str:
    return "" if code == "\n" else chr(int(code, 16))


def commit_text(number: int, part: str) -> Operation[str]:
    """The "changes" or the "diff" of a commit, however long."""
    return (yield from _printed(_HISTORY / str(number) / part))


def preview(part: str) -> Operation[str]:
    """The same of what a commit would write now."""
    return (yield from _printed(path("commits", part)))


def trial() -> Operation[Optional[Trial]]:
    """The commit on trial, if there is one."""
    text = yield from info("commits.trial", [])
    found = _TRIAL.match(text)
    if not found:
        return None
    number, user, seconds, told = found.groups()
    return Trial(int(number), user, int(seconds) if seconds else None, told or text)


def bring_back(how: str, number: int) -> Operation[None]:
    """"load" or "undo" a commit, as changes of this session."""
    yield from change(Set(path("commits", how), int(number)))


def begin_transaction() -> Operation[None]:
    """A clean and current session to begin with."""
    if (yield from dirty()):
        raise UsageError("the session holds changes already: commit or revert them first")
    yield from simple("UPDATE")
