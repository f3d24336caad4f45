"""What people read of an answer, of a symbol and of an index: lines for a terminal.

Colours and links appear where stdout is a terminal that wants them. Nothing from a repository
reaches it raw: control characters, bidirectional overrides and their like become "?".
"""

from __future__ import annotations

from collections.abc import Sequence
from pathlib import Path
from typing import TYPE_CHECKING

from rich.console import Console
from rich.style import Style
from rich.text import Text

from codeindex.utils.text import one_line

if TYPE_CHECKING:
    from codeindex.api import Answer
    from codeindex.lookup import SourceLines
    from codeindex.models.symbol import StoredSymbol
    from codeindex.status import IndexStatus
    from codeindex.workers.retrieval import RetrievedSymbol

_MAX_SIGNATURE = 160
_MAX_CANDIDATES = 20
_MAX_EXAMPLES = 5
_TAB = 4


def print_answer(root: Path, answer: Answer) -> None:
    """Print the hits, best first, and the note when there is one."""
    console = _console()
    for place, hit in enumerate(answer, start=1):
        text = Text.assemble((f"{place:>3}  ", "dim"), _headline(root, hit.symbol))
        if hit.symbol.signature:
            text.append(f"\n     {one_line(hit.symbol.signature, _MAX_SIGNATURE)}")
        ranks = " · ".join(f"{channel} {rank}" for channel, rank in hit.ranks.items())
        text.append(f"\n     {ranks}\n", "dim")
        console.print(text)
    if not answer:
        console.print("No symbol of this repository answers that.")
    if answer.note:
        console.print(Text(one_line(answer.note), "yellow"))


def print_candidates(root: Path, symbols: Sequence[StoredSymbol]) -> None:
    """Print the symbols that a name may mean."""
    console = _console()
    for symbol in symbols[:_MAX_CANDIDATES]:
        console.print(Text.assemble("  ", _headline(root, symbol)))
    if len(symbols) > _MAX_CANDIDATES:
        console.print(f"  and {len(symbols) - _MAX_CANDIDATES} more")


def print_source(root: Path, symbol: StoredSymbol, source: SourceLines) -> None:
    """Print a symbol's source with line numbers, the lines around the symbol dimmed."""
    from rich.syntax import Syntax

    console = _console()
    console.print(_headline(root, symbol))
    code = "\n".join(_showable(line) for line in source.lines)
    lexer = Syntax.guess_lexer(symbol.path)
    lines = Syntax("", lexer, theme="ansi_dark").highlight(code).split(allow_blank=True)
    numbers = range(source.first, source.first + len(source.lines))
    width = len(str(numbers.stop))
    for number, line in zip(numbers, lines, strict=False):
        if not symbol.start_line <= number <= symbol.end_line:
            line = Text(line.plain, "dim")
        console.print(Text.assemble((f"{number:>{width}}  ", "dim"), line))


def print_status(root: Path, status: IndexStatus, list_skipped: bool) -> None:
    """Print what an index holds; with `list_skipped`, also which files it leaves out, and why."""
    console = _console()
    counts = sorted(status.languages.items(), key=lambda item: (-item[1], item[0]))
    rows = {
        "repository": str(root),
        "index": f"{status.index} ({status.bytes / 1e6:,.1f} MB)",
        "files": f"{status.files:,}  {', '.join(f'{name} {count:,}' for name, count in counts)}",
        "symbols": f"{status.symbols:,}",
        "left out": f"{sum(files.count for files in status.skipped):,} files",
    }
    for name, value in rows.items():
        console.print(Text.assemble((f"{name:<12}", "dim"), one_line(value)))
    for files in status.skipped if list_skipped else ():
        console.print(Text.assemble(f"\n{files.count:>7,}  ", (one_line(files.reason), "bold")))
        for path in files.examples[:_MAX_EXAMPLES]:
            console.print(Text(f"         {one_line(path)}", "dim"))
        if files.count > _MAX_EXAMPLES:
            console.print(Text(f"         and {files.count - _MAX_EXAMPLES:,} more", "dim"))
    if not status.whole:
        console.print("No whole index yet; `codeindex index` makes it or goes on with it.")


def _console() -> Console:
    return Console(highlight=False, soft_wrap=True)


def _headline(root: Path, symbol: StoredSymbol | RetrievedSymbol) -> Text:
    shown = symbol.name if symbol.fqn == symbol.path else symbol.fqn
    return Text.assemble(
        (one_line(shown), "bold"),
        (f"  {one_line(symbol.kind)}  ", "dim"),
        (
            f"{one_line(symbol.path)}:{symbol.start_line}",
            Style(color="cyan", link=(root / symbol.path).as_uri()),
        ),
    )


def _showable(line: str) -> str:
    return "".join(
        character if character.isprintable() else "?" for character in line.expandtabs(_TAB)
    )
