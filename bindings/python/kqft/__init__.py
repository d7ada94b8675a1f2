"""Moves whole measurement projects between this machine and a data server.

    import kqft

    with kqft.Client("data.example") as client:
        client.put("Run7", progress=lambda now: print(now.done, now.total))
        client.verify("Run7", "Run7")
        for file in client.files("Run7"):
            print(file.name, file.bytes)
"""
from . import aio
from ._library import library as _functions
from .client import Client, Notice, Turn
from .codes import Code
from .errors import (CancelledError, DifferentError, Error, IncompleteError, NotConnectedError,
                     describe)
from .results import Check, File, FileVerdict, Item, Progress, Project, Reason, Transfer, Verdict
from .server import Event, EventKind, Server

__all__ = ["Client", "Turn", "Notice", "Code", "Error", "CancelledError", "DifferentError",
           "IncompleteError", "NotConnectedError", "describe", "Check", "File", "FileVerdict",
           "Item", "Progress", "Project", "Reason", "Transfer", "Verdict", "Event", "EventKind",
           "Server", "aio"]

#: of the library that was loaded
__version__: str = _functions.version_text().decode()
