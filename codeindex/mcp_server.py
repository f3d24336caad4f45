"""The MCP server: one repository's index, asked by an agent over standard input and output.

The SDK runs each tool on a worker thread, so a question that indexes first blocks nobody else.
"""

from __future__ import annotations

import json
import sqlite3
import threading
import time
from collections.abc import Iterator
from contextlib import contextmanager
from itertools import accumulate
from pathlib import Path
from typing import TYPE_CHECKING, Annotated, Any

import anyio.from_thread
from mcp.server.mcpserver import Context, MCPServer
from mcp.server.mcpserver.exceptions import ToolError
from mcp.types import CallToolResult, TextContent, ToolAnnotations
from pydantic import BaseModel, Field

from codeindex import __version__
from codeindex.answers import freshness_values
from codeindex.api import Index
from codeindex.exceptions import CodeIndexError

if TYPE_CHECKING:
    from codeindex.models.symbol import StoredSymbol
    from codeindex.workers.retrieval import RetrievedSymbol

_INSTRUCTIONS = (
    "Finds where something is done in the repository: ask `search` in a sentence, in keywords or "
    "by name, then read the files at the places it gives, or `show` one symbol's source."
)
_BYTES_PER_TOKEN = 3  # few, so that an answer stays below what was asked for
_MAX_CANDIDATES = 100
_NOTIFY_EVERY_SECONDS = 0.25

_MaxTokens = Annotated[
    int, Field(ge=100, le=100_000, description="About how many tokens the answer may take.")
]


class Symbol(BaseModel):
    """A symbol and where it is."""

    place: str = Field(description="path:first line-last line, below the repository.")
    symbol: str = Field(description="Fully qualified name.")
    kind: str
    signature: str | None = None


class Hit(Symbol):
    """A symbol that answers a question."""

    ranks: dict[str, int] = Field(description="Its place, from 1, in each channel that found it.")


class Freshness(BaseModel):
    """How the index stands to the files."""

    state: str = Field(description="Equal for two answers while nothing in between changed.")
    checked_at: str | None = Field(description="When the index last agreed with the files.")
    warning: str | None = Field(description="Why it could not be brought up to date.")


class SearchResult(BaseModel):
    """The answer to one question, best first."""

    hits: list[Hit]
    channels: dict[str, str] = Field(description="How each ranking channel fared.")
    note: str | None = Field(description="What the ranking had to do without.")
    freshness: Freshness
    truncated: bool = Field(description="Whether hits were left out to stay within max_tokens.")


class ShowResult(BaseModel):
    """One symbol's source, or the symbols that the name may mean."""

    symbols: list[Symbol]
    source: str | None = Field(description="The source when the name means one symbol.")
    freshness: Freshness
    truncated: bool = Field(description="Whether lines or symbols at the end were left out.")


class Server:
    """The tools over the index of one repository, which is opened by the first call."""

    def __init__(self, root: Path, index_file: Path | None) -> None:
        """Serve the repository whose folder is `root`."""
        self._root = root
        self._index_file = index_file
        self._lock = threading.Lock()
        self._index: Index | None = None

    def run(self) -> None:
        """Serve until standard input ends; standard output carries nothing but the protocol."""
        server: MCPServer[Any] = MCPServer(
            "codeindex", version=__version__, instructions=_INSTRUCTIONS, log_level="WARNING"
        )
        only_reads = ToolAnnotations(read_only_hint=True, open_world_hint=False)
        server.add_tool(self.search, annotations=only_reads)
        server.add_tool(self.show, annotations=only_reads)
        try:
            server.run("stdio")
        finally:
            if self._index is not None:
                self._index.close()

    def search(
        self,
        context: Context[Any, Any],
        question: Annotated[str, Field(description="A sentence, keywords or a name in code.")],
        path: Annotated[
            str | None, Field(description="Answer only from this folder or file.")
        ] = None,
        include_tests: Annotated[
            bool | None,
            Field(description="Whether tests may answer; by default to questions about tests."),
        ] = None,
        limit: Annotated[int, Field(ge=1, le=100, description="How many hits at most.")] = 10,
        max_tokens: _MaxTokens = 4000,
    ) -> Annotated[CallToolResult, SearchResult]:
        """Find the symbols of the repository that answer a question, best first.

        The index is brought up to date with the files before every answer.
        """
        if not question.strip():
            raise ToolError("The question is empty.")
        with _failures_explained():
            answer = self._opened().ask(
                question,
                limit=limit,
                scope=path,
                include_tests=include_tests,
                progress=_Notifier(context),
            )
        result = SearchResult(
            hits=[Hit(**_symbol_values(hit.symbol), ranks=hit.ranks) for hit in answer],
            channels=answer.channels,
            note=answer.note,
            freshness=Freshness.model_validate(freshness_values(answer.freshness)),
            truncated=False,
        )
        return _within(result, result.hits, max_tokens)

    def show(
        self,
        context: Context[Any, Any],
        symbol: Annotated[
            str, Field(description="A name, a qualified name or the end of one, or path:line.")
        ],
        max_tokens: _MaxTokens = 8000,
    ) -> Annotated[CallToolResult, ShowResult]:
        """Show the source of one symbol; several symbols of that name are listed instead."""
        with _failures_explained():
            index = self._opened()
            freshness = index.bring_up_to_date(_Notifier(context))
            found = index.find(symbol)
            source = index.source(found[0]).lines if len(found) == 1 else None
        if not found:
            raise ToolError(f"No symbol is named {symbol!r}. Use search to find its name.")
        result = ShowResult(
            symbols=[Symbol(**_symbol_values(one)) for one in found[:_MAX_CANDIDATES]],
            source=None,
            freshness=Freshness.model_validate(freshness_values(freshness)),
            truncated=len(found) > _MAX_CANDIDATES,
        )
        if source is None:
            return _within(result, result.symbols, max_tokens)
        shown = _beginning(source, -_excess(result, max_tokens))
        result.source = "\n".join(shown)
        result.truncated = len(shown) < len(source)
        return _content(result)

    def _opened(self) -> Index:
        with self._lock:
            if self._index is None:
                self._index = Index(self._root, self._index_file)
            return self._index


class _Notifier:
    """Tells the client of an index run's progress, called on a worker thread of the SDK."""

    def __init__(self, context: Context[Any, Any]) -> None:
        self._context = context
        self._last_time = 0.0
        self._step = ""
        self._step_total = 0
        self._before = 0  # pieces of the steps that are over: what is reported may only grow

    def __call__(self, step: str, done: int, total: int) -> None:
        anyio.from_thread.check_cancelled()
        if step != self._step:
            self._before += self._step_total
            self._step = step
        self._step_total = total
        now = time.monotonic()
        if done == total or now - self._last_time < _NOTIFY_EVERY_SECONDS:
            return
        self._last_time = now
        anyio.from_thread.run(
            self._context.report_progress,
            self._before + done,
            None,
            f"{step}: {done:,} of {total:,}",
        )


@contextmanager
def _failures_explained() -> Iterator[None]:
    try:
        yield
    except (CodeIndexError, OSError, sqlite3.Error) as error:
        raise ToolError(str(error)) from error


def _symbol_values(symbol: StoredSymbol | RetrievedSymbol) -> dict[str, Any]:
    return {
        "place": f"{symbol.path}:{symbol.start_line}-{symbol.end_line}",
        "symbol": symbol.fqn,
        "kind": symbol.kind,
        "signature": symbol.signature,
    }


def _within(result: SearchResult | ShowResult, items: list[Any], max_tokens: int) -> CallToolResult:
    """Drop items from the end until the answer takes no more than `max_tokens`, roughly."""
    while items and _excess(result, max_tokens) > 0:
        items.pop()
        result.truncated = True
    return _content(result)


def _beginning(lines: list[str], bytes_left: int) -> list[str]:
    """Return the first of the lines, as many as take no more than so many bytes of JSON."""
    ends = accumulate(len(json.dumps(line, ensure_ascii=False).encode()) for line in lines)
    return [line for line, end in zip(lines, ends, strict=True) if end <= bytes_left]


def _excess(result: BaseModel, max_tokens: int) -> int:
    return len(result.model_dump_json().encode()) - max_tokens * _BYTES_PER_TOKEN


def _content(result: BaseModel) -> CallToolResult:
    return CallToolResult(
        content=[TextContent(type="text", text=result.model_dump_json())],
        structured_content=result.model_dump(mode="json"),
    )
