"""The source files of a folder with their symbols, as an index would read them."""

from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

from codeindex.indexing.discovery import find_source_files
from codeindex.indexing.extraction import extract_symbols, source_language
from codeindex.models.symbol import ExtractedSymbol


@dataclass(frozen=True, slots=True)
class ParsedFile:
    """A source file; `path` is relative to its folder, `language` named as in the index."""

    path: str
    language: str
    source: bytes
    symbols: list[ExtractedSymbol]


def parsed_files(root: Path) -> Iterator[ParsedFile]:
    """Yield the source files below a folder, sorted by path."""
    for found in find_source_files(root):
        source = (root / found.path).read_bytes()
        language = source_language(found.path, source, found.language)
        symbols = extract_symbols(found.path, source, language)
        yield ParsedFile(found.path, language.name, source, symbols)
