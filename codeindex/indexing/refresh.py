"""Bringing an index up to date with its repository, reading only what changed."""

from collections import defaultdict
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from codeindex.engines.embedding import EmbeddingEngine
from codeindex.indexing.discovery import SourceFile, find_source_files
from codeindex.indexing.embedding_text import embedding_text
from codeindex.storage.repository import IndexedFile, Repository, SkippedFiles

_SYMBOLS_AT_ONCE = 4096
_MOST_EXAMPLES = 20
_MODEL_PATIENCE_SECONDS = 60.0

Progress = Callable[[str, int, int], None]
"""Told of a step's name ("files" or "embeddings"), how much of it is done and how much there is."""


@dataclass(frozen=True, slots=True)
class RefreshReport:
    """What one run found and did, as numbers of files and symbols."""

    files: int
    files_read: int
    files_removed: int
    symbols: int
    symbols_embedded: int


@dataclass(frozen=True, slots=True)
class _Plan:
    """What has to be done to an index."""

    known: dict[str, IndexedFile]
    to_read: list[SourceFile]
    to_remove: list[str]
    skipped: list[SkippedFiles]
    is_done: bool


def refresh(
    root: Path, repository: Repository, engine: EmbeddingEngine, progress: Progress
) -> RefreshReport:
    """Make the index hold the source files below `root` as they are now.

    Files are compared by stamp, then by content; only what differs is parsed and embedded. An
    index that never was whole takes the files a few at a time; later, all changes of a run become
    visible at once. The embeddings follow. So an interrupted run leaves the last whole state, and
    the next one goes on from there. In the end the index equals one built afresh but for ids.

    One run at a time: raises TryAgainLaterError, which names the other one, when that takes long.
    Waits for the embedding model; raises EmbeddingModelError when it cannot be loaded, with the
    symbols already stored.
    """
    skipped: dict[str, list[str]] = defaultdict(list)
    files = find_source_files(root, lambda reason, path: skipped[reason].append(path))
    summary = [
        SkippedFiles(reason, len(paths), tuple(paths[:_MOST_EXAMPLES]))
        for reason, paths in sorted(skipped.items())
    ]
    plan = _plan(files, summary, repository)
    read = 0
    if not plan.is_done:
        with repository.indexing():
            # Another run may have done the work while this one waited for its turn.
            plan = _plan(files, summary, repository)
            read = _update_files(root, plan, repository, progress)
    embedded = _embed_symbols(repository, engine, progress)
    return RefreshReport(len(files), read, len(plan.to_remove), repository.symbol_count(), embedded)


def _plan(files: list[SourceFile], skipped: list[SkippedFiles], repository: Repository) -> _Plan:
    known = repository.indexed_files()
    to_read = []
    for file in files:
        before = known.get(file.path)
        if before is None or file.stamp is None or file.stamp != before.stamp:
            to_read.append(file)
    to_remove = sorted(known.keys() - {file.path for file in files})
    is_done = (
        not (to_read or to_remove)
        and repository.is_whole()
        and repository.skipped_on_sight() == skipped
    )
    return _Plan(known, to_read, to_remove, skipped, is_done)


def _update_files(root: Path, plan: _Plan, repository: Repository, progress: Progress) -> int:
    """Carry out the plan; return how many files were parsed."""
    from codeindex.indexing.reading import FileToRead, read_files

    items = [
        FileToRead(file, plan.known[file.path].digest if file.path in plan.known else None)
        for file in plan.to_read
    ]
    results = enumerate(read_files(root, items))
    at_once = _SYMBOLS_AT_ONCE if not repository.is_whole() else None
    parsed = 0
    finished = False
    while not finished:
        with repository.writing() as writer:
            stored = 0
            for done, read in results:
                progress("files", done, len(items))
                before = plan.known.get(read.file.path)
                skipped = before.skipped if before and read.symbols is None else read.skipped
                after = IndexedFile(read.language, read.file.stamp, read.digest, skipped)
                if after != before or read.symbols is not None:
                    writer.put_file(read.file.path, after, read.symbols)
                if read.symbols is not None:
                    parsed += 1
                    stored += len(read.symbols)
                    if at_once is not None and stored >= at_once:
                        break
            else:
                for path in plan.to_remove:
                    writer.remove_file(path)
                writer.finish_files(plan.skipped)
                finished = True
    progress("files", len(items), len(items))
    return parsed


def _embed_symbols(repository: Repository, engine: EmbeddingEngine, progress: Progress) -> int:
    """Embed the symbols that have no embedding yet; return how many those were."""
    model = engine.wait_ready(_MODEL_PATIENCE_SECONDS)
    if repository.is_embedded(model.name):
        return 0
    with repository.indexing():
        ids = repository.symbols_to_embed(model.name)
        for start in range(0, len(ids), _SYMBOLS_AT_ONCE):
            progress("embeddings", start, len(ids))
            batch = ids[start : start + _SYMBOLS_AT_ONCE]
            symbols = repository.get_symbols_by_ids(batch)
            vectors = model.embed_array([embedding_text(symbols[i]) for i in batch])
            with repository.writing() as writer:
                writer.put_embeddings(model.name, batch, vectors)
        with repository.writing() as writer:
            writer.finish_embeddings(model.name)
    progress("embeddings", len(ids), len(ids))
    return len(ids)
