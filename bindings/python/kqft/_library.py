"""The functions of libkqft and their structs, as bindings/c/kqft declares them."""
import ctypes
import os
import pathlib
import sys
from ctypes import POINTER, c_char_p, c_double, c_int32, c_int64, c_uint32, c_void_p
from typing import Any

__all__ = ["library", "text", "encoded", "texts"]

_HERE = pathlib.Path(__file__).parent
_NAME = "libkqft.dll" if sys.platform == "win32" else "libkqft.so.1"
_OTHER = "KQFileTransService.dll" if sys.platform == "win32" else "libKQFileTransService.so.1"


def _load() -> ctypes.CDLL:
    """KQFT_LIBRARY names a file; else the one beside this one, else the system's."""
    named = os.environ.get("KQFT_LIBRARY")
    if named:
        return ctypes.CDLL(named)
    if (_HERE / _NAME).exists():
        ctypes.CDLL(str(_HERE / _OTHER))  # found by its name from then on
        return ctypes.CDLL(str(_HERE / _NAME))
    return ctypes.CDLL(_NAME)


class Struct(ctypes.Structure):
    """Knows its size, as every struct has to."""

    def __init__(self, **values: Any) -> None:
        unknown = values.keys() - {field[0] for field in self._fields_}
        if unknown:
            raise TypeError(f"there is no {', '.join(sorted(unknown))}")
        super().__init__(size=ctypes.sizeof(self), **values)


class ClientOptions(Struct):
    _fields_ = [("size", c_uint32), ("port", c_int32), ("host", c_char_p),
                ("bind_address", c_char_p), ("log_directory", c_char_p), ("bandwidth", c_char_p),
                ("purpose", c_char_p), ("turn", c_int32), ("timeout_seconds", c_int32)]


class Options(Struct):
    _fields_ = [("size", c_uint32), ("retries", c_int32), ("retry_seconds", c_int32),
                ("plan_only", c_int32), ("no_inventory", c_int32), ("checksum", c_int32),
                ("whole", c_int32), ("take_over", c_int32), ("overwrite", c_int32),
                ("settle_seconds", c_int32), ("project", c_char_p), ("files", POINTER(c_char_p)),
                ("rules", POINTER(c_char_p)), ("file_count", c_int32), ("rule_count", c_int32),
                ("more_paths", POINTER(c_char_p)), ("more_path_count", c_int32),
                ("unused", c_int32)]


class Progress(Struct):
    _fields_ = [("size", c_uint32), ("running", c_int32), ("done", c_int64), ("total", c_int64),
                ("moved", c_int64), ("files_done", c_int64), ("files_total", c_int64),
                ("file_done", c_int64), ("file_size", c_int64), ("silent_ms", c_int64),
                ("bytes_per_second", c_double), ("file", c_char_p)]


class Item(Struct):
    _fields_ = [("size", c_uint32), ("code", c_int32), ("done", c_int32), ("for_good", c_int32),
                ("later", c_int32), ("reason", c_int32), ("local", c_char_p), ("server", c_char_p),
                ("name", c_char_p), ("why", c_char_p), ("bytes", c_int64), ("missing", c_int64)]


class Summary(Struct):
    _fields_ = [("size", c_uint32), ("code", c_int32), ("cancelled", c_int32),
                ("unlisted", c_int32), ("why", c_char_p), ("project", c_char_p),
                ("other", c_char_p), ("may_hide", c_char_p), ("moved", c_int64),
                ("problems", c_int64), ("filtered", c_int64), ("only_there", c_int64),
                ("files_healed", c_int64), ("blocks_healed", c_int64), ("seconds", c_double)]


class Verdict(Struct):
    _fields_ = [("size", c_uint32), ("verdict", c_int32), ("path", c_char_p), ("why", c_char_p),
                ("bytes", c_int64), ("blocks", POINTER(c_int64)), ("block_count", c_int64)]


class Check(Struct):
    _fields_ = [("size", c_uint32), ("code", c_int32), ("cancelled", c_int32),
                ("compared", c_int32), ("meanwhile", c_int32), ("unused", c_int32),
                ("why", c_char_p), ("remark", c_char_p), ("same", c_int64), ("changed", c_int64),
                ("missing", c_int64), ("extra", c_int64), ("unknown", c_int64),
                ("left_out", c_int64), ("read", c_int64), ("seconds", c_double)]


class Project(Struct):
    _fields_ = [("size", c_uint32), ("unused", c_int32), ("name", c_char_p),
                ("created", c_char_p), ("bytes", c_int64)]


class File(Struct):
    _fields_ = [("size", c_uint32), ("unused", c_int32), ("name", c_char_p), ("server", c_char_p),
                ("digest", c_char_p), ("bytes", c_int64), ("time_ns", c_int64)]


OnPlanned = ctypes.CFUNCTYPE(None, c_void_p, c_int64, c_int64)
OnProgress = ctypes.CFUNCTYPE(None, c_void_p, POINTER(Progress))
OnFile = ctypes.CFUNCTYPE(None, c_void_p, POINTER(Item))
OnNotice = ctypes.CFUNCTYPE(None, c_void_p, c_int32, c_int32, c_char_p)
OnRound = ctypes.CFUNCTYPE(None, c_void_p, POINTER(Summary))


class Callbacks(Struct):
    _fields_ = [("size", c_uint32), ("unused", c_int32), ("user", c_void_p),
                ("planned", OnPlanned), ("progress", OnProgress), ("file", OnFile),
                ("notice", OnNotice), ("round", OnRound)]


class ServerOptions(Struct):
    _fields_ = [("size", c_uint32), ("port", c_int32), ("directory", c_char_p),
                ("listen_address", c_char_p), ("suffix", c_char_p), ("log_directory", c_char_p),
                ("allowed", POINTER(c_char_p)), ("allowed_count", c_int32),
                ("links_per_address", c_int32), ("new_links", c_int32), ("new_links_ms", c_int32),
                ("no_delete", c_int32), ("no_durable", c_int32), ("events", c_int32),
                ("unused", c_int32)]


class ServerEvent(Struct):
    _fields_ = [("size", c_uint32), ("kind", c_int32), ("code", c_int32), ("client_port", c_int32),
                ("address", c_char_p), ("path", c_char_p), ("bytes", c_int64),
                ("milliseconds", c_int64), ("lost", c_int64)]


_HANDLE, _OUT = c_void_p, POINTER(c_void_p)
_FUNCTIONS = {
    "version_text": (c_char_p,),
    "describe": (c_char_p, c_int32),
    "client_create": (c_int32, POINTER(ClientOptions), _OUT),
    "client_destroy": (c_int32, _HANDLE),
    "client_set_callbacks": (c_int32, _HANDLE, POINTER(Callbacks)),
    "client_words": (c_char_p, _HANDLE),
    "client_connect": (c_int32, _HANDLE, c_int32, c_int32),
    "client_disconnect": (c_int32, _HANDLE),
    "client_cancel": (c_int32, _HANDLE),
    "client_progress": (c_int32, _HANDLE, POINTER(Progress), c_char_p, c_int32),
    "client_projects": (c_int32, _HANDLE, _OUT),
    "client_files": (c_int32, _HANDLE, c_char_p, _OUT),
    "client_delete": (c_int32, _HANDLE, c_char_p, POINTER(c_int64)),
    "client_put": (c_int32, _HANDLE, c_char_p, POINTER(Options), _OUT),
    "client_get": (c_int32, _HANDLE, c_char_p, c_char_p, POINTER(Options), _OUT),
    "client_verify": (c_int32, _HANDLE, c_char_p, c_char_p, POINTER(Options), _OUT),
    "client_watch": (c_int32, _HANDLE, c_char_p, POINTER(Options)),
    "result_destroy": (None, _HANDLE),
    "result_count": (c_int64, _HANDLE),
    "result_project": (c_int32, _HANDLE, c_int64, POINTER(Project)),
    "result_file": (c_int32, _HANDLE, c_int64, POINTER(File)),
    "result_item": (c_int32, _HANDLE, c_int64, POINTER(Item)),
    "result_verdict": (c_int32, _HANDLE, c_int64, POINTER(Verdict)),
    "result_summary": (c_int32, _HANDLE, POINTER(Summary)),
    "result_check": (c_int32, _HANDLE, POINTER(Check)),
    "result_unlisted": (c_char_p, _HANDLE, c_int64),
    "server_start": (c_int32, POINTER(ServerOptions), _OUT),
    "server_port": (c_int32, _HANDLE),
    "server_next_event": (c_int32, _HANDLE, c_int32, POINTER(ServerEvent)),
    "server_stop": (c_int32, _HANDLE),
    "server_destroy": (c_int32, _HANDLE, c_int32),
}


class _Library:
    """The functions without their prefix, loaded once somebody imports this."""

    def __init__(self) -> None:
        loaded = _load()
        for name, (result, *arguments) in _FUNCTIONS.items():
            function = getattr(loaded, "kqft_" + name)
            function.restype, function.argtypes = result, arguments
            setattr(self, name, function)

    def __getattr__(self, name: str) -> Any:  # for type checkers; all are set above
        raise AttributeError(name)


library = _Library()


def text(value: "bytes | None") -> str:
    """Names of files may be any bytes; they come back as they went."""
    return os.fsdecode(value or b"") if sys.platform != "win32" else (value or b"").decode("utf-8")


def encoded(value: "str | os.PathLike[str]") -> bytes:
    """The reverse."""
    path = os.fspath(value)
    found = os.fsencode(path) if sys.platform != "win32" else path.encode("utf-8")
    if b"\0" in found:
        raise ValueError(f"a null character in {path!r}")
    return found


def texts(values: "Any | None") -> Any:
    """An array of strings; None stays NULL."""
    if values is None:
        return None
    values = [encoded(value) for value in values]
    return (c_char_p * max(len(values), 1))(*values)
