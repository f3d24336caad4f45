"""A local HTTP server that answers as a test tells it to, however badly."""

import json
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from typing import Any

KEY = "sk-never-to-be-seen-0123456789"


class Request(BaseHTTPRequestHandler):
    """One request: `body` is its JSON; what a behaviour writes to it is the answer."""

    server: "ModelServer"
    body: Any

    def do_POST(self) -> None:
        self.body = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        self.server.requests.append(self)
        try:
            self.server.behave(self)
        except OSError:
            self.close_connection = True  # the client went away, as it may

    def answer(self, content: str | bytes, status: int = 200, **headers: str) -> None:
        """Answer in one piece, with the key in the status line; "_" in a header stands for "-"."""
        content = content.encode() if isinstance(content, str) else content
        self.send_response_only(status, f"echo {self.headers['Authorization']}")
        for name, value in {"Content-Length": str(len(content)), **headers}.items():
            self.send_header(name.replace("_", "-"), value)
        self.end_headers()
        self.wfile.write(content)


class ModelServer(ThreadingHTTPServer):
    """Serves any number of requests; `stopped` wakes behaviours that only wait."""

    daemon_threads = True

    def __init__(self, behave: Callable[[Request], object]) -> None:
        super().__init__(("127.0.0.1", 0), Request)
        self.behave = behave
        self.requests: list[Request] = []
        self.stopped = threading.Event()
        self.url = f"http://127.0.0.1:{self.server_port}/v1"


@contextmanager
def serving(behave: Callable[[Request], object]) -> Iterator[ModelServer]:
    with ModelServer(behave) as server:
        threading.Thread(target=server.serve_forever, args=(0.01,)).start()
        try:
            yield server
        finally:
            server.stopped.set()
            server.shutdown()
