"""What the text tables, the build and whole questions cost on real symbols.

    python -m benchmarks.speed NATIVE [--symbols 160000]

NATIVE is the compiled `text_tables_benchmark`, whose tables are printed first. The packages are
fetched and indexed on the first run. A sample of their files, spread over all packages, holds the
symbols asked for. Everything runs on one thread; medians of interleaved repetitions.
"""

import argparse
import itertools
import random
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path

import codeindex
from benchmarks.packages import cache_folder, fetch_all
from codeindex.models.symbol import StoredSymbol
from codeindex.utils.language_filter import SOURCE_LANGUAGES
from codeindex.workers.retrieval import RETRIEVABLE_KINDS, HybridRetriever

_BUILDS = 5
_QUESTIONS = 200


class _Listed:
    """An index in memory, whose state changes whenever `state` does."""

    def __init__(self, symbols: Sequence[StoredSymbol]) -> None:
        self._symbols = symbols
        self.state = 0

    def retrieval_fingerprint(self) -> int:
        return self.state

    def retrievable_code_symbols(
        self, languages: frozenset[str], kinds: frozenset[str], /
    ) -> Sequence[StoredSymbol]:
        return self._symbols

    def nearest_symbol_ids(
        self, values: Sequence[float], model: str, /, *, top_k: int
    ) -> list[tuple[int, float]]:
        return []

    def get_symbols_by_ids(self, ids: list[int], /) -> dict[int, StoredSymbol]:
        return {}


def _milliseconds(run: Callable[[], object]) -> float:
    start = time.perf_counter()
    run()
    return 1000 * (time.perf_counter() - start)


def _sample(symbols: Iterator[StoredSymbol], most: int) -> list[StoredSymbol]:
    files = [list(group) for _, group in itertools.groupby(symbols, key=lambda s: s.path)]
    random.Random(3).shuffle(files)
    sizes = itertools.accumulate(map(len, files))
    kept = [file for file, size in zip(files, sizes, strict=True) if size <= most]
    return [symbol for file in sorted(kept, key=lambda f: f[0].path) for symbol in file]


def _dump(symbols: Sequence[StoredSymbol], file: Path) -> None:
    columns = "id, fqn, name, kind, path, start_line, end_line, signature, docstring"
    with sqlite3.connect(file) as database:
        database.execute(f"CREATE TABLE symbol ({columns})")
        rows = ([getattr(symbol, name) for name in columns.split(", ")] for symbol in symbols)
        database.executemany("INSERT INTO symbol VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)", rows)
    database.close()


def _questions(symbols: Sequence[StoredSymbol]) -> list[str]:
    chance = random.Random(1)
    told = [symbol.docstring.partition(".")[0] for symbol in symbols if symbol.docstring]
    kinds: list[Callable[[], str]] = [
        lambda: chance.choice(symbols).name,
        lambda: " ".join(chance.choice(told).split()[:9]),
        lambda: f"{' '.join(chance.choice(told).split()[:6])} {chance.choice(symbols).name}",
    ]
    return [kinds[number % 3]() for number in range(_QUESTIONS)]


def _python_tables(symbols: Sequence[StoredSymbol]) -> Iterator[str]:
    listed = _Listed(symbols)
    retriever = HybridRetriever(listed)

    def build() -> None:
        listed.state += 1
        retriever.retrieve("")  # no words: all it costs is the build

    builds = [_milliseconds(build) for _ in range(_BUILDS)]
    questions = _questions(symbols)
    asked = sorted(_milliseconds(lambda q=q: retriever.retrieve(q)) for q in questions)  # type: ignore[misc]
    rows = {
        f"from host objects to finished snapshot, median of {_BUILDS}": statistics.median(builds),
        f"a whole question without an embedder, p50 of {_QUESTIONS}": statistics.median(asked),
        "the same, p99": asked[len(asked) * 99 // 100],
    }
    yield f"| Through Python, {len(symbols):,} symbols | ms |"
    yield "|---|--:|"
    yield from (f"| {row} | {took:.1f} |" for row, took in rows.items())


def main() -> int:
    """Print the tables; the entry point."""
    arguments = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    arguments.add_argument("native", type=Path)
    arguments.add_argument("--symbols", type=int, default=160_000)
    given = arguments.parse_args()
    fetch_all()
    root = cache_folder()
    with codeindex.open(root, index_file=root.with_name(f"{root.name}.sqlite")) as index:
        print("Indexing what is new …", file=sys.stderr)
        index.refresh()
        stored = index.repository.retrievable_code_symbols(SOURCE_LANGUAGES, RETRIEVABLE_KINDS)
        symbols = _sample(stored, given.symbols)
    with tempfile.TemporaryDirectory() as folder:
        dump = Path(folder) / "symbols.sqlite"
        _dump(symbols, dump)
        subprocess.run([given.native, dump], check=True)
    print("\n".join(["", *_python_tables(symbols)]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
