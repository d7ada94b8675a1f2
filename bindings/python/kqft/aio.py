"""The client for asyncio: each operation runs on a thread of its own.

    async with kqft.aio.Client("data.example") as client:
        await client.put("Run7", progress=print)

A task that is cancelled cancels the operation, and ends once that has. Callbacks
come in the event loop; they cannot stop an operation by raising.
"""
import asyncio
import functools
from concurrent.futures import ThreadPoolExecutor
from types import TracebackType
from typing import Any, AsyncIterator, Callable, Optional, Type, TypeVar

from . import client as blocking
from .results import Check, File, Progress, Project, Transfer

__all__ = ["Client"]

T = TypeVar("T")
_CANCEL_AGAIN_SECONDS = 0.05  # one that came before the operation began was for nothing
_CALLBACKS = ("progress", "file", "notice", "round")


class Client:
    """As `kqft.Client`, with coroutines; one operation at a time."""

    def __init__(self, *place: Any, **options: Any) -> None:
        self._client = blocking.Client(*place, **options)
        self._thread = ThreadPoolExecutor(1, "kqft")

    async def __aenter__(self) -> "Client":
        return self

    async def __aexit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                        trace: Optional[TracebackType]) -> None:
        await self.close()

    async def close(self) -> None:
        await self._run(self._client.close)
        self._thread.shutdown()

    async def connect(self, retries: int = 0, retry_seconds: int = 0) -> None:
        await self._run(self._client.connect, retries, retry_seconds)

    async def disconnect(self) -> None:
        await self._run(self._client.disconnect)

    def cancel(self) -> None:
        self._client.cancel()

    def progress(self) -> Progress:
        return self._client.progress()

    async def projects(self) -> AsyncIterator[Project]:
        for project in await self._run(self._client.projects):
            yield project

    async def files(self, project: str) -> AsyncIterator[File]:
        for file in await self._run(self._client.files, project):
            yield file

    async def delete(self, project: str) -> int:
        return await self._run(self._client.delete, project)

    async def put(self, *paths: Any, **options: Any) -> Transfer:
        return await self._run(self._client.put, *paths, **options)

    async def get(self, *place: Any, **options: Any) -> Transfer:
        return await self._run(self._client.get, *place, **options)

    async def verify(self, *place: Any, **options: Any) -> Check:
        return await self._run(self._client.verify, *place, **options)

    async def watch(self, *place: Any, **options: Any) -> None:
        await self._run(self._client.watch, *place, **options)

    async def _run(self, operation: Callable[..., T], *arguments: Any, **options: Any) -> T:
        loop = asyncio.get_running_loop()
        for name in _CALLBACKS:
            if options.get(name) is not None:
                options[name] = functools.partial(loop.call_soon_threadsafe, options[name])
        running = loop.run_in_executor(
            self._thread, functools.partial(operation, *arguments, **options))
        try:
            return await asyncio.shield(running)
        except asyncio.CancelledError:
            while not running.done():
                self._client.cancel()
                await asyncio.wait({running}, timeout=_CANCEL_AGAIN_SECONDS)
            running.exception()  # nobody else will ask for it
            raise
