"""One POST of JSON to a model's server, which ends by its deadline whatever the server does.

The timeouts of sockets hold for one operation each, so a server that drips could keep a caller for
hours, and looking up a name has no timeout at all. Therefore a daemon thread of its own makes the
exchange: name, connection, TLS, sending, receiving and reading the answer. The caller waits for the
thread until the deadline, then shuts the socket, which ends the thread, and goes on.

The key is read from the environment for each exchange, in that thread alone, and kept nowhere. No
error repeats anything that the server sent, since a server may echo what it was sent, and none has
a trace into that thread, whose frames hold both. Redirects are
not followed and proxies are not used: the key goes to the configured address or nowhere.
"""

import contextlib
import http.client
import json
import os
import socket
import ssl
import threading
from collections.abc import Callable
from typing import Any, Generic, TypeVar
from urllib.parse import urlsplit

T = TypeVar("T")

_CHUNK_BYTES = 65536

# What HTTP statuses and failures mean for a user, and whether they may pass by themselves; the
# first that fits counts.
_STATUSES = (
    (300, 399, "redirects, which is not followed; put the new address in {section}.url", False),
    (402, 402, "has no credit left", False),
    (401, 403, "refuses the key; check the variable named in {section}.key_variable", False),
    (404, 404, "does not know the address or model; check {section}.url and .model", False),
    (429, 429, "has no capacity or credit left", True),
    (500, 599, "has a fault", True),
    (0, 999, "refuses the request; check {section}.model", False),
)
_FAILURES = (
    (ssl.SSLCertVerificationError, "has no valid certificate; nothing was sent.", False),
    (ssl.SSLError, "does not speak TLS as it should; check {section}.url.", False),
    (socket.gaierror, "has no known address; check {section}.url and the network.", True),
    (ConnectionRefusedError, "refuses connections; is it running?", True),
    (
        (http.client.HTTPException, ConnectionError),
        "broke off, or does not speak HTTP as it should.",
        True,
    ),
)


class EndpointError(Exception):
    """No usable answer came; the message is one or two sentences that a person understands."""

    def __init__(self, message: str, *, passing: bool = False, retry_after: int = 0) -> None:
        """Say whether it may pass by itself, and after how many seconds, when the server said."""
        super().__init__(message)
        self.passing = passing
        self.retry_after = retry_after


class Endpoint:
    """A server with an OpenAI-compatible interface, and one of its models.

    `url` is the address before "/chat/completions" or "/embeddings". `section` is the part of the
    configuration that named it, which errors refer to. Immutable; safe from any thread.
    """

    def __init__(self, section: str, url: str, model: str, key_variable: str | None) -> None:
        """Send the key that the environment variable `key_variable` holds, or none.

        Raises ValueError when `url` is none.
        """
        self.section = section
        self.url = url.rstrip("/")
        self.model = model
        self._key_variable = key_variable
        parts = urlsplit(self.url)
        self._address = parts.hostname or "", parts.port
        self._https = parts.scheme == "https"
        self._path = parts.path
        self._name = f"The {section} model at {parts.hostname}"

    def key_problem(self) -> str | None:
        """Return what is wrong with the key, as a sentence, or None when there is nothing."""
        key = self._key()
        if key == "":
            return (
                f"The environment variable that {self.section}.key_variable names is not set; "
                "put the key into it."
            )
        if key is not None and not (key.isascii() and key.isprintable() and " " not in key):
            return (
                f"The environment variable that {self.section}.key_variable names holds no key: "
                "there are spaces or unprintable characters in it."
            )
        return None

    def post(
        self, path: str, body: object, read: Callable[[Any], T], *, seconds: float, max_bytes: int
    ) -> T:
        """Send `body` as JSON to `path` below the address; return what `read` makes of the answer.

        Takes at most `seconds`, `read` included, and at most `max_bytes` of an answer. `read` gets
        the answer's JSON, runs in another thread, and may raise EndpointError, as this does for
        every failure. Raises ValueError or TypeError when `body` is nothing that JSON can hold.
        """
        problem = self.key_problem()
        if problem is not None:
            raise EndpointError(problem)
        # Lone surrogates cannot be sent; a "?" goes in their place.
        content = json.dumps(body, ensure_ascii=False).encode("utf-8", "replace")
        exchange = _Exchange(self, path, content, read, seconds, max_bytes)
        try:
            exchange.start()
            exchange.join(seconds)
            late = exchange.is_alive()
        except RuntimeError:
            raise self.error("cannot be asked now: no thread can be started.") from None
        finally:
            exchange.give_up()
        if late:
            raise self._late(seconds)
        if exchange.error is not None:
            raise exchange.error
        return exchange.answer

    def error(self, what: str, *, passing: bool = False, retry_after: int = 0) -> EndpointError:
        """Return an error about this model: its name, then `what`, "{section}" filled in."""
        message = f"{self._name} {what.format(section=self.section)}"
        return EndpointError(message, passing=passing, retry_after=retry_after)

    def _late(self, seconds: float) -> EndpointError:
        return self.error(f"did not answer within {seconds:g} seconds.", passing=True)

    def _connection(self, seconds: float) -> http.client.HTTPConnection:
        kind = http.client.HTTPSConnection if self._https else http.client.HTTPConnection
        return kind(*self._address, timeout=seconds)

    def _headers(self) -> dict[str, str]:
        """Return the headers of a request, the key among them: for the exchange alone."""
        key = self._key()
        headers = {"Content-Type": "application/json", "Accept": "application/json"}
        if key:
            headers["Authorization"] = f"Bearer {key}"
        return headers

    def _status_error(self, status: int, retry_after: str) -> EndpointError:
        """Return what an HTTP status other than 200 means for the user."""
        wait = int(retry_after) if retry_after.isdecimal() and len(retry_after) < 6 else 0
        what, passing = next(
            (what, passing) for first, last, what, passing in _STATUSES if first <= status <= last
        )
        return self.error(f"{what} (status {status}).", passing=passing, retry_after=wait)

    def _explained(self, error: Exception, seconds: float) -> EndpointError:
        """Return what a failed exchange means for the user, in words of our own."""
        if isinstance(error, TimeoutError):
            return self._late(seconds)
        for kinds, what, passing in _FAILURES:
            if isinstance(error, kinds):
                return self.error(what, passing=passing)
        if isinstance(error, OSError) and error.errno is not None:
            return self.error(f"cannot be reached: {os.strerror(error.errno)}.", passing=True)
        return self.error(f"cannot be asked ({type(error).__name__}); check {{section}}.url.")

    def _key(self) -> str | None:
        """Return the key, "" when it is missing, None when none is wanted."""
        return (
            None if self._key_variable is None else os.environ.get(self._key_variable, "").strip()
        )


class _Exchange(threading.Thread, Generic[T]):
    """The thread that makes one exchange; `answer` or `error` is there when it has ended."""

    answer: T

    def __init__(
        self,
        endpoint: Endpoint,
        path: str,
        content: bytes,
        read: Callable[[Any], T],
        seconds: float,
        max_bytes: int,
    ) -> None:
        super().__init__(name=f"{endpoint.section}-model", daemon=True)
        self.error: EndpointError | None = None
        self._endpoint = endpoint
        self._path = endpoint._path + path
        self._content = content
        self._read = read
        self._seconds = seconds
        self._max_bytes = max_bytes
        self._socket: socket.socket | None = None
        self._given_up = False

    def run(self) -> None:
        try:
            self.answer = self._read(self._exchange())
        except EndpointError as error:
            error.__context__ = None
            self.error = error.with_traceback(None)
        except Exception as error:
            self.error = self._endpoint._explained(error, self._seconds)

    def give_up(self) -> None:
        """End the exchange where it stands; nothing happens to one that has ended."""
        self._given_up = True
        if self._socket is not None:
            with contextlib.suppress(OSError):
                # Not the TLS socket's own method, after which writes would go out unencrypted.
                socket.socket.shutdown(self._socket, socket.SHUT_RDWR)

    def _exchange(self) -> Any:
        with contextlib.closing(self._endpoint._connection(self._seconds)) as connection:
            connection.connect()
            # The connection forgets its socket when the server wants it closed after the answer.
            self._socket = connection.sock
            if self._given_up:
                raise self._endpoint._late(self._seconds)
            content = self._answer(connection)
        with contextlib.suppress(ValueError, RecursionError):
            return json.loads(content)
        raise self._endpoint.error("gave an answer that is no JSON.")

    def _answer(self, connection: http.client.HTTPConnection) -> bytearray:
        connection.request("POST", self._path, self._content, self._endpoint._headers())
        response = connection.getresponse()
        if response.status != 200:
            raise self._endpoint._status_error(
                response.status, response.getheader("Retry-After", "")
            )
        content = bytearray()
        while chunk := response.read(_CHUNK_BYTES):
            content += chunk
            if len(content) > self._max_bytes:
                raise self._endpoint.error(f"answers with more than {self._max_bytes:,} bytes.")
        if response.length:
            raise http.client.IncompleteRead(b"", response.length)
        return content
