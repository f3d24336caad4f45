"""A whole host of its own: a service that keeps the symbols of its code and answers questions.

    python examples/own_host.py "where is the config parsed?"

The index is a dictionary here; a service reads the same four things from its database. The model
is a toy that knows words by their letters; a service brings its own, or leaves `embedder` away.
"""

import math
import sys
import threading
import zlib
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass

from codeindex.workers.retrieval import HybridRetriever, QueryVector

MODEL = "letters-64"


@dataclass(frozen=True)
class Symbol:
    """What a retriever reads of a symbol; attributes of these names are all it needs."""

    id: int
    fqn: str
    name: str
    kind: str
    path: str
    start_line: int
    end_line: int
    signature: str | None = None
    docstring: str | None = None


def embed(text: str) -> list[float]:
    """Return a unit vector of 64 numbers that counts the text's groups of three letters."""
    vector = [0.0] * 64
    letters = f"  {text.lower()}  "
    for start in range(len(letters) - 2):
        vector[zlib.crc32(letters[start : start + 3].encode()) % 64] += 1.0
    norm = math.hypot(*vector)
    return [value / norm for value in vector]


class ServiceIndex:
    """The service's index: the four reads of a retriever, safe from any thread, and a write."""

    def __init__(self) -> None:
        """Begin without a symbol."""
        self._lock = threading.Lock()
        self._changes = 0
        self._symbols: dict[int, tuple[str, Symbol, list[float]]] = {}

    def put(self, language: str, symbol: Symbol) -> None:
        """Add a symbol, or replace the one with its id."""
        vector = embed(f"{symbol.name} {symbol.docstring or ''}")
        with self._lock:
            self._symbols = {**self._symbols, symbol.id: (language, symbol, vector)}
            self._changes += 1

    def retrieval_fingerprint(self) -> int:
        """Return what differs whenever the index does: here, how often it was changed."""
        return self._changes

    def retrievable_code_symbols(
        self, languages: frozenset[str], kinds: frozenset[str]
    ) -> Iterator[Symbol]:
        """Yield the symbols to answer from; the retriever reads them once a state of the index."""
        for language, symbol, _ in self._symbols.values():
            if language in languages and symbol.kind in kinds:
                yield symbol

    def nearest_symbol_ids(
        self, values: Sequence[float], model: str, *, top_k: int
    ) -> list[tuple[int, float]]:
        """Return the ids and cosines of the embeddings nearest to `values`; all are by MODEL."""
        near = [
            (-sum(a * b for a, b in zip(values, vector, strict=True)), symbol.id)
            for _, symbol, vector in self._symbols.values()
        ]
        return [(symbol_id, -distance) for distance, symbol_id in sorted(near)[:top_k]]

    def get_symbols_by_ids(self, ids: list[int]) -> Mapping[int, Symbol]:
        """Return those of the symbols that the index still holds."""
        symbols = self._symbols
        return {number: symbols[number][1] for number in ids if number in symbols}


if __name__ == "__main__":
    index = ServiceIndex()
    index.put("python", Symbol(1, "config.parse", "parse", "function", "config.py", 12, 40))
    index.put("python", Symbol(2, "config.Config", "Config", "class", "config.py", 4, 10))
    index.put("go", Symbol(3, "serve.Run", "Run", "function", "serve/run.go", 20, 90))
    retriever = HybridRetriever(index, embedder=lambda text: QueryVector(embed(text), MODEL))
    result = retriever.retrieve(" ".join(sys.argv[1:]) or "where is the config parsed?", limit=3)
    for hit in result.hits:
        print(hit.symbol.fqn, f"{hit.symbol.path}:{hit.symbol.start_line}", hit.ranks)
    print(result.note or "Every channel ranked.")
