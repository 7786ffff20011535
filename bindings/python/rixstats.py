"""Live statistics of running Vendral Gateways: the C library librixstats.so.1 for Python 3.9 and later.

    import rixstats

    with rixstats.Connection("gw7", 2980) as gateway:
        for stat in gateway.statistics_in_groups("Workers"):
            print(stat.id, stat.value)

Every answer is made of Python values of its own: it outlives the next query and the connection. Every failure is an
Error, which carries the library's code and its name. That the gateway refuses a part of a query is no failure of the
call: iteration gives the items that there are, and the answer's `failed` tells which elements of the query have none.

Texts. Identifiers and values are bytes to the library. They are decoded as UTF-8 with "surrogateescape", so that any
bytes survive the way to a str and back into a query.

Threads. A connection may be queried only by the thread that opened it (Error with STAPI_WRONG_THREAD otherwise): each
thread opens its own. Any thread may close it, also while a query waits for the gateway; the query then fails. A query
waits without a time limit, and other Python threads run meanwhile. Ctrl-C is not noticed before a call has returned: a
program whose gateway may fall silent makes its queries in a second thread, and closes the connection from the first.

Forks. A child process opens its own connections. What it inherits it cannot query, and close() leaves it to the parent.

The library is looked for as the system does it; the environment variable RIXSTATS_LIBRARY names another file. The C
header rixstats.h says all that is not said here.
"""
from __future__ import annotations

import ctypes
import enum
import functools
import os
import threading
import warnings
from dataclasses import dataclass
from typing import Any, Callable, Generic, Iterator, Optional, Sequence, TypeVar, Union, overload

__all__ = ["Answer", "Code", "Connection", "DEFAULT_PORT", "Error", "Group", "Identifier", "Statistic", "close_all",
           "dump_state", "library_version", "set_trace_file", "set_trace_level", "trace_level"]

DEFAULT_PORT = 2980


class Code(enum.IntEnum):
    """The library's return codes; `text` says what each means."""

    text: str

    def __new__(cls, value: int, text: str) -> Code:
        code = int.__new__(cls, value)
        code._value_ = value
        code.text = text
        return code

    STAPI_OK = 0, "success"
    NO_MUTEX = -2, "no mutex to be had"  # the one code that the C header gives no name
    STAPI_NULL_GATEWAY_TOKEN = -100, "the gateway handle is null"
    STAPI_GATEWAY_TOKEN_NOT_FOUND = -101, "no such open connection: never opened, closed, or ended by a failure"
    STAPI_COMMS_FAILURE = -102, "the connection to the gateway was lost and is closed now"
    STAPI_NULL_ARGUMENT = -103, "internal: a required argument of a routine of the library was null"
    STAPI_BAD_TRACE_LEVEL = -104, "trace level outside 0..5"
    STAPI_NULL_PROTOCOL_VERSION_PTR = -105, "protocolVersionPtr is null"
    STAPI_NOT_USER_RESULT_SET = -106, "only copies of result sets can be freed"
    STAPI_BAD_PORT = -107, "port outside 1..65535"
    STAPI_NULL_GATEWAY_TOKEN_PTR = -108, "the pointer to the gateway handle is null"
    STAPI_NULL_OUTPUT_PTR = -109, "a required output pointer is null"
    STAPI_NO_RESULT_SET_BUFFER = -110, "the connection or result set has no data; the connection may have gone"
    STAPI_NO_MEMORY = -111, "memory could not be allocated, or the query's text is too long"
    STAPI_END_OF_RESULTS = -113, "no (further) item: the normal end of a walk"
    STAPI_GTL_CORRUPT = -115, "the list of connections is damaged, or 256 were closed and more may be left"
    STAPI_BAD_RESULT_SET_OWNER = -116, "internal: unknown kind of result-set owner"
    STAPI_CONNECT_FAILED = -118, "connecting failed, or the gateway refused the greeting or authorisation"
    STAPI_UNRECOGNISED_CONTENT = -119, "the result set does not hold what the call reads (ids, statistics)"
    STAPI_LOCK_INIT_FAILED = -121, "a lock could not be set up"
    STAPI_GATEWAY_EXCHANGE_FAILED = -122, "an exchange with the gateway failed or was refused; connection closed"
    STAPI_WRONG_PROCESS = -123, "the connection or result set belongs to another process"
    STAPI_WRONG_THREAD = -124, "the connection or result set belongs to another thread"
    STAPI_NULL_RESULT_SET_PTR = -125, "the pointer to the result-set handle is null"
    STAPI_NULL_QUERY_STRING = -126, "the query text is null"
    STAPI_NULL_RESULT_SET_TOKEN = -127, "the result-set handle is null"
    STAPI_NULL_ID_DATA_PTR = -128, "idDataPtr is null"
    STAPI_NULL_STAT_DATA_PTR = -129, "statDataPtr is null"
    STAPI_TRACE_FILE_OPEN_FAILED = -130, "the trace file could not be opened, or its name is too long"
    STAPI_NO_IDS_FOR_QUERY = -131, "the result set holds no identifier for a query text"
    STAPI_HOST_NOT_FOUND = -132, "the host name could not be resolved"
    STAPI_NULL_HOSTNAME = -133, "hostname is null"
    STAPI_CONNECT_TIMED_OUT = -134, "no answer to the TCP connect within 60 seconds"
    STAPI_CONNECTION_REFUSED = -135, "nothing listens on that host and port"
    STAPI_NETWORK_UNREACHABLE = -136, "there is no route to the host's network"


def _known(code: int) -> Optional[Code]:
    try:
        return Code(code)
    except ValueError:
        return None


class Error(Exception):
    """A call of the library that failed: `code`, its `name`, and the `call` that returned it."""

    def __init__(self, call: str, code: int) -> None:
        known = _known(code)
        self.call = call
        self.code = code
        self.name = known.name if known else "unknown code"
        text = known.text if known else "a code that this release of rixstats.py does not know"
        super().__init__(f"{call} failed with {self.name} ({int(code)}): {text}")

    def __reduce__(self) -> tuple[Any, ...]:  # an error may come from another process
        return Error, (self.call, self.code)


@dataclass(frozen=True)
class Identifier:
    """One identifier of a group or statistic, and the element of the query that it answers."""

    element: str
    id: str


@dataclass(frozen=True)
class Statistic:
    """One statistic. Values are texts; counters and gauges come as decimal digits."""

    element: str
    id: str
    value: str


Item = TypeVar("Item", Identifier, Statistic)


@dataclass(frozen=True)
class Group(Generic[Item]):
    """The answer to one element of a query. A negative code is the gateway's refusal; there are no items then."""

    element: str
    code: int
    items: tuple[Item, ...]

    def __iter__(self) -> Iterator[Item]:
        return iter(self.items)

    def __len__(self) -> int:
        return len(self.items)


class Answer(Sequence[Item]):
    """All items that a query gave, in the gateway's order; `groups` has them by element of the query."""

    def __init__(self, groups: Sequence[Group[Item]]) -> None:
        self.groups: tuple[Group[Item], ...] = tuple(groups)
        self._items = tuple(item for group in groups for item in group.items)

    @property
    def failed(self) -> dict[str, int]:
        """The elements that the gateway refused, each with the gateway's code."""
        return {group.element: group.code for group in self.groups if group.code < 0}

    @property
    def ids(self) -> list[str]:
        """The identifiers, ready to be given to a query: so many at a time that they hold 32,765 bytes at most, with a
        byte between each two."""
        return [item.id for item in self._items]

    @overload
    def __getitem__(self, index: int) -> Item: ...

    @overload
    def __getitem__(self, index: slice) -> Sequence[Item]: ...

    def __getitem__(self, index: Union[int, slice]) -> Union[Item, Sequence[Item]]:
        return self._items[index]

    def __len__(self) -> int:
        return len(self._items)

    def __repr__(self) -> str:
        return f"Answer({list(self.groups)!r})"


class _IdData(ctypes.Structure):
    _fields_ = [("eyecatcher", ctypes.c_char * 8), ("element", ctypes.c_void_p), ("element_length", ctypes.c_int),
                ("element_code", ctypes.c_int), ("id_length", ctypes.c_int), ("id", ctypes.c_void_p)]


class _StatData(ctypes.Structure):
    _fields_ = [("eyecatcher", ctypes.c_char * 8), ("element", ctypes.c_void_p), ("element_length", ctypes.c_int),
                ("element_code", ctypes.c_int), ("id_length", ctypes.c_int), ("id", ctypes.c_void_p),
                ("value_length", ctypes.c_int), ("value", ctypes.c_void_p)]


_ENDS_CONNECTION = (Code.STAPI_COMMS_FAILURE, Code.STAPI_GATEWAY_EXCHANGE_FAILED, Code.STAPI_GATEWAY_TOKEN_NOT_FOUND)

_HANDLE, _TEXT, _INT = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int
_TO_HANDLE, _TO_TEXT, _TO_INT = ctypes.POINTER(_HANDLE), ctypes.POINTER(_TEXT), ctypes.POINTER(_INT)

_ARGUMENTS: dict[str, list[Any]] = {
    "getStatsAPIVersion": [_TO_TEXT],
    "openRemoteGatewayConnection": [_TEXT, _INT, _TO_HANDLE, _TO_TEXT],
    "closeGatewayConnection": [_TO_HANDLE],
    "closeAllGatewayConnections": [],
    "getResourceGroupIds": [_HANDLE, _TO_HANDLE],
    "getStatIdsByStatGroupId": [_HANDLE, _TEXT, _TO_HANDLE],
    "getStatIds": [_HANDLE, _TO_HANDLE],
    "getStats": [_HANDLE, _TO_HANDLE],
    "getStatsByStatId": [_HANDLE, _TEXT, _TO_HANDLE],
    "getStatsByStatGroupId": [_HANDLE, _TEXT, _TO_HANDLE],
    "getFirstId": [_HANDLE, ctypes.POINTER(_IdData)],
    "getNextId": [_HANDLE, ctypes.POINTER(_IdData)],
    "getFirstStat": [_HANDLE, ctypes.POINTER(_StatData)],
    "getNextStat": [_HANDLE, ctypes.POINTER(_StatData)],
    "getAPITraceLevel": [_TO_INT],
    "setAPITraceLevel": [_INT],
    "setAPITraceFile": [_TEXT],
    "dumpState": [],
}


@functools.lru_cache(maxsize=None)
def _library() -> ctypes.CDLL:
    file = os.environ.get("RIXSTATS_LIBRARY") or "librixstats.so.1"
    try:
        library = ctypes.CDLL(file)
        for name, arguments in _ARGUMENTS.items():
            getattr(library, name).argtypes = arguments
            getattr(library, name).restype = _INT
    except (OSError, AttributeError) as failure:  # no such file; a library without the calls
        raise OSError(f"cannot use {file} as the library rixstats: {failure}. Install librixstats, or set "
                      "RIXSTATS_LIBRARY to the name of its file") from failure
    return library


def _call(name: str, *arguments: Any) -> None:
    code = getattr(_library(), name)(*arguments)
    if code != Code.STAPI_OK:
        raise Error(name, code)


def _in_int(number: int) -> int:
    """The nearest number that an int holds, which is refused as well: ctypes would cut off bits."""
    return max(-2**31, min(number, 2**31 - 1))


def _encoded(text: str) -> bytes:
    encoded = text.encode("utf-8", "surrogateescape")
    if b"\0" in encoded:
        raise ValueError(f"a text for the library must not hold a zero byte: {text!r}")
    return encoded


def _decoded(start: Optional[int], length: int) -> str:
    return ctypes.string_at(start, length).decode("utf-8", "surrogateescape") if start else ""


def _identifier(element: str, data: Any) -> Identifier:
    return Identifier(element, _decoded(data.id, data.id_length))


def _statistic(element: str, data: Any) -> Statistic:
    return Statistic(element, _decoded(data.id, data.id_length), _decoded(data.value, data.value_length))


def _read(handle: ctypes.c_void_p, kind: str, data: Any, make: Callable[[str, Any], Item]) -> Answer[Item]:
    """Walks a result set to its end. Each element has its own place there, also one that the query names twice."""
    groups: list[tuple[str, int, list[Item]]] = []
    first, following = getattr(_library(), "getFirst" + kind), getattr(_library(), "getNext" + kind)
    place = None
    code = first(handle, ctypes.byref(data))
    while code == Code.STAPI_OK:
        if data.element != place:
            place = data.element
            groups.append((_decoded(place, data.element_length), data.element_code, []))
        if data.element_code >= 0 and data.id_length > 0:  # what failed or is empty has one item without identifier
            groups[-1][2].append(make(groups[-1][0], data))
        code = following(handle, ctypes.byref(data))
    if code != Code.STAPI_END_OF_RESULTS:
        raise Error("getNext" + kind, code)
    return Answer([Group(element, result, tuple(items)) for element, result, items in groups])


class Connection:
    """An open connection to a gateway, which belongs to the thread that made it. Close it, or use it in a `with`."""

    def __init__(self, host: str = "127.0.0.1", port: int = DEFAULT_PORT) -> None:
        """Connects (60 seconds at most), then waits for the gateway's greeting without a time limit."""
        self._lock = threading.Lock()  # for the handle, and while a result set is read
        self._handle: Optional[int] = None
        self._process = os.getpid()
        handle, version = ctypes.c_void_p(), ctypes.c_char_p()
        _call("openRemoteGatewayConnection", _encoded(host), _in_int(port), ctypes.byref(handle), ctypes.byref(version))
        self._handle = handle.value
        self.protocol_version: str = (version.value or b"").decode("utf-8", "surrogateescape")

    @property
    def closed(self) -> bool:
        """True once close() was called, or a query has failed in a way that ends the connection."""
        return self._handle is None

    def close(self) -> None:
        """Says good-bye to the gateway and waits for its answer; does nothing if that is done. Any thread may call it:
        a query that another thread is waiting for ends with an Error."""
        if self._process != os.getpid():
            return
        with self._lock:
            handle, self._handle = ctypes.c_void_p(self._handle), None
        code = _library().closeGatewayConnection(ctypes.byref(handle)) if handle else Code.STAPI_OK
        if code not in (Code.STAPI_OK, Code.STAPI_GATEWAY_TOKEN_NOT_FOUND):  # a query may have ended it just now
            raise Error("closeGatewayConnection", code)

    def group_ids(self) -> Answer[Identifier]:
        """The identifiers of all resource groups."""
        return self._ids("getResourceGroupIds")

    def ids(self) -> Answer[Identifier]:
        """The identifiers of all statistics."""
        return self._ids("getStatIds")

    def ids_in_groups(self, *groups: str) -> Answer[Identifier]:
        """The identifiers of the statistics in these groups."""
        return self._ids("getStatIdsByStatGroupId", groups)

    def statistics(self) -> Answer[Statistic]:
        """All statistics, with their values."""
        return self._statistics("getStats")

    def statistics_by_id(self, *ids: str) -> Answer[Statistic]:
        """The statistics with these identifiers."""
        return self._statistics("getStatsByStatId", ids)

    def statistics_in_groups(self, *groups: str) -> Answer[Statistic]:
        """The statistics of these groups."""
        return self._statistics("getStatsByStatGroupId", groups)

    def _ids(self, call: str, elements: Optional[Sequence[str]] = None) -> Answer[Identifier]:
        return self._query(call, elements, lambda handle: _read(handle, "Id", _IdData(), _identifier))

    def _statistics(self, call: str, elements: Optional[Sequence[str]] = None) -> Answer[Statistic]:
        return self._query(call, elements, lambda handle: _read(handle, "Stat", _StatData(), _statistic))

    def _query(self, call: str, elements: Optional[Sequence[str]],
               read: Callable[[ctypes.c_void_p], Answer[Item]]) -> Answer[Item]:
        if elements is not None and not (elements and all(elements)):  # the library would ask for all there is
            raise ValueError("a query by identifier needs one at least, and none may be empty")
        texts = [] if elements is None else [_encoded(":".join(elements))]
        handle, answer = ctypes.c_void_p(self._handle), ctypes.c_void_p()
        # Without the lock, as close() is what can end the wait for the gateway. A close() that comes when the query is
        # over takes the result set along: it is read only while the connection is known to be open.
        code = getattr(_library(), call)(handle, *texts, ctypes.byref(answer))
        with self._lock:
            if code == Code.STAPI_OK and self._handle is None:
                code = int(Code.STAPI_COMMS_FAILURE)
            if code in _ENDS_CONNECTION:
                self._handle = None  # the library may give the same handle to the next connection
            if code != Code.STAPI_OK:
                raise Error(call, code)
            return read(answer)

    def __enter__(self) -> Connection:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None and self._process == os.getpid():
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            self.close()


def close_all() -> None:
    """Closes every connection of the process. The Connection objects find out at their next query: make it, or close()
    them, before new connections are opened, as those may get the old handles."""
    _call("closeAllGatewayConnections")


def library_version() -> str:
    """The version of the C library, as in "1_1_0_1"."""
    version = ctypes.c_char_p()
    _call("getStatsAPIVersion", ctypes.byref(version))
    return (version.value or b"").decode()


def trace_level() -> int:
    """The trace level of the process, 0 to 5."""
    level = ctypes.c_int()
    _call("getAPITraceLevel", ctypes.byref(level))
    return level.value


def set_trace_level(level: int) -> None:
    """Sets the trace level of the process: 0 (off) to 5."""
    _call("setAPITraceLevel", _in_int(level))


def set_trace_file(path: Optional[str]) -> None:
    """Appends the trace to a file; None goes back to standard error."""
    _call("setAPITraceFile", None if path is None else os.fsencode(path))


def dump_state() -> None:
    """Writes the library's state to the trace destination."""
    _call("dumpState")
