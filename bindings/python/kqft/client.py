"""The client: whole projects to and from one server."""
import ctypes
import os
import threading
from enum import IntEnum
from types import TracebackType
from typing import Any, Callable, Iterable, Iterator, List, Optional, Tuple, Type, TypeVar, Union

from . import _library, results
from ._library import library, encoded, text, texts
from .codes import Code
from .errors import error_of
from .results import Check, File, Item, Progress, Project, Transfer

__all__ = ["Client", "Turn", "Notice"]

Path = Union[str, "os.PathLike[str]"]
T = TypeVar("T")
_LOOK_SECONDS = 0.1


class Turn(IntEnum):
    """A server takes a second connection of one address for the first one come
    back, so clients of one user take turns; NONE where the host sees to it."""

    WAIT, REFUSE, NONE = range(3)


class Notice(IntEnum):
    """What a `notice` is about."""

    WAITING = 1
    RECONNECTING = 2
    NOT_CONNECTED = 3
    RETRYING = 4
    LEFT_OUT = 5
    PROBLEM = 6


OnProgress = Callable[[Progress], object]
OnFile = Callable[[Item], object]
OnNotice = Callable[[Notice, int, str], object]


class Client:
    """Moves whole projects between this machine and one server.

        with kqft.Client("data.example") as client:
            client.put("Run7", progress=print)

    One thread at a time uses it; `cancel` may come from any, also from a
    callback. Callbacks come on other threads while the caller waits; they return
    soon and call nothing of the client but `cancel` and `progress`. What a callback
    raises cancels the operation, which raises it then, and so does Ctrl-C.
    Operations release the interpreter while they run, and raise `Error`.
    """

    def __init__(self, host: str, port: int = 9999, *, bind: str = "",
                 log_directory: Optional[Path] = None, bandwidth: str = "",
                 purpose: str = "a Python program", turn: Turn = Turn.WAIT,
                 timeout: int = 0) -> None:
        """:param bind: local address to connect from
        :param bandwidth: most data a second, "10M" or "08:00,512k 19:00,off"
        :param timeout: so many seconds a server may be silent; 0: as long as the
            network lets it"""
        self._handle: Optional[ctypes.c_void_p] = None
        self._raised: Optional[BaseException] = None
        options = _library.ClientOptions(
            host=encoded(host), port=port, bind_address=encoded(bind),
            log_directory=encoded(log_directory or ""), bandwidth=encoded(bandwidth),
            purpose=encoded(purpose), turn=turn, timeout_seconds=timeout)
        handle = ctypes.c_void_p()
        code = library.client_create(ctypes.byref(options), ctypes.byref(handle))
        if code != Code.OK:
            raise error_of(code)
        self._handle = handle

    def __enter__(self) -> "Client":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            library.client_destroy(self._handle)

    def close(self) -> None:
        """Ends the connection, and the use of this object."""
        self._check(library.client_destroy(self._handle))
        self._handle = None

    def connect(self, retries: int = 0, retry_seconds: int = 0) -> None:
        """Every operation does so where no connection stands."""
        self._check(self._run(library.client_connect, retries, retry_seconds))

    def disconnect(self) -> None:
        """Lets others of this user have their turn."""
        self._check(library.client_disconnect(self._handle))

    def cancel(self) -> None:
        """Ends what runs, with care: what has arrived is kept. Any thread."""
        library.client_cancel(self._handle)

    def progress(self) -> Progress:
        """How far the put or get is that runs, or ran last. Any thread."""
        raw, file = _library.Progress(), ctypes.create_string_buffer(1024)
        library.client_progress(self._handle, ctypes.byref(raw), file, len(file))
        return Progress.of(raw)

    def projects(self) -> Iterator[Project]:
        """The projects of the server."""
        return iter(self._ask(library.client_projects, (), results.projects_of))

    def files(self, project: str) -> Iterator[File]:
        """All files of a project. IncompleteError, with those that can be seen as
        its result, where the server does not let all be known."""
        return iter(self._ask(library.client_files, (encoded(project),), results.files_of))

    def delete(self, project: str) -> int:
        """:return: how many files of it the server still lists"""
        left = ctypes.c_int64()
        self._check(library.client_delete(self._handle, encoded(project), ctypes.byref(left)))
        return left.value

    def put(self, path: Path, *more: Path, progress: Optional[OnProgress] = None,
            file: Optional[OnFile] = None, notice: Optional[OnNotice] = None,
            project: Optional[str] = None, files: Optional[Iterable[Path]] = None,
            rules: Iterable[str] = (), **options: int) -> Transfer:
        """Sends directories, or files of one project. What was interrupted goes on.

        :param progress, file, notice: called while it runs
        :param project: its name; else that of the directory
        :param files: only these, below the path
        :param rules: "- PATTERN" leaves out, "+ PATTERN" does not: rsync's rules
        :param options: plan_only, no_inventory, checksum, whole, take_over (true or
            false), retries (0: 3, -1: none), retry_seconds
        """
        raw = self._options(options, files, rules, project, more)
        return self._move(library.client_put, (encoded(path), raw), results.transfer_of,
                          (progress, file, notice))

    def get(self, project: str, into: Path = ".", *, progress: Optional[OnProgress] = None,
            file: Optional[OnFile] = None, notice: Optional[OnNotice] = None,
            files: Optional[Iterable[Path]] = None, rules: Iterable[str] = (),
            **options: int) -> Transfer:
        """Fetches a project, which becomes a directory in `into`.

        :param options: plan_only, no_inventory, checksum, overwrite (else a file
            here that differs becomes NAME~), retries, retry_seconds
        """
        raw = self._options(options, files, rules)
        return self._move(library.client_get, (encoded(project), encoded(into), raw),
                          results.transfer_of, (progress, file, notice))

    def verify(self, project: str, local: Optional[Path] = None, *,
               progress: Optional[OnProgress] = None, notice: Optional[OnNotice] = None,
               rules: Iterable[str] = (), **options: int) -> Check:
        """Compares every byte at the server with the project's inventory, and with
        a directory here. Raises DifferentError.

        :param options: retries, retry_seconds
        """
        raw = self._options(options, None, rules)
        place = None if local is None else encoded(local)
        return self._move(library.client_verify, (encoded(project), place, raw),
                          results.check_of, (progress, None, notice))

    def watch(self, directory: Path, *, round: Optional[Callable[[int, str], object]] = None,
              progress: Optional[OnProgress] = None, file: Optional[OnFile] = None,
              notice: Optional[OnNotice] = None, project: Optional[str] = None,
              rules: Iterable[str] = (), **options: int) -> None:
        """Sends what comes into a directory, until `cancel`.

        :param round: called with code and words when a round has ended
        :param options: as of `put`; settle_seconds: so long a file has to be left alone
        """
        raw = self._options(options, None, rules, project)
        with self._callbacks(progress, file, notice, round):
            code = self._run(library.client_watch, encoded(directory), ctypes.byref(raw))
            if code != Code.CANCELLED or self._raised is not None:
                self._check(code)

    def _check(self, code: int, result: object = None) -> None:
        raised, self._raised = self._raised, None
        if raised is not None:
            raise raised
        if code == Code.NULL and self._handle is None:
            raise ValueError("the client is closed")
        if code != Code.OK:
            raise error_of(code, "" if code == Code.IN_USE else self._words(), result)

    def _words(self) -> str:
        return text(library.client_words(self._handle))

    def _run(self, function: Any, *arguments: Any) -> int:
        """Calls a function that may take long. The main thread waits for another
        one that does: only so it sees Ctrl-C, which then cancels."""
        if threading.current_thread() is not threading.main_thread():
            return int(function(self._handle, *arguments))
        codes: List[int] = []
        ended = threading.Event()

        def call() -> None:
            try:
                codes.append(function(self._handle, *arguments))
            finally:
                ended.set()

        threading.Thread(target=call, name="kqft").start()
        try:
            while not ended.wait(_LOOK_SECONDS):
                pass
        except BaseException:
            while not ended.is_set():
                self.cancel()  # again: one that came before it began was for nothing
                ended.wait(_LOOK_SECONDS)
            raise
        return codes[0]

    @staticmethod
    def _options(options: "dict[str, int]", files: Optional[Iterable[Path]],
                 rules: Iterable[str], project: Optional[str] = None,
                 more: Tuple[Path, ...] = ()) -> _library.Options:
        files = None if files is None else list(files)
        rules = list(rules)
        return _library.Options(
            files=texts(files), file_count=len(files or ()), rules=texts(rules),
            rule_count=len(rules), more_paths=texts(more), more_path_count=len(more),
            project=None if project is None else encoded(project), **options)

    def _callbacks(self, progress: Optional[OnProgress], file: Optional[OnFile],
                   notice: Optional[OnNotice],
                   round: Optional[Callable[[int, str], object]] = None) -> "_Callbacks":
        return _Callbacks(self, progress, file, notice, round)

    def _move(self, function: Any, arguments: Tuple[Any, ...], read: Callable[[Any], T],
              callbacks: Tuple[Any, ...]) -> T:
        with self._callbacks(*callbacks):
            return self._ask(function, arguments, read)

    def _ask(self, function: Any, arguments: Tuple[Any, ...], read: Callable[[Any], T]) -> T:
        handle = ctypes.c_void_p()
        try:
            code = self._run(function, *arguments, ctypes.byref(handle))
            result = read(handle) if handle else None
        finally:
            library.result_destroy(handle)
        self._check(code, result)
        return result  # type: ignore[return-value]


class _Callbacks:
    """Callbacks of one operation; they and what they use live as long as it."""

    def __init__(self, client: Client, progress: Optional[OnProgress], file: Optional[OnFile],
                 notice: Optional[OnNotice], round: Optional[Callable[[int, str], object]]) -> None:
        self._client = client

        def guarded(call: Callable[..., object]) -> Callable[..., None]:
            def run(_user: object, *arguments: Any) -> None:
                try:
                    if client._raised is None:
                        call(*arguments)
                except BaseException as error:  # the library's thread must not see it
                    client._raised = error
                    client.cancel()
            return run

        self._raw = _library.Callbacks()
        if progress is not None:
            on_progress = progress  # as type checkers want it
            self._raw.progress = _library.OnProgress(
                guarded(lambda raw: on_progress(Progress.of(raw.contents))))
        if file is not None:
            on_file = file
            self._raw.file = _library.OnFile(guarded(lambda raw: on_file(Item.of(raw.contents))))
        if notice is not None:
            on_notice = notice
            self._raw.notice = _library.OnNotice(
                guarded(lambda kind, value, words: on_notice(Notice(kind), value, text(words))))
        if round is not None:
            on_round = round
            self._raw.round = _library.OnRound(
                guarded(lambda raw: on_round(raw.contents.code, text(raw.contents.why))))

    def __enter__(self) -> None:
        client = self._client
        client._check(library.client_set_callbacks(client._handle, ctypes.byref(self._raw)))

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        library.client_set_callbacks(self._client._handle, None)
