"""Live statistics of running Vendral Gateways: the C library librixstats.so.1 for Python 3.9 and later.

    import rixstats

    with rixstats.Connection("gw7", 2980, timeout=5) as gateway:
        for stat in gateway.statistics_in_groups("Workers"):
            print(stat.id, stat.value)

Every answer is made of Python values of its own: it outlives the next query and the connection. Every failure is an
Error, which carries the library's code, its name, and what is known of the reason. That the gateway refuses a part of a
query is no failure of the call: iteration gives the items that there are, and the answer's `failed` tells which elements
of the query have none.

Waiting. Without a timeout a call waits as long as the gateway takes. With one it raises TimedOut, which is a
TimeoutError, and the connection is closed; only the look-up of a host name may take longer. Ctrl-C, and any other
signal handler that raises, ends a waiting call at once, and its connection with it (an opening goes on behind the
scenes until the gateway answers, and is closed then). A connection that is left behind, by `del` or by the end of the
program, says good-bye and does not wait for an answer, nor does a `with` that an exception ends; close() and the
regular end of a `with` do. A signal handler may close any connection, whatever it interrupts.

The end of a program. Python waits for the program's own threads unless they are daemons, also for one that is inside a
query.

Threads. Each connection has a thread of its own that makes its calls, since the library binds a connection to the
thread that opened it, and Python hears signals only while its main thread is not inside the library. So any thread may
query a connection (one after the other) and close it, also while a query waits for the gateway; the query then fails.

Forks. A child process opens its own connections. Those that it inherits it cannot query, and close() leaves the
parent's as they are.

Texts. Identifiers and values are bytes to the library. They are decoded as UTF-8 with "surrogateescape", so that any
bytes survive the way to a str and back into a query.

The library is looked for as the system does it; the environment variable RIXSTATS_LIBRARY names another file. The C
headers rixstats.h and rixstats_ext.h say all that is not said here.
"""
from __future__ import annotations

import _thread
import atexit
import ctypes
import enum
import functools
import math
import os
import queue
import threading
import warnings
import weakref
from dataclasses import dataclass
from typing import Any, Callable, Generic, Iterator, Optional, Sequence, TypeVar, Union, overload

__all__ = ["Answer", "Code", "Connection", "DEFAULT_PORT", "Error", "Failure", "Group", "Identifier", "Statistic",
           "Step", "TimedOut", "close_all", "dump_state", "library_version", "set_trace_file", "set_trace_level",
           "trace_level"]

DEFAULT_PORT = 2980


class Code(enum.IntEnum):
    """The library's return codes."""

    STAPI_OK = 0
    NO_MUTEX = -2  # no mutex to be had: the one code that the C headers give no name
    STAPI_NULL_GATEWAY_TOKEN = -100
    STAPI_GATEWAY_TOKEN_NOT_FOUND = -101
    STAPI_COMMS_FAILURE = -102
    STAPI_NULL_ARGUMENT = -103
    STAPI_BAD_TRACE_LEVEL = -104
    STAPI_NULL_PROTOCOL_VERSION_PTR = -105
    STAPI_NOT_USER_RESULT_SET = -106
    STAPI_BAD_PORT = -107
    STAPI_NULL_GATEWAY_TOKEN_PTR = -108
    STAPI_NULL_OUTPUT_PTR = -109
    STAPI_NO_RESULT_SET_BUFFER = -110
    STAPI_NO_MEMORY = -111
    STAPI_END_OF_RESULTS = -113
    STAPI_GTL_CORRUPT = -115
    STAPI_BAD_RESULT_SET_OWNER = -116
    STAPI_CONNECT_FAILED = -118
    STAPI_UNRECOGNISED_CONTENT = -119
    STAPI_LOCK_INIT_FAILED = -121
    STAPI_GATEWAY_EXCHANGE_FAILED = -122
    STAPI_WRONG_PROCESS = -123
    STAPI_WRONG_THREAD = -124
    STAPI_NULL_RESULT_SET_PTR = -125
    STAPI_NULL_QUERY_STRING = -126
    STAPI_NULL_RESULT_SET_TOKEN = -127
    STAPI_NULL_ID_DATA_PTR = -128
    STAPI_NULL_STAT_DATA_PTR = -129
    STAPI_TRACE_FILE_OPEN_FAILED = -130
    STAPI_NO_IDS_FOR_QUERY = -131
    STAPI_HOST_NOT_FOUND = -132
    STAPI_NULL_HOSTNAME = -133
    STAPI_CONNECT_TIMED_OUT = -134
    STAPI_CONNECTION_REFUSED = -135
    STAPI_NETWORK_UNREACHABLE = -136
    STAPI_TIME_LIMIT_REACHED = -137
    STAPI_BAD_TIME_LIMIT = -138
    STAPI_BAD_RECORD_SIZE = -139

    @property
    def text(self) -> str:
        """What the code means, in half a sentence."""
        return _code_text(self)


def _code_text(code: int) -> str:
    if code == Code.STAPI_TIME_LIMIT_REACHED:  # the library's text has "the thread's time limit"
        return "the call took longer than the connection's timeout; connection closed"
    return str(_library().rixCodeText(code).decode())


class Step(enum.IntEnum):
    """What a call was doing when it failed."""

    NONE = 0  # nothing that involves a gateway
    RESOLVE = 1
    SOCKET = 2
    CONNECT = 3
    HANDSHAKE = 4
    AUTHORISE = 5
    VERSION = 6
    QUERY = 7
    PARSE = 8
    CLOSE = 9

    @classmethod
    def _missing_(cls, value: object) -> Step:  # of a later version of the library
        return cls.NONE


@dataclass(frozen=True)
class Failure:
    """Why a call failed, as far as it is known. What does not apply is 0."""

    step: Step = Step.NONE
    # Of the system call that failed; -1: the gateway closed the connection before its answer was complete, -2: another
    # thread closed it.
    errno: int = 0
    resolver_code: int = 0  # getaddrinfo()'s
    gateway_rc: int = 0  # the code by which the gateway refused a request ...
    auth_rc: int = 0  # ... the authorisation ...
    admin_rc: int = 0  # ... or a management request
    exception_flag: int = 0  # 1: the gateway could not execute the request

    def __str__(self) -> str:
        if refusal := self.auth_rc or self.admin_rc or self.gateway_rc:
            return f"{self.step.name.lower()}: refused with the gateway's code {refusal}"
        if self.exception_flag != 0:
            return f"{self.step.name.lower()}: the gateway could not execute the request"
        if self.errno in (-1, -2):
            who = "the gateway" if self.errno == -1 else "another thread"
            return f"{self.step.name.lower()}: {who} closed the connection"
        if self.errno != 0:
            return f"{self.step.name.lower()}: {os.strerror(self.errno)}"
        return "" if self.step == Step.NONE else self.step.name.lower()


class Error(Exception):
    """A call of the library that failed: `code`, its `name`, the `call` that returned it, and the `failure` behind."""

    def __init__(self, call: str, code: int, failure: Failure = Failure()) -> None:
        self.call = call
        self.code = code
        self.name = str(_library().rixCodeName(code).decode())
        self.failure = failure
        text = f"{call} failed with {self.name} ({int(code)}): {_code_text(code)}"
        super().__init__(f"{text} ({failure})" if str(failure) else text)

    def __reduce__(self) -> tuple[Any, ...]:  # an error may come from another process
        return type(self), (self.call, self.code, self.failure)


class TimedOut(Error, TimeoutError):
    """A call that ran into the timeout of its connection, or a host that did not answer for a minute."""


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


class _FailureData(ctypes.Structure):
    _fields_ = [(name, ctypes.c_int) for name in ("size", "code", "step", "errno", "resolver_code", "gateway_rc",
                                                  "auth_rc", "admin_rc", "exception_flag")]


_ENDS_CONNECTION = (Code.STAPI_COMMS_FAILURE, Code.STAPI_GATEWAY_EXCHANGE_FAILED, Code.STAPI_GATEWAY_TOKEN_NOT_FOUND,
                    Code.STAPI_TIME_LIMIT_REACHED)
_TIMED_OUT = (Code.STAPI_TIME_LIMIT_REACHED, Code.STAPI_CONNECT_TIMED_OUT)
_LONGEST_LIMIT = 2**31 - 1  # milliseconds

_HANDLE, _TEXT, _INT = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int
_TO_HANDLE, _TO_TEXT, _TO_INT = ctypes.POINTER(_HANDLE), ctypes.POINTER(_TEXT), ctypes.POINTER(_INT)

_ARGUMENTS: dict[str, list[Any]] = {
    "getStatsAPIVersion": [_TO_TEXT],
    "openRemoteGatewayConnection": [_TEXT, _INT, _TO_HANDLE, _TO_TEXT],
    "closeGatewayConnection": [_TO_HANDLE],
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
    "rixSetTimeLimit": [_INT],
    "rixGetTimeLimit": [_TO_INT],
    "rixGetLastFailure": [ctypes.POINTER(_FailureData)],
    "rixCodeName": [_INT],
    "rixCodeText": [_INT],
}


@functools.lru_cache(maxsize=None)
def _library() -> ctypes.CDLL:
    file = os.environ.get("RIXSTATS_LIBRARY") or "librixstats.so.1"
    try:
        library = ctypes.CDLL(file)
        for name, arguments in _ARGUMENTS.items():
            getattr(library, name).argtypes = arguments
            getattr(library, name).restype = _TEXT if name.startswith("rixCode") else _INT
    except (OSError, AttributeError) as failure:  # no such file; a library without the calls
        raise OSError(f"cannot use {file} as the library rixstats: {failure}. Install librixstats, or set "
                      "RIXSTATS_LIBRARY to the name of its file") from failure
    return library


def _error(call: str, code: int) -> Error:
    """The error of the call of the library that this thread has made last."""
    data = _FailureData(size=ctypes.sizeof(_FailureData))
    _library().rixGetLastFailure(ctypes.byref(data))
    failure = Failure(Step(data.step), data.errno, data.resolver_code, data.gateway_rc, data.auth_rc, data.admin_rc,
                      data.exception_flag)
    return (TimedOut if code in _TIMED_OUT else Error)(call, code, failure if data.code == code else Failure())


def _call(name: str, *arguments: Any) -> None:
    code = getattr(_library(), name)(*arguments)
    if code != Code.STAPI_OK:
        raise _error(name, code)


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
        raise _error("getNext" + kind, code)
    return Answer([Group(element, result, tuple(items)) for element, result, items in groups])


def _leave(handle: Optional[int]) -> None:
    """Closes a connection without waiting: one that is idle says good-bye, the call of one in use fails."""
    if handle is None:
        return
    library, limit = _library(), ctypes.c_int()
    library.rixGetTimeLimit(ctypes.byref(limit))
    try:
        library.rixSetTimeLimit(1)
        library.closeGatewayConnection(ctypes.byref(ctypes.c_void_p(handle)))
    finally:
        library.rixSetTimeLimit(limit)


_Outcome = queue.SimpleQueue[Any]  # takes one pair, what the work gave and the failure that ended it


class _Jobs(queue.SimpleQueue[Any]):
    """What the thread of a connection has to do: time limit, work and _Outcome of each; None ends the thread."""

    over = False  # what is put in from now on may have nobody to do it


def _serve(jobs: _Jobs) -> None:
    """The thread of a connection. It knows the connection only while there is something to do, so that one which nobody
    needs any more can go."""
    while not (jobs.over and jobs.empty()):
        job = jobs.get()
        if job is None:
            jobs.over = True  # before the last look at what stands behind: no job is missed by both sides
            continue
        limit, work, outcome = job
        result, failure = None, None
        try:
            _library().rixSetTimeLimit(limit)
            result = work()
        except BaseException as met:
            failure = met
        outcome.put((result, failure))
        del job, work, outcome, result, failure


class Connection:
    """An open connection to a gateway. Close it, or use it in a `with`."""

    def __init__(self, host: str = "127.0.0.1", port: int = DEFAULT_PORT, timeout: Optional[float] = None) -> None:
        """Connects (60 seconds at most) and waits for the gateway's greeting, `timeout` seconds at most for both."""
        # For the next three, and while a result set is read. A signal handler may interrupt the thread that holds it and
        # take it again, but must not wait then for the connection's thread, which may need it, too: see _ending.
        self._lock = threading.RLock()
        self._handle: Optional[int] = None
        self._asking = False  # the library has the connection in use
        self._ending = False  # set before a caller takes the lock; nobody begins to wait from then on
        self._jobs = _Jobs()
        self._process = os.getpid()
        self.timeout = timeout
        address = _encoded(host), _in_int(port)
        try:
            _thread.start_new_thread(_serve, (self._jobs,))  # Thread.start() can be interrupted halfway
            self.protocol_version: str = self._wait_for(self._begin("openRemoteGatewayConnection",
                                                                    lambda: self._open(*address)))
        except BaseException:
            self._jobs.put(None)
            self._give_up()
            raise

    @property
    def closed(self) -> bool:
        """True once close() was called, or a query has failed in a way that ends the connection."""
        return self._ending or self._handle is None

    @property
    def timeout(self) -> Optional[float]:
        """How many seconds each call may take, as a whole; None: as long as the gateway takes. For the calls to come."""
        return self._timeout

    @timeout.setter
    def timeout(self, seconds: Optional[float]) -> None:
        if seconds is not None and not seconds > 0:
            raise ValueError(f"a timeout is a number of seconds above 0, or None: {seconds!r}")
        self._timeout = seconds

    def close(self) -> None:
        """Says good-bye to the gateway and waits for its answer; does nothing if that is done. A query that another
        thread is waiting for ends with an Error."""
        outcome = self._begin_close()
        if outcome is not None:
            self._wait_for(outcome)

    def _begin(self, call: str, work: Callable[[], Any]) -> _Outcome:
        """Has the connection's thread do it, within the timeout as it is now. Needs no lock: it may come late."""
        limit = 0 if self._timeout is None else math.ceil(min(self._timeout * 1000, _LONGEST_LIMIT))
        outcome: _Outcome = queue.SimpleQueue()
        self._jobs.put((limit, work, outcome))
        if self._jobs.over:  # if it was done none the less, its own outcome comes first
            outcome.put((None, Error(call, Code.STAPI_NULL_GATEWAY_TOKEN)))
        return outcome

    def _wait_for(self, outcome: _Outcome) -> Any:
        try:
            value, failure = outcome.get()
        except BaseException:  # of a signal handler: KeyboardInterrupt
            self._give_up()
            raise
        try:
            if failure is not None:
                raise failure
            return value
        finally:
            del failure  # or its traceback would hold this frame, and that the connection

    def _take(self) -> Optional[int]:
        """The handle of a connection that ends here. Under the lock. May be repeated if a signal handler has raised."""
        handle = self._handle
        if handle is not None:
            _connections.pop(id(self), None)
            self._jobs.put(None)
            self._handle = None
        return handle

    def _give_up(self) -> None:
        """Ends the connection, and with it the call that waits; an opening as soon as it comes to its end."""
        self._ending = True
        if self._process != os.getpid():  # the lock may have been held at the fork, by a thread that there is no more
            _leave(self._handle)
            self._take()
            return
        with self._lock:
            _leave(self._handle)  # before it is forgotten: a handler that raises in between loses no handle
            self._take()

    def _open(self, host: bytes, port: int) -> str:
        handle, version = ctypes.c_void_p(), ctypes.c_char_p()
        _call("openRemoteGatewayConnection", host, port, ctypes.byref(handle), ctypes.byref(version))
        with self._lock:
            if not self._ending:
                self._handle = handle.value
                _connections[id(self)] = weakref.ref(self)
                return (version.value or b"").decode("utf-8", "surrogateescape")
        _leave(handle.value)
        return ""

    def _begin_close(self) -> Optional[_Outcome]:
        # Where its end has begun, this may be a signal handler that has interrupted the very close(): it does not wait.
        if self._process == os.getpid() and not self.closed:
            try:
                self._ending = True
                with self._lock:
                    handle = self._handle
                    if handle is not None and not self._asking:
                        outcome = self._begin("closeGatewayConnection", functools.partial(self._say_goodbye, handle))
                        return outcome if self._take() is not None else None  # None: a handler has closed it meanwhile
            except BaseException:  # of a signal handler
                self._give_up()
                raise
        self._give_up()
        return None

    @staticmethod
    def _say_goodbye(handle: int) -> None:
        code = _library().closeGatewayConnection(ctypes.byref(ctypes.c_void_p(handle)))
        if code not in (Code.STAPI_OK, Code.STAPI_GATEWAY_TOKEN_NOT_FOUND):
            raise _error("closeGatewayConnection", code)

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
        if self._process != os.getpid():
            raise Error(call, Code.STAPI_WRONG_PROCESS)
        texts = [] if elements is None else [_encoded(":".join(elements))]
        if self.closed:
            raise Error(call, Code.STAPI_NULL_GATEWAY_TOKEN)
        answer: Answer[Item] = self._wait_for(self._begin(call, lambda: self._ask(call, texts, read)))
        return answer

    def _ask(self, call: str, texts: list[bytes], read: Callable[[ctypes.c_void_p], Answer[Item]]) -> Answer[Item]:
        with self._lock:
            handle = self._handle
            self._asking = handle is not None
        # Without the lock, as _give_up() is what can end the wait for the gateway. One that comes when the query is over
        # takes the result set along: it is read only while the connection is known to be open.
        answer = ctypes.c_void_p()
        code = getattr(_library(), call)(handle, *texts, ctypes.byref(answer))
        with self._lock:
            self._asking = False
            if code == Code.STAPI_OK and self._handle is None:
                code = int(Code.STAPI_COMMS_FAILURE)
            if code in _ENDS_CONNECTION:
                self._take()
            if code != Code.STAPI_OK:
                raise _error(call, code)
            return read(answer)

    def __enter__(self) -> Connection:
        return self

    def __exit__(self, kind: object, *_: object) -> None:
        if kind is None:
            self.close()
        else:  # Ctrl-C, perhaps, as the gateway is silent
            self._give_up()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            if self._process == os.getpid():
                warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            self._give_up()


_connections: dict[int, weakref.ref[Connection]] = {}  # the open ones; each change is one step, and so needs no lock


def _open_connections() -> list[Connection]:
    known = (reference() for reference in list(_connections.values()))
    return [connection for connection in known if connection is not None]


@atexit.register
def _leave_all() -> None:
    for connection in _open_connections():
        connection._give_up()


def close_all() -> None:
    """Closes every connection that this module has opened, all at the same time, as close() does."""
    outcomes = [(connection, connection._begin_close()) for connection in _open_connections()]
    failure: Optional[Error] = None
    for connection, outcome in outcomes:
        try:
            if outcome is not None:
                connection._wait_for(outcome)
        except Error as met:
            failure = failure or met
    if failure is not None:
        raise failure


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
