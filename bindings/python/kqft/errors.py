"""What operations raise."""
from typing import Dict, Type

from ._library import library, text
from .codes import Code

__all__ = ["Error", "CancelledError", "IncompleteError", "DifferentError", "NotConnectedError",
           "describe", "error_of"]


def describe(code: int) -> str:
    """A result in words."""
    return text(library.describe(code))


class Error(Exception):
    """An operation failed: `code` says how, `words` why and what it is about."""

    def __init__(self, code: int, words: str = "", result: object = None) -> None:
        super().__init__(code, words or describe(code))
        self.code = code
        self.words = words or describe(code)
        self.result = result  #: of a put, get or verify: what it came to all the same

    def __str__(self) -> str:
        return f"{self.words} ({self.code})"


class NotConnectedError(Error, ConnectionError):
    """There is no connection to the server."""


class CancelledError(Error):
    """It was cancelled; what has arrived is kept."""


class IncompleteError(Error):
    """It ended, and not everything is whole; `result` tells what."""


class DifferentError(Error):
    """Both sides were compared, and are not the same; `result` tells where."""


_KINDS: Dict[int, Type[Error]] = {Code.CLIENT_CONNECT: NotConnectedError, Code.CANCELLED: CancelledError,
          Code.INCOMPLETE: IncompleteError, Code.DIFFERENT: DifferentError}


def error_of(code: int, words: str = "", result: object = None) -> Error:
    """The error that fits a code."""
    kind: Type[Error] = _KINDS.get(code, Error)
    return kind(code, words, result)
