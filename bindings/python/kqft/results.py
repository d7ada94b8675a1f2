"""What operations give: plain values, which need no client any more."""
import ctypes
from dataclasses import dataclass
from enum import IntEnum
from typing import Any, Callable, List, Type, TypeVar

from . import _library
from ._library import library, text

__all__ = ["Reason", "Verdict", "Progress", "Item", "Transfer", "FileVerdict", "Check", "Project",
           "File"]

T = TypeVar("T")


class Reason(IntEnum):
    """Why a put sends a file, or does not."""

    NONE, NEW, RESUMED, GROWN, SHORTENED, CHANGED, DAMAGED, UNCHANGED, EQUAL = range(9)


class Verdict(IntEnum):
    """What comparing a file came to."""

    SAME, CHANGED, MISSING, EXTRA, UNKNOWN = range(5)


@dataclass(frozen=True)
class Progress:
    """How far a put or get is, in bytes and files."""

    done: int
    total: int
    moved: int
    files_done: int
    files_total: int
    file: str
    file_done: int
    file_size: int
    silent_ms: int
    bytes_per_second: float

    @classmethod
    def of(cls, raw: _library.Progress) -> "Progress":
        return _filled(cls, raw)


@dataclass(frozen=True)
class Item:
    """One file of a put or get, and what became of it."""

    name: str
    local: str
    server: str
    bytes: int
    missing: int
    code: int
    done: bool
    for_good: bool
    later: bool
    reason: Reason
    why: str

    @classmethod
    def of(cls, raw: _library.Item) -> "Item":
        return _filled(cls, raw, done=bool(raw.done), for_good=bool(raw.for_good),
                       later=bool(raw.later), reason=Reason(raw.reason))


@dataclass(frozen=True)
class Transfer:
    """What a put or get came to."""

    project: str
    other: str
    may_hide: str
    moved: int
    problems: int
    filtered: int
    only_there: int
    files_healed: int
    blocks_healed: int
    seconds: float
    items: List[Item]
    unlisted: List[str]

    @classmethod
    def of(cls, raw: _library.Summary, items: List[Item], unlisted: List[str]) -> "Transfer":
        return _filled(cls, raw, items=items, unlisted=unlisted)


@dataclass(frozen=True)
class FileVerdict:
    """What comparing one file came to; `blocks` are those that differ."""

    path: str
    verdict: Verdict
    bytes: int
    why: str
    blocks: List[int]

    @classmethod
    def of(cls, raw: _library.Verdict) -> "FileVerdict":
        return _filled(cls, raw, verdict=Verdict(raw.verdict), blocks=raw.blocks[:raw.block_count])


@dataclass(frozen=True)
class Check:
    """What comparing a project came to; counts are files."""

    same: int
    changed: int
    missing: int
    extra: int
    unknown: int
    left_out: int
    read: int
    compared: bool
    meanwhile: bool
    remark: str
    seconds: float
    files: List[FileVerdict]

    @classmethod
    def of(cls, raw: _library.Check, files: List[FileVerdict]) -> "Check":
        return _filled(cls, raw, compared=bool(raw.compared), meanwhile=bool(raw.meanwhile),
                       files=files)


@dataclass(frozen=True)
class Project:
    """A project in the server's list."""

    name: str
    bytes: int
    created: str

    @classmethod
    def of(cls, raw: _library.Project) -> "Project":
        return _filled(cls, raw)


@dataclass(frozen=True)
class File:
    """A file of a project; bytes are negative and time_ns is 0 where they are not known."""

    name: str
    server: str
    bytes: int
    time_ns: int
    digest: str

    @classmethod
    def of(cls, raw: _library.File) -> "File":
        return _filled(cls, raw)


def _filled(kind: Type[T], raw: ctypes.Structure, **given: Any) -> T:
    """Takes every field of a struct that has not been given."""
    fields = {}
    for name in kind.__dataclass_fields__:  # type: ignore[attr-defined]
        value = given[name] if name in given else getattr(raw, name)
        fields[name] = text(value) if value is None or isinstance(value, bytes) else value
    return kind(**fields)


def _entries(handle: Any, make: Callable[[Any], T], raw: Any, read: Any) -> List[T]:
    found = []
    for index in range(library.result_count(handle)):
        read(handle, index, ctypes.byref(raw))
        found.append(make(raw))
    return found


def projects_of(handle: Any) -> List[Project]:
    return _entries(handle, Project.of, _library.Project(), library.result_project)


def files_of(handle: Any) -> List[File]:
    return _entries(handle, File.of, _library.File(), library.result_file)


def transfer_of(handle: Any) -> Transfer:
    summary = _library.Summary()
    library.result_summary(handle, ctypes.byref(summary))
    unlisted = [text(library.result_unlisted(handle, i)) for i in range(summary.unlisted)]
    items = _entries(handle, Item.of, _library.Item(), library.result_item)
    return Transfer.of(summary, items, unlisted)


def check_of(handle: Any) -> Check:
    check = _library.Check()
    library.result_check(handle, ctypes.byref(check))
    files = _entries(handle, FileVerdict.of, _library.Verdict(), library.result_verdict)
    return Check.of(check, files)
