"""An answer as people and programs read it: lines for a terminal, or JSON."""

from __future__ import annotations

import json
from pathlib import Path
from typing import TYPE_CHECKING

from codeindex.utils.text import one_line

if TYPE_CHECKING:
    from rich.text import Text

    from codeindex.workers.retrieval import Hit, RetrievalResult

JSON_VERSION = 1
"""Changes whenever a field of `answer_json` changes its meaning or goes away."""

_MAX_SIGNATURE = 160


def answer_json(question: str, root: Path, result: RetrievalResult) -> str:
    """Return the answer as one JSON object, in ASCII.

    It holds `version` (1), `question`, `repository` (its folder), `hits`, best first, `channels`
    (status by channel) and `note` (a sentence or null). A hit holds `place` (from 1), `id`,
    `name`, `fqn`, `kind`, `path` (below the repository, with forward slashes), `start_line`,
    `end_line` (both from 1), `signature` (or null), `score` and `ranks` (place by channel).
    """
    hits = [
        {
            "place": place,
            "id": hit.symbol.id,
            "name": hit.symbol.name,
            "fqn": hit.symbol.fqn,
            "kind": hit.symbol.kind,
            "path": hit.symbol.path,
            "start_line": hit.symbol.start_line,
            "end_line": hit.symbol.end_line,
            "signature": hit.symbol.signature,
            "score": hit.score,
            "ranks": dict(hit.ranks),
        }
        for place, hit in enumerate(result.hits, start=1)
    ]
    answer = {
        "version": JSON_VERSION,
        "question": question,
        "repository": str(root),
        "hits": hits,
        "channels": dict(result.channels),
        "note": result.note,
    }
    return json.dumps(answer, indent=2)


def print_answer(result: RetrievalResult) -> None:
    """Print the answer to stdout, in colours where stdout is a terminal that wants them."""
    from rich.console import Console
    from rich.text import Text

    console = Console(highlight=False, soft_wrap=True)
    for place, hit in enumerate(result.hits, start=1):
        console.print(_hit_text(place, hit))
    if not result.hits:
        console.print("No symbol of this repository answers that.")
    if result.note:
        console.print(Text(one_line(result.note), style="yellow"))


def _hit_text(place: int, hit: Hit) -> Text:
    from rich.text import Text

    symbol = hit.symbol
    shown = symbol.name if symbol.fqn == symbol.path else symbol.fqn
    text = Text()
    text.append(f"{place:>3}  ", "dim")
    text.append(one_line(shown), "bold")
    text.append(f"  {one_line(symbol.kind)}  ", "dim")
    text.append(f"{one_line(symbol.path)}:{symbol.start_line}", "cyan")
    if symbol.signature:
        text.append(f"\n     {one_line(symbol.signature, _MAX_SIGNATURE)}")
    ranks = " · ".join(f"{channel} {rank}" for channel, rank in hit.ranks.items())
    text.append(f"\n     {ranks}\n", "dim")
    return text
