"""A data server in this process, for hosts and tests."""
import ctypes
import os
from dataclasses import dataclass
from enum import IntEnum
from types import TracebackType
from typing import Iterable, Iterator, Optional, Type, Union

from . import _library
from ._library import library, encoded, text, texts
from .codes import Code
from .errors import error_of

__all__ = ["Server", "Event", "EventKind"]


class EventKind(IntEnum):
    """What happened to a server."""

    CONNECTED = 1
    DISCONNECTED = 2
    UPLOADED = 3
    DOWNLOADED = 4
    PROJECTS_LISTED = 5
    FILES_LISTED = 6
    DELETED = 7
    REFUSED = 8


@dataclass(frozen=True)
class Event:
    """One thing that happened; `lost` others before it were not kept."""

    kind: EventKind
    code: int
    address: str
    client_port: int
    path: str
    bytes: int
    milliseconds: int
    lost: int


class Server:
    """Serves a directory of projects.

        with kqft.Server("/srv/projects", events=1000) as server:
            print(server.port)

    It writes a line on standard output for each client that comes and goes.
    Any thread may stop it while another one waits for events.
    """

    def __init__(self, directory: "Union[str, os.PathLike[str]]", port: int = 0, *,
                 listen: str = "", suffix: str = ".kqsln",
                 log_directory: "Union[str, os.PathLike[str], None]" = None,
                 allowed: Iterable[str] = (), links_per_address: int = 0, new_links: int = 0,
                 new_links_ms: int = 0, no_delete: bool = False, durable: bool = True,
                 events: int = 0) -> None:
        """:param port: 0 picks a free one
        :param allowed: "10.1.0.0/16" or addresses; only these may connect
        :param events: how many are kept for `events`"""
        self._handle: Optional[ctypes.c_void_p] = None
        allowed = list(allowed)
        options = _library.ServerOptions(
            directory=encoded(directory), port=port, listen_address=encoded(listen),
            suffix=encoded(suffix), log_directory=encoded(log_directory or ""),
            allowed=texts(allowed), allowed_count=len(allowed),
            links_per_address=links_per_address, new_links=new_links, new_links_ms=new_links_ms,
            no_delete=no_delete, no_durable=not durable, events=events)
        handle = ctypes.c_void_p()
        code = library.server_start(ctypes.byref(options), ctypes.byref(handle))
        if code != Code.OK:
            raise error_of(code)
        self._handle = handle

    def __enter__(self) -> "Server":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    @property
    def port(self) -> int:
        """What it listens on; 0 once it has stopped."""
        port: int = library.server_port(self._handle)
        return max(port, 0)

    def event(self, timeout: Optional[float] = None) -> Optional[Event]:
        """The oldest event that is kept; None when there is none in that time."""
        raw = _library.ServerEvent()
        wait = -1 if timeout is None else int(timeout * 1000)
        code = library.server_next_event(self._handle, wait, ctypes.byref(raw))
        if code == Code.NO_EVENT:
            return None
        if code != Code.OK:
            raise error_of(code)
        return Event(EventKind(raw.kind), raw.code, text(raw.address), raw.client_port,
                     text(raw.path), raw.bytes, raw.milliseconds, raw.lost)

    def events(self) -> Iterator[Event]:
        """Every event, as it comes, until the server stops."""
        while (event := self.event()) is not None:
            yield event

    def stop(self) -> None:
        """Closes every link and stops all work, for good."""
        code = library.server_stop(self._handle)
        if code != Code.OK:
            raise error_of(code)

    def close(self, timeout: Optional[float] = None) -> bool:
        """Stops, and ends the use of this object; `stop` before where another thread
        waits for events. A client that was cut off while it sent costs 15 s.

        :return: False when it goes on ending by itself beyond the timeout
        """
        handle, self._handle = self._handle, None
        wait = -1 if timeout is None else int(timeout * 1000)
        code = library.server_destroy(handle, wait)
        if code == Code.IN_USE:
            self._handle = handle
        if code not in (Code.OK, Code.TIMEOUT):
            raise error_of(code)
        return bool(code == Code.OK)
