"""Bringing an index up to date with its repository, reading only what changed."""

import hashlib
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from codeindex.engines.embedding import EmbeddingEngine
from codeindex.indexing.discovery import SourceFile, find_source_files
from codeindex.indexing.embedding_text import embedding_text
from codeindex.models.symbol import ExtractedSymbol
from codeindex.storage.repository import IndexedFile, IndexWriter, Repository

INDEXING_VERSION = 1
"""Changes whenever the same file would give other symbols or other embeddings than before."""

_SYMBOLS_AT_ONCE = 4096
_LONG_LINE = 500
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
    """What has to be done to the files of an index."""

    known: dict[str, IndexedFile]
    to_read: list[SourceFile]
    to_remove: list[str]
    everything: bool


def refresh(
    root: Path, repository: Repository, engine: EmbeddingEngine, progress: Progress
) -> RefreshReport:
    """Make the index hold the source files below `root` as they are now.

    Files are compared by stamp, then by content; only what differs is parsed and embedded. The
    symbols change in one transaction, the embeddings follow in others: an interrupted run leaves
    the last whole state, and the next run goes on from there. Waits for the embedding model;
    raises EmbeddingModelError when it cannot be loaded, with the symbols already stored.
    """
    files = find_source_files(root)
    plan = _plan(files, repository)
    if plan.to_read or plan.to_remove or plan.everything:
        with repository.writing() as writer:
            # Another run may have done the work while this one waited for its turn.
            plan = _plan(files, repository)
            read = _update_files(root, plan, writer, progress)
    else:
        read = 0
    embedded = _embed_symbols(repository, engine, progress)
    return RefreshReport(len(files), read, len(plan.to_remove), repository.symbol_count(), embedded)


def _plan(files: list[SourceFile], repository: Repository) -> _Plan:
    known = repository.indexed_files()
    everything = repository.indexing_version() != INDEXING_VERSION
    to_read = []
    for file in files:
        before = known.get(file.path)
        if everything or before is None or file.stamp is None or file.stamp != before.stamp:
            to_read.append(file)
    to_remove = sorted(known.keys() - {file.path for file in files})
    return _Plan(known, to_read, to_remove, everything)


def _update_files(root: Path, plan: _Plan, writer: IndexWriter, progress: Progress) -> int:
    """Carry out the plan; return how many files were parsed."""
    for path in plan.to_remove:
        writer.remove_file(path)
    if plan.everything:
        writer.begin_version(INDEXING_VERSION)
    parsed = 0
    for done, file in enumerate(plan.to_read):
        progress("files", done, len(plan.to_read))
        before = plan.known.get(file.path)
        try:
            source = (root / file.path).read_bytes()
        except OSError:
            if before is not None:
                writer.remove_file(file.path)
            continue
        digest = hashlib.blake2b(source, digest_size=16).digest()
        if before is not None and before.digest == digest and not plan.everything:
            if before.stamp != file.stamp:
                writer.put_file(file.path, IndexedFile(before.language, file.stamp, digest), None)
            continue
        language, symbols = _parse(file, source)
        writer.put_file(file.path, IndexedFile(language, file.stamp, digest), symbols)
        parsed += 1
    progress("files", len(plan.to_read), len(plan.to_read))
    return parsed


def _parse(file: SourceFile, source: bytes) -> tuple[str, list[ExtractedSymbol]]:
    """Return the file's language and symbols; binary and minified content has no symbols."""
    from codeindex.indexing.extraction import extract_symbols, source_language

    if b"\0" in source or len(source) > _LONG_LINE * (source.count(b"\n") + 20):
        return file.language.name, []
    language = source_language(file.path, source, file.language)
    return language.name, extract_symbols(file.path, source, language)


def _embed_symbols(repository: Repository, engine: EmbeddingEngine, progress: Progress) -> int:
    """Embed the symbols that have no embedding yet; return how many those were."""
    from codeindex.storage.vectors import STORED_TYPE

    model = engine.wait_ready(_MODEL_PATIENCE_SECONDS)
    symbols = repository.symbols_to_embed(model.name)
    for start in range(0, len(symbols), _SYMBOLS_AT_ONCE):
        progress("embeddings", start, len(symbols))
        batch = symbols[start : start + _SYMBOLS_AT_ONCE]
        vectors = model.embed_array([embedding_text(symbol) for symbol in batch])
        rows = vectors.astype(STORED_TYPE)
        with repository.writing() as writer:
            writer.put_embeddings(
                model.name,
                ((symbol.id, row.tobytes()) for symbol, row in zip(batch, rows, strict=True)),
            )
    progress("embeddings", len(symbols), len(symbols))
    return len(symbols)
