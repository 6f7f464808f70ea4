# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Orders as people type them in ucfgsh."""

from __future__ import annotations

from .ucfg import Path

_ESCAPES = {"n": "\n", "t": "\t", "r": "\r"}
_ARGUMENTS = {"set": 2, "add": 2, "del": 2, "move": 3}


def path_of(text: str) -> Path:
    """The path that somebody types; a dot in front, and the empty text, mean the root. ValueError says
    what is wrong."""
    return Path.parse(text.removeprefix("."))


def order_of(line: str) -> tuple[str, Path, list[str]]:
    """The word, the path and the further arguments of "set PATH VALUE" and its like."""
    words = [(raw, plain) for raw, plain in _split(line.strip()) if raw]
    comment = next((at for at, word in enumerate(words) if word[0].startswith("#")), len(words))
    words = words[:comment]
    kind = words[0][1].lower() if words else ""
    if kind not in _ARGUMENTS:
        raise ValueError("an order begins with set, add, del or move")
    if len(words) != _ARGUMENTS[kind] + 1:
        raise ValueError(f"{kind} takes {_ARGUMENTS[kind]} arguments, and there are {len(words) - 1}")
    return kind, path_of(words[1][0]), [plain for _raw, plain in words[2:]]


def _split(text: str) -> list[tuple[str, str]]:
    """Words between blanks outside of quotes: each as it stands, and without its quotes."""
    parts: list[tuple[str, str]] = []
    plain, start, at, quote = "", 0, 0, ""
    while at < len(text):
        char = text[at]
        if not quote and char in " \t":
            parts.append((text[start:at], plain))
            plain, start = "", at + 1
        elif not quote and char in "\"'":
            quote = char
        elif char == quote:
            quote = ""
        elif char == "\\" and quote != "'" and at + 1 < len(text):
            at += 1
            added, at = _escaped(text, at) if quote else (text[at], at)
            plain += added
        else:
            plain += char
        at += 1
    if quote:
        raise ValueError("a quote is not closed")
    return parts + [(text[start:], plain)]


def _escaped(text: str, at: int) -> tuple[str, int]:
    """What a backslash in quotes leads, and where that ends."""
    digits = text[at + 1:at + 3]
    if text[at] == "x" and len(digits) == 2 and all(digit in "0123456789abcdefABCDEF" for digit in digits):
        return chr(int(digits, 16)), at + 2
    return _ESCAPES.get(text[at], text[at]), at
