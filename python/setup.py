"""Takes the version from the project that this library is a part of."""

import pathlib
import re

from setuptools import setup

_LISTS = pathlib.Path(__file__).resolve().parent.parent / "CMakeLists.txt"
_FOUND = re.search(r"project\(ucfgd VERSION ([0-9.]+)", _LISTS.read_text(encoding="utf-8"))
if _FOUND is None:
    raise SystemExit(f"{_LISTS} names no version")
setup(version=_FOUND.group(1))
