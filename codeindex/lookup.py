"""Finding a symbol by what a person calls it, and reading its source."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path
from typing import TYPE_CHECKING

from codeindex.exceptions import CodeIndexError
from codeindex.indexing.discovery import read_source
from codeindex.models.symbol import DECLARATION_KINDS, StoredSymbol
from codeindex.utils.language_filter import SOURCE_LANGUAGES

if TYPE_CHECKING:
    from codeindex.storage.repository import Repository
    from codeindex.workers.retrieval import RetrievedSymbol

_KINDS = DECLARATION_KINDS | {"module"}
_SEPARATORS = (".", "::", "/", "#")


@dataclass(frozen=True, slots=True)
class SourceLines:
    """Some lines of a file as they stand there, without line ends; `first` counts from 1."""

    first: int
    lines: list[str]


def find_symbols(repository: Repository, name: str) -> list[StoredSymbol]:
    """Return the symbols that `name` means, by path, line and id; none when it means none.

    `name` is a place (`path:line`, the innermost symbol there), a qualified name, a name, or the
    end of a qualified name, in this order: the first reading that finds anything counts.
    """
    symbols = list(repository.retrievable_code_symbols(SOURCE_LANGUAGES, _KINDS))
    path, _, line = name.rpartition(":")
    if path and line.isdecimal():
        return _innermost(symbols, path.removeprefix("./"), int(line))
    ends = tuple(separator + name for separator in _SEPARATORS)
    return (
        [symbol for symbol in symbols if symbol.fqn == name]
        or [symbol for symbol in symbols if symbol.name == name]
        or [symbol for symbol in symbols if symbol.fqn.endswith(ends)]
    )


def source_lines(
    root: Path, symbol: StoredSymbol | RetrievedSymbol, context: int = 0
) -> SourceLines:
    """Return the lines of a symbol and `context` lines around it, from the file as it is now.

    Text that is no UTF-8 comes with replacement characters. Raises CodeIndexError when the file
    is gone, is no regular file, or does not lie below `root`, links followed.
    """
    try:
        if not (root / symbol.path).resolve(strict=True).is_relative_to(root):
            raise CodeIndexError(f"{symbol.path} leads out of the repository, so it is not read.")
        text = read_source(root, symbol.path).decode("utf-8", "replace")
    except OSError as error:
        reason = error.strerror or error
        raise CodeIndexError(f"{symbol.path} cannot be read: {reason}.") from error
    lines = text.replace("\r\n", "\n").removesuffix("\n").split("\n")
    first = max(1, symbol.start_line - context)
    return SourceLines(first, lines[first - 1 : symbol.end_line + context])


def _innermost(symbols: list[StoredSymbol], path: str, line: int) -> list[StoredSymbol]:
    around = [
        symbol
        for symbol in symbols
        if symbol.path == path and symbol.start_line <= line <= symbol.end_line
    ]
    around.sort(key=lambda symbol: (symbol.end_line - symbol.start_line, symbol.kind == "module"))
    return around[:1]
