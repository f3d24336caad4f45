"""How well questions find the symbols they are about: each channel, the fusion, plain chunks.

    python -m benchmarks.ranking [--questions N] [--half tuning|verdict] [PACKAGE …]

For each package a share of the sentences that its symbols are documented with becomes questions;
a copy of the package without those docstrings is indexed by the host's own code and asked through
`HybridRetriever`, with default settings. So the answer has to be found by its name, signature,
path, file and the meaning of those, among neighbours that keep their docstrings. That is harder
than life for documented code, and about right for the rest.

What is ranked, each to a depth of 50, with the best placed of a question's answers counting:

- a channel alone: symbols by their place in that channel, equal ones by id, as in the fusion;
- the fusion: the answer that a user gets;
- chunks: BM25 over 50 lines each; a chunk answers when it holds the symbol's first line, so it is
  spared the question which of its symbols is meant;
- symbols of chunks: the symbols that begin in those chunks, one after another as they stand there,
  so that a place means the same as in the rankings of symbols.

Prints Markdown: recall at 1, 5 and 10, the mean reciprocal rank (0 beyond place 50) with its 95 %
confidence interval, and by how much the fusion leads, question by question. The intervals say how
far another sample of sentences of the same packages could move the figures.
"""

import argparse
import bisect
import sys
import tempfile
from collections import defaultdict
from collections.abc import Callable, Iterable, Iterator, Sequence
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import numpy.typing as npt

from benchmarks.chunks import LINES, ChunkIndex
from benchmarks.packages import PACKAGES, FetchError, Package, fetch_all
from benchmarks.questions import Answer, Question, hide_and_ask
from codeindex.engines.embedding import EmbeddingEngine
from codeindex.exceptions import CodeIndexError
from codeindex.indexing.refresh import refresh
from codeindex.storage.repository import Repository
from codeindex.utils.language_filter import SOURCE_LANGUAGES
from codeindex.workers.retrieval import (
    CHANNELS,
    FAILED,
    FILE,
    RETRIEVABLE_KINDS,
    UNAVAILABLE,
    HybridRetriever,
    engine_query_embedder,
)

FUSION = "fusion"
CHUNKS = "chunks"
CHUNK_SYMBOLS = "symbols of chunks"
ROWS = (*CHANNELS, FUSION, CHUNKS, CHUNK_SYMBOLS)
DEPTH = 50

_SHARE = 0.2
_MODEL_PATIENCE_SECONDS = 60.0
_SEED = 20_240_229
# Enough hits to hold all that any channel places among its first 50. A larger limit makes the
# channels longer but leaves their first places as they are.
_ALL_HITS = 600
_PRINTED_LANGUAGES = {"c": "c and c++", "cpp": "c and c++"}

_Places = dict[str, int | None]


@dataclass(frozen=True, slots=True)
class Outcome:
    """At which place each ranking has an answer to one question; None beyond the depth."""

    language: str
    places: _Places


class _Index:
    """One package's index, without the docstrings that the questions are made of."""

    def __init__(self, repository: Repository, engine: EmbeddingEngine) -> None:
        """Read the symbols of the index, which the caller closes."""
        self._retriever = HybridRetriever(repository, embedder=engine_query_embedder(engine))
        self._ids: dict[Answer, list[int]] = defaultdict(list)
        self._ids_of_file: dict[str, list[int]] = defaultdict(list)
        self._path_of_id: dict[int, str] = {}
        self._lines_of_file: dict[str, list[int]] = defaultdict(list)
        for symbol in repository.retrievable_code_symbols(SOURCE_LANGUAGES, RETRIEVABLE_KINDS):
            answer = Answer(symbol.path, symbol.fqn, symbol.start_line)
            self._ids[answer].append(symbol.id)
            self._ids_of_file[symbol.path].append(symbol.id)
            self._path_of_id[symbol.id] = symbol.path
            self._lines_of_file[symbol.path].append(symbol.start_line)
        for ids in self._ids_of_file.values():
            ids.sort()
        for lines in self._lines_of_file.values():
            lines.sort()

    def holds(self, question: Question) -> bool:
        """Return whether all answers are in the index, which leaves out minified files."""
        return question.answers <= self._ids.keys()

    def places(self, question: Question) -> _Places:
        """Return the place of the question's best answer in each channel and in the fusion."""
        wanted = {symbol_id for answer in question.answers for symbol_id in self._ids[answer]}
        places: dict[str, list[int]] = {ranking: [] for ranking in (*CHANNELS, FUSION)}
        result = self._retriever.retrieve(question.text, limit=_ALL_HITS)
        for channel, status in result.channels.items():
            if status in (FAILED, UNAVAILABLE):
                raise RuntimeError(f"the {channel} channel is {status}: {result.note}")
        for hit in result.hits:
            if hit.symbol.id in wanted:
                for channel, rank in hit.ranks.items():
                    places[channel].append(self._file_place(hit.symbol.id, rank, channel))
        for place, hit in enumerate(self._retriever.retrieve(question.text, limit=DEPTH).hits, 1):
            if hit.symbol.id in wanted:
                places[FUSION].append(place)
        return {
            ranking: min((place for place in found if place <= DEPTH), default=None)
            for ranking, found in places.items()
        }

    def chunk_places(self, question: Question, chunks: Sequence[tuple[str, int]]) -> _Places:
        """Return the place of the first chunk with an answer, and of the answer's own symbol."""
        wanted = {(answer.path, answer.start_line) for answer in question.answers}
        before = 0
        for place, (path, first) in enumerate(chunks, 1):
            lines = self._lines_of_file[path]
            begin, end = (bisect.bisect_left(lines, line) for line in (first, first + LINES))
            for symbol_place, line in enumerate(lines[begin:end], before + 1):
                if (path, line) in wanted:
                    own_place = symbol_place if symbol_place <= DEPTH else None
                    return {CHUNKS: place, CHUNK_SYMBOLS: own_place}
            before += end - begin
        return {CHUNKS: None, CHUNK_SYMBOLS: None}

    def _file_place(self, symbol_id: int, rank: int, channel: str) -> int:
        """Return a symbol's place in its channel: all symbols of the best file share the first."""
        if channel != FILE:
            return rank
        return bisect.bisect_left(self._ids_of_file[self._path_of_id[symbol_id]], symbol_id) + 1


@contextmanager
def _indexed(root: Path, index: Path, engine: EmbeddingEngine) -> Iterator[_Index]:
    repository = Repository(index)
    try:
        refresh(root, repository, engine, lambda *_: None)
        yield _Index(repository, engine)
    finally:
        repository.close()


def outcomes_of(
    package: Path, questions: int, half: str | None, engine: EmbeddingEngine
) -> list[Outcome]:
    """Ask a package's questions, or the half of them that is for tuning or for the verdict."""
    outcomes = []
    with tempfile.TemporaryDirectory(prefix="codeindex-ranking-") as scratch:
        copy = Path(scratch, "copy")
        asked = hide_and_ask(package, copy, _SHARE, questions, _SEED)
        if half is not None:
            asked = asked[half == "verdict" :: 2]
        chunks = ChunkIndex(copy)
        with _indexed(copy, Path(scratch, "index"), engine) as index:
            for question in filter(index.holds, asked):
                places = index.places(question)
                places |= index.chunk_places(question, chunks.best(question.text, DEPTH))
                language = _PRINTED_LANGUAGES.get(question.language, question.language)
                outcomes.append(Outcome(language, places))
        chunks.close()
    return outcomes


def _table(outcomes: Sequence[Outcome]) -> Iterator[str]:
    """Yield the lines of a table of all rankings over these questions."""
    reciprocal = {ranking: _reciprocal_ranks(outcomes, ranking) for ranking in ROWS}
    yield "| Ranking | Recall at 1 | at 5 | at 10 | MRR | Fusion's lead in MRR |"
    yield "|---|--:|--:|--:|--:|--:|"
    for ranking in ROWS:
        values = reciprocal[ranking]
        recalls = " | ".join(f"{np.mean(values >= 1 / depth):.3f}" for depth in (1, 5, 10))
        lead = "" if ranking == FUSION else _mean(reciprocal[FUSION] - values, "+.3f")
        yield f"| {ranking} | {recalls} | {_mean(values, '.3f')} | {lead} |"


def _summary(outcomes: dict[str, list[Outcome]]) -> Iterator[str]:
    """Yield the lines of a table with the mean reciprocal ranks of groups of questions."""
    yield f"| | Questions | {' | '.join(ROWS)} |"
    yield f"|---|{'--:|' * (len(ROWS) + 1)}"
    for name, group in outcomes.items():
        means = [_mean(_reciprocal_ranks(group, ranking), ".3f") for ranking in ROWS]
        yield f"| {name} | {len(group):,} | {' | '.join(means)} |"


def _reciprocal_ranks(outcomes: Sequence[Outcome], ranking: str) -> npt.NDArray[np.float64]:
    return np.array([1 / (outcome.places[ranking] or np.inf) for outcome in outcomes])


def _mean(values: npt.NDArray[np.float64], form: str) -> str:
    """Return the mean with its 95 % confidence interval, by the normal approximation."""
    interval = 1.96 * values.std(ddof=1) / np.sqrt(len(values)) if len(values) > 1 else np.nan
    return f"{values.mean():{form}} ± {interval:.3f}"


def _grouped(
    outcomes: Iterable[Outcome], key: Callable[[Outcome], str]
) -> dict[str, list[Outcome]]:
    groups: dict[str, list[Outcome]] = defaultdict(list)
    for outcome in outcomes:
        groups[key(outcome)].append(outcome)
    return dict(sorted(groups.items()))


def main() -> int:
    """Run the program; the result is its exit code."""
    parser = argparse.ArgumentParser(description="Measure the ranking on published packages.")
    parser.add_argument("packages", nargs="*", metavar="PACKAGE", help="by default all")
    parser.add_argument("--questions", type=int, default=480, help="at most, for each package")
    parser.add_argument("--half", choices=("tuning", "verdict"), help="ask only half of them")
    arguments = parser.parse_args()
    known: dict[str, Package] = {package.name: package for package in PACKAGES}
    if unknown := [name for name in arguments.packages if name not in known]:
        parser.error(f"no package is named {unknown[0]}; there are {', '.join(known)}")
    if arguments.questions < 1:
        parser.error(f"--questions must be at least 1, not {arguments.questions}")
    try:
        folders = fetch_all([known[name] for name in arguments.packages or known])
        engine = EmbeddingEngine()
        engine.wait_ready(_MODEL_PATIENCE_SECONDS)
    except (FetchError, CodeIndexError) as error:
        print(f"ranking: {error}", file=sys.stderr)
        return 3
    by_package: dict[str, list[Outcome]] = {}
    for package, folder in folders.items():
        print(f"{package} …", file=sys.stderr, flush=True)
        outcomes = outcomes_of(folder, arguments.questions, arguments.half, engine)
        if not outcomes:
            print(f"ranking: {package}: its index holds no answer to any question", file=sys.stderr)
            return 3
        by_package[str(package)] = outcomes
    everything = [outcome for outcomes in by_package.values() for outcome in outcomes]
    by_language = _grouped(everything, lambda outcome: outcome.language)
    print(f"{len(everything):,} questions\n", *_table(everything), sep="\n")
    print("\nMean reciprocal rank by language\n", *_summary(by_language), sep="\n")
    print("\nMean reciprocal rank by package\n", *_summary(by_package), sep="\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
