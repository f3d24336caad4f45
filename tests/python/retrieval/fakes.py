"""The host that both sides are asked against: in memory, scripted, every call written down.

A `World` says everything about a host and its questions as plain values, so that its `repr`
builds it again. `outcomes` asks one side (the library or the reference) all its questions.
"""

import contextlib
import logging
import re
import sqlite3
import traceback
from collections import Counter
from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass, field
from types import TracebackType
from typing import Any

import pytest

from codeindex.engines import decision, decision_text
from codeindex.engines.decision import DecisionError
from codeindex.exceptions import EmbeddingNotReadyError, TryAgainLaterError
from codeindex.models.symbol import StoredSymbol
from codeindex.utils import path_filter


class LateDecisionError(DecisionError):
    """A decision error of a derived kind."""


class HostStop(BaseException):
    """Asks the process to stop, like KeyboardInterrupt, in a kind of the host's own."""


ERRORS: dict[str, Callable[[], BaseException]] = {
    "runtime": lambda: RuntimeError("it broke"),
    "no text": lambda: ValueError(),
    "key": lambda: KeyError("lost"),
    "division": lambda: ZeroDivisionError("host's own"),
    "sqlite": lambda: sqlite3.OperationalError("database is locked"),
    "later": lambda: TryAgainLaterError("The embedding model is still loading"),
    "later, silent": lambda: TryAgainLaterError(""),
    "later, NUL": lambda: TryAgainLaterError("\0 is loading"),
    "later, dotted": lambda: EmbeddingNotReadyError("İt is loading\nΣ"),
    "decision": lambda: DecisionError("The deadline passed \ud800\0"),
    "decision, derived": lambda: LateDecisionError("%s late", 3),
    "interrupt": lambda: KeyboardInterrupt(),
    "exit": lambda: SystemExit(3),
    "stop": lambda: HostStop("now"),
}

ORDERS: dict[str, Callable[[int], Sequence[int]]] = {
    "kept": lambda n: range(n),
    "reversed": lambda n: list(range(n))[::-1],
    "rotated": lambda n: (*range(1, n), 0),
    "none": lambda n: [],
    "short": lambda n: [n - 1],
    "repeats": lambda n: [n - 1, 0] * n,
    "out of range": lambda n: [0, n],
    "far out of range": lambda n: [10**30],
}


@dataclass(frozen=True)
class Question:
    """One question, what the host does meanwhile, and the state its index is in.

    `failures` are (call, how often it was made, name of the error); the index moves to
    `then_state` when its fingerprint was read.
    """

    query: str
    arguments: dict[str, Any] = field(default_factory=dict)
    state: int = 0
    then_state: int | None = None
    failures: tuple[tuple[str, int, str], ...] = ()
    switch_on: bool = True
    order: str = "reversed"


@dataclass(frozen=True)
class World:
    """A host and its questions. `states` are (fingerprint, the symbols in listing order)."""

    states: tuple[tuple[Any, tuple[StoredSymbol, ...]], ...]
    questions: tuple[Question, ...]
    settings: dict[str, Any] | None = None
    embedder: str | None = "function"  # or "engine"
    model: str = "model-1"
    neighbours: tuple[int, ...] = ()
    ignores_top_k: bool = False
    client: bool = True
    listing: str = "generator"  # or "list"


def shown(value: Any) -> Any:
    """Return `value` as text in which types show and the order in sets does not."""
    if isinstance(value, frozenset):
        return "frozenset", sorted(value)
    return repr(value)


class Host:
    """The host of one world, all collaborators in one; `question` is the one being asked."""

    def __init__(self, world: World, side: Any) -> None:
        self.world = world
        self.make_vector = side.QueryVector
        self.calls: list[tuple[Any, ...]] = []
        self.raised: list[BaseException] = []

    def __repr__(self) -> str:
        return "<host>"

    def begin(self, question: Question) -> None:
        self.question = question
        self.state = question.state
        self.made: Counter[str] = Counter()
        self.calls.clear()
        self.raised.clear()

    def note(self, call: str, *args: Any, **kwargs: Any) -> None:
        self.calls.append((call, *map(shown, args), {k: shown(v) for k, v in kwargs.items()}))
        self.made[call] += 1
        for failing, nth, error in self.question.failures:
            if (failing, nth) == (call, self.made[call]):
                self.raised.append(ERRORS[error]())
                raise self.raised[-1]

    # The repository.

    def retrieval_fingerprint(self, *args: Any, **kwargs: Any) -> Any:
        self.note("retrieval_fingerprint", *args, **kwargs)
        fingerprint = self.world.states[self.state][0]
        if self.question.then_state is not None:
            self.state = self.question.then_state
        return fingerprint

    def retrievable_code_symbols(self, *args: Any, **kwargs: Any) -> Any:
        self.note("retrievable_code_symbols", *args, **kwargs)
        symbols = self.world.states[self.state][1]
        return list(symbols) if self.world.listing == "list" else self._read(symbols)

    def _read(self, symbols: Sequence[StoredSymbol]) -> Iterator[StoredSymbol]:
        for symbol in symbols:
            self.note("next symbol", symbol.id)
            yield symbol

    def nearest_symbol_ids(self, *args: Any, **kwargs: Any) -> Any:
        self.note("nearest_symbol_ids", *args, **kwargs)
        nearest = [(symbol_id, None) for symbol_id in self.world.neighbours]
        return nearest if self.world.ignores_top_k else nearest[: kwargs["top_k"]]

    def get_symbols_by_ids(self, *args: Any, **kwargs: Any) -> dict[int, StoredSymbol]:
        self.note("get_symbols_by_ids", *args, **kwargs)
        return {s.id: s for s in self.world.states[self.state][1] if s.id in args[0]}

    # The embedder, and the engine and its backend.

    def embed_query(self, *args: Any, **kwargs: Any) -> Any:
        self.note("embedder", *args, **kwargs)
        return self.make_vector([0.1, -0.0, float(len(args[0]))], self.world.model)

    def wait_ready(self, *args: Any, **kwargs: Any) -> "Host":
        self.note("wait_ready", *args, **kwargs)
        return self

    def embed(self, *args: Any, **kwargs: Any) -> list[list[float]]:
        self.note("embed", *args, **kwargs)
        return [[0.5, float(len(args[0][0]))]]

    @property
    def name(self) -> str:
        self.note("name")
        return self.world.model

    # The decision client and the host's functions.

    def feature_enabled(self, *args: Any, **kwargs: Any) -> bool:
        self.note("feature_enabled", *args, **kwargs)
        return self.question.switch_on

    def decide(self, *args: Any, **kwargs: Any) -> str:
        self.note("decide", *args, **kwargs)
        return "the answer"

    def rerank_request(self, *args: Any, **kwargs: Any) -> tuple[Any, dict[str, Any]]:
        self.note("rerank_request", *args, **kwargs)
        return ("the state", args[0]), {"lines": args[1]}

    def rerank_order(self, *args: Any, **kwargs: Any) -> Sequence[int]:
        self.note("rerank_order", *args, **kwargs)
        return ORDERS[self.question.order](args[1])

    def source_consented(self, *args: Any, **kwargs: Any) -> str:
        self.note("source_consented", *args, **kwargs)
        return "some consent"

    def candidate_line(self, *args: Any, **kwargs: Any) -> str:
        self.note("candidate_line", *args, **kwargs)
        return f"{args[1]} {args[0]}"

    def is_test_path(self, *args: Any, **kwargs: Any) -> bool:
        self.note("is_test_path", *args, **kwargs)
        return "test" in args[0]

    def patch(self, patch: pytest.MonkeyPatch) -> None:
        patch.setattr(decision, "rerank_request", self.rerank_request)
        patch.setattr(decision, "rerank_order", self.rerank_order)
        patch.setattr(decision_text, "source_consented", self.source_consented)
        patch.setattr(decision_text, "candidate_line", self.candidate_line)
        patch.setattr(path_filter, "is_test_path", self.is_test_path)

    # What came of it.

    def error(self, error: BaseException, trace: TracebackType | None) -> str:
        """Say which error it is: of the host the very object with its trace, else its kind."""
        for position, raised in enumerate(self.raised):
            if error is raised:
                place = traceback.extract_tb(trace)[-1].name
                return f"{error!r}, the host's, number {position}, raised in {place}"
        says = isinstance(error, (ValueError, sqlite3.Error))
        return f"{type(error).__name__}: {error}" if says else type(error).__name__

    def record(self, record: logging.LogRecord) -> tuple[Any, ...]:
        message = re.sub(r"in \d+ ms$", "in some ms", record.getMessage())
        _, error, trace = record.exc_info or (None, None, None)
        return record.levelname, record.name, message, error and self.error(error, trace)


class _Records(logging.Handler):
    def __init__(self) -> None:
        super().__init__()
        self.kept: list[logging.LogRecord] = []

    def emit(self, record: logging.LogRecord) -> None:
        self.kept.append(record)


@contextlib.contextmanager
def _recorded() -> Iterator[list[logging.LogRecord]]:
    logger = logging.getLogger("codeindex.workers.retrieval")
    records = _Records()
    before = logger.level, logger.propagate
    logger.addHandler(records)
    logger.setLevel(logging.DEBUG)
    logger.propagate = False
    try:
        yield records.kept
    finally:
        logger.removeHandler(records)
        logger.setLevel(before[0])
        logger.propagate = before[1]


def _retriever(world: World, side: Any, host: Host) -> Any:
    settings = world.settings
    if settings is not None:
        settings = settings | {
            "weights": side.LexicalWeights(**settings.get("weights", {})),
            "file_weights": side.FileWeights(**settings.get("file_weights", {})),
        }
        settings = side.RetrievalSettings(**settings)
    embedders = {
        None: None,
        "function": host.embed_query,
        "engine": side.engine_query_embedder(host),
    }
    return side.HybridRetriever(
        host,
        embedder=embedders[world.embedder],
        settings=settings,
        decisions=host if world.client else None,
    )


def outcomes(world: World, side: Any) -> list[dict[str, Any]]:
    """Ask `side` every question of `world`; say of each what came of it and what was called."""
    host = Host(world, side)
    retriever = _retriever(world, side, host)
    found = []
    with pytest.MonkeyPatch.context() as patch:
        host.patch(patch)
        for question in world.questions:
            host.begin(question)
            with _recorded() as records:
                try:
                    # A record's repr holds every field, scores to the last bit, maps in order.
                    came = repr(retriever.retrieve(question.query, **question.arguments))
                except BaseException as error:
                    came = host.error(error, error.__traceback__)
            told = [host.record(record) for record in records]
            found.append({"answer": came, "records": told, "calls": list(host.calls)})
    return found
