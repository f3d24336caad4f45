"""The Python interface: one repository's index, opened, kept fresh and asked."""

from __future__ import annotations

import os
import sqlite3
import threading
from collections.abc import Iterator
from dataclasses import dataclass
from datetime import UTC, datetime
from pathlib import Path
from typing import TYPE_CHECKING

from codeindex.configuration import load_configuration
from codeindex.engines.decision import DecisionClient
from codeindex.engines.embedding import EmbeddingEngine
from codeindex.exceptions import CodeIndexError
from codeindex.storage.location import default_index_path
from codeindex.storage.repository import Repository
from codeindex.workers.retrieval import Hit, HybridRetriever, engine_query_embedder

if TYPE_CHECKING:
    from codeindex.indexing.refresh import Progress, RefreshReport
    from codeindex.lookup import SourceLines
    from codeindex.models.symbol import StoredSymbol
    from codeindex.workers.retrieval import RetrievedSymbol


@dataclass(frozen=True, slots=True)
class Freshness:
    """How an index stands to its repository's files.

    `state` names the index's content: equal for two answers of one index exactly when nothing
    retrievable changed between them. `checked_at` is when the index last agreed with the files;
    it is None when it could not be brought up to date, and `warning` then says why.
    """

    state: str
    checked_at: datetime | None
    warning: str | None


@dataclass(frozen=True, slots=True)
class Answer:
    """The answer to one question; iterating over it gives its hits, best first.

    `channels` maps each ranking channel to how it fared ("ok", "partial", "unavailable" or
    "failed"); `note` says in one line what the ranking had to do without.
    """

    hits: list[Hit]
    channels: dict[str, str]
    note: str | None
    freshness: Freshness

    def __iter__(self) -> Iterator[Hit]:
        """Iterate over the hits, best first."""
        return iter(self.hits)

    def __len__(self) -> int:
        """Return how many hits there are."""
        return len(self.hits)


class Index:
    """The index of one repository; a context manager, safe from any thread until it is closed.

    Asking is always up to date: what changed in the files since the last question is read first.
    """

    def __init__(
        self, path: str | os.PathLike[str], index_file: str | os.PathLike[str] | None = None
    ) -> None:
        """Open or create the index of the folder `path`; nothing is indexed yet.

        Raises CodeIndexError when there is no such folder, IndexFileError when the index file
        cannot be opened, ConfigurationError when a configuration file is wrong.
        """
        self.root = _existing_folder(Path(path))
        """The repository's folder, absolute and free of links."""
        configuration = load_configuration(self.root)
        self.index_file = default_index_path(self.root) if index_file is None else Path(index_file)
        """The SQLite file that holds the index."""
        self.repository = Repository(self.index_file)
        """The stored index."""
        self.decisions = DecisionClient(configuration.decision)
        """The decision client that reranks, when one is configured."""
        self._engine = EmbeddingEngine(configuration.embedding)
        self.retriever = HybridRetriever(
            self.repository,
            embedder=engine_query_embedder(self._engine),
            decisions=self.decisions,
        )
        """The retriever over this index, for programs that refresh in their own time."""
        self._refresh_lock = threading.Lock()

    def __enter__(self) -> Index:
        """Return the index itself, which is closed at the end."""
        return self

    def __exit__(self, *_: object) -> None:
        """Close the index."""
        self.close()

    def close(self) -> None:
        """Release the index file; nothing else may be called afterwards."""
        self.repository.close()

    def refresh(self, progress: Progress | None = None) -> RefreshReport:
        """Bring the index up to date with the files, reading only what changed.

        `progress` is called on this thread with a step's name, the pieces done and their total.
        What it raises ends the run; the next run goes on from there. Raises CodeIndexError, and
        sqlite3.OperationalError when the disk is full.
        """
        from codeindex.indexing.refresh import refresh

        _existing_folder(self.root)
        with self._refresh_lock:
            return refresh(self.root, self.repository, self._engine, progress or _unseen)

    def bring_up_to_date(self, progress: Progress | None = None) -> Freshness:
        """Refresh if that is possible, else stay with what the index holds, and say so.

        Raises what `refresh` raises when the index holds nothing or the repository is gone.
        """
        checked_at: datetime | None = datetime.now(UTC)
        warning = None
        try:
            self.refresh(progress)
        except (CodeIndexError, sqlite3.OperationalError) as error:
            if not self.root.is_dir() or not self.repository.symbol_count():
                raise
            checked_at = None
            warning = f"The index could not be brought up to date: {error}"
        fingerprint = self.repository.retrieval_fingerprint()
        state = f"{fingerprint.index_id}-{fingerprint.revision}"
        return Freshness(state, checked_at, warning)

    def ask(
        self,
        question: str,
        *,
        limit: int = 10,
        scope: str | None = None,
        include_tests: bool | None = None,
        rerank: bool = False,
        progress: Progress | None = None,
    ) -> Answer:
        """Return the symbols that best answer the question, after bringing the index up to date.

        At most `limit` hits, only from `scope` (a folder or file below the repository, with
        forward slashes) when it is given. Test files answer when `include_tests` says so, or when
        it is None and the question is about tests. `rerank` lets the configured decision model
        order the first hits. Blocks; `progress` is told of the indexing as in `refresh`.

        Raises ValueError for a limit below 1, and CodeIndexError when there is no index to ask.
        """
        freshness = self.bring_up_to_date(progress)
        result = self.retriever.retrieve(
            question, limit=limit, scope=scope, include_tests=include_tests, rerank=rerank
        )
        return Answer(result.hits, result.channels, result.note, freshness)

    def find(self, name: str) -> list[StoredSymbol]:
        """Return the symbols that `name` means, by path and line, as the index stands.

        `name` is a place (`src/app.py:40`, giving the innermost symbol there), a qualified name,
        a name, or the end of a qualified name; the first of these that finds anything counts.
        """
        from codeindex.lookup import find_symbols

        return find_symbols(self.repository, name)

    def source(self, symbol: StoredSymbol | RetrievedSymbol, context: int = 0) -> SourceLines:
        """Return the lines of a symbol and `context` lines around it, from the file as it is now.

        Raises CodeIndexError when the file cannot be read or does not lie below the repository.
        """
        from codeindex.lookup import source_lines

        return source_lines(self.root, symbol, context)


def _existing_folder(path: Path) -> Path:
    if not path.is_dir():
        raise CodeIndexError(f"There is no folder {path}. Name the folder of a repository.")
    return path.resolve()


def _unseen(step: str, done: int, total: int) -> None:
    """Show nobody the progress."""
