"""The records that go into a retriever and come out of it: frozen values, equal by their fields."""

from collections.abc import Sequence
from dataclasses import dataclass, field, fields
from typing import ClassVar

from codeindex.workers.retrieval._native import _bm25

__all__ = [
    "FileWeights",
    "Hit",
    "LexicalWeights",
    "QueryVector",
    "RetrievalResult",
    "RetrievalSettings",
    "RetrievedSymbol",
]

_Types = dict[str, type | tuple[type, ...]]


class _Record:
    """Checks the types of a record's fields when it is made; `TypeError` names the field."""

    __slots__ = ()
    _types: ClassVar[_Types] = {}

    def __post_init__(self) -> None:
        for name, expected in self._types.items():
            value = getattr(self, name)
            if not isinstance(value, expected):
                allowed = expected if isinstance(expected, tuple) else (expected,)
                names = " or ".join(
                    "None" if kind is type(None) else kind.__name__ for kind in allowed
                )
                raise TypeError(f"{name} must be {names}, not {type(value).__name__}")


@dataclass(frozen=True, slots=True, weakref_slot=True)
class RetrievedSymbol(_Record):
    """A code symbol of the index, as a hit carries it."""

    id: int
    fqn: str
    name: str
    kind: str
    path: str  #: relative to the repository root, with forward slashes
    start_line: int
    end_line: int
    signature: str | None

    _types: ClassVar[_Types] = {
        "id": int,
        "fqn": str,
        "name": str,
        "kind": str,
        "path": str,
        "start_line": int,
        "end_line": int,
        "signature": (str, type(None)),
    }


@dataclass(frozen=True, slots=True, weakref_slot=True)
class Hit(_Record):
    """One answer, with its fused score and its 1-based place in each channel that found it."""

    symbol: RetrievedSymbol
    score: float
    ranks: dict[str, int]

    _types: ClassVar[_Types] = {"symbol": RetrievedSymbol, "score": (float, int), "ranks": dict}


@dataclass(frozen=True, slots=True, weakref_slot=True)
class RetrievalResult(_Record):
    """The answer to one question.

    The order of the hits is the ranking; it need not descend by score. `channels` maps all four
    channels to their statuses; `note` says in one line what the ranking had to do without.
    """

    hits: list[Hit]
    channels: dict[str, str]
    note: str | None = None

    _types: ClassVar[_Types] = {"hits": list, "channels": dict, "note": (str, type(None))}


@dataclass(frozen=True, slots=True, weakref_slot=True)
class QueryVector(_Record):
    """A query embedded by `model`, the model of the stored embeddings that it is compared with."""

    values: Sequence[float]
    model: str

    _types: ClassVar[_Types] = {"model": str}


class _Weights(_Record):
    """BM25 weights of the columns of a text table, in column order."""

    __slots__ = ()

    def __post_init__(self) -> None:
        for column in fields(self):  # type: ignore[arg-type]
            weight = getattr(self, column.name)
            if not isinstance(weight, (float, int)):
                raise TypeError(f"{column.name} must be float, not {type(weight).__name__}")
            object.__setattr__(self, column.name, float(weight))

    def rank_function(self) -> str:
        """Return the FTS5 rank expression of these weights, such as ``bm25(10.0, 3.0)``."""
        return _bm25(*(getattr(self, column.name) for column in fields(self)))  # type: ignore[arg-type]


@dataclass(frozen=True, slots=True, weakref_slot=True)
class LexicalWeights(_Weights):
    """The BM25 weight of each column of the symbol table."""

    name: float = 10.0
    signature: float = 3.0
    path: float = 2.0
    docstring: float = 1.0


@dataclass(frozen=True, slots=True, weakref_slot=True)
class FileWeights(_Weights):
    """The BM25 weight of each column of the file table."""

    names: float = 3.0
    path: float = 2.0
    docstrings: float = 1.0


@dataclass(frozen=True, slots=True, weakref_slot=True)
class RetrievalSettings(_Record):
    """How a retriever ranks; the defaults are the tuned ranking. Only types are checked."""

    rrf_k: int = 60  #: a symbol at rank r of a channel scores 1 / (rrf_k + r) there; 64 bits
    depth: int = 50  #: symbols that each list channel hands to the fusion; at least the limit
    semantic_shortlist: int = 150  #: nearest embeddings searched first
    semantic_max_neighbours: int = 2400  #: nearest embeddings searched at most
    best_files: int = 1  #: best-matching files that rank their symbols
    weights: LexicalWeights = field(default_factory=LexicalWeights)
    file_weights: FileWeights = field(default_factory=FileWeights)
    tokenizer: str = "porter unicode61"  #: FTS5 tokenizer of both text tables

    _types: ClassVar[_Types] = {
        "rrf_k": int,
        "depth": int,
        "semantic_shortlist": int,
        "semantic_max_neighbours": int,
        "best_files": int,
        "weights": LexicalWeights,
        "file_weights": FileWeights,
        "tokenizer": str,
    }
