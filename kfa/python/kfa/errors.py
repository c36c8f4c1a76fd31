# SPDX-License-Identifier: Apache-2.0
"""The exceptions of the module."""

import errno
import os
import re
from typing import TYPE_CHECKING, Optional, Sequence, Tuple

if TYPE_CHECKING:
    from .values import FileChange


class Error(Exception):
    """What the library refused or could not do. str() of it says what, where, and what would be right.

    `code` is the library's result code. `file`, `line` and `column` (from 1, in bytes) are None where the text names
    none.
    """

    def __init__(self, text: str, code: int = -1, file: Optional[str] = None, line: Optional[int] = None,
                 column: Optional[int] = None) -> None:
        super().__init__(text, code, file, line, column)
        self.code = code
        self.file = file
        self.line = line
        self.column = column

    def __str__(self) -> str:
        return str(self.args[0])


class MissingFileError(Error, FileNotFoundError):
    """A file that is not there, or is not any more."""


class ChangeError(Error):
    """A change of several files that was refused or failed; `files` tells what became of each."""

    def __init__(self, text: str, code: int = -1, file: Optional[str] = None, line: Optional[int] = None,
                 column: Optional[int] = None, files: "Sequence[FileChange]" = ()) -> None:
        super().__init__(text, code, file, line, column)
        self.files = files


_PLACE = re.compile(r":(\d+)(?::(\d+))?: ")
_XML_PLACE = re.compile(r"\bline (\d+), column (\d+)")


def place_of(text: str, file: Optional[str]) -> Tuple[Optional[int], Optional[int]]:
    """The line and column that an error text about a file names."""
    if not file or not text.startswith(file):
        return None, None
    found = _PLACE.match(text, len(file)) or _XML_PLACE.search(text, len(file))
    if not found:
        return None, None
    return int(found[1]), int(found[2]) if found[2] else None


def error_of(text: str, code: int, file: Optional[str]) -> Error:
    """The exception for an error text of the library."""
    missing = re.search(f": {re.escape(os.strerror(errno.ENOENT))}(;|$)", text)
    kind = MissingFileError if missing and file and text.startswith(file) else Error
    return kind(text, code, file or None, *place_of(text, file))
