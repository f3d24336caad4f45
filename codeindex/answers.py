"""What programs read of an answer, of a symbol and of an index: values that become JSON."""

from __future__ import annotations

import json
from dataclasses import asdict
from pathlib import Path
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from codeindex.api import Answer, Freshness
    from codeindex.lookup import SourceLines
    from codeindex.models.symbol import StoredSymbol
    from codeindex.status import IndexStatus
    from codeindex.workers.retrieval import RetrievedSymbol

JSON_VERSION = 1
"""Changes whenever a field changes its meaning or goes away; new fields may come without."""


def to_json(root: Path, **values: object) -> str:
    """Return a JSON object, in ASCII, that begins with `version` and `repository`."""
    return json.dumps({"version": JSON_VERSION, "repository": str(root), **values}, indent=2)


def answer_values(question: str, answer: Answer) -> dict[str, Any]:
    """Return an answer: `question`, `hits` (best first), `channels`, `note` and `freshness`.

    A hit is a symbol with its `place` (from 1) before, `score` and `ranks` (place by channel)
    after.
    """
    hits = [
        {
            "place": place,
            **symbol_values(hit.symbol),
            "score": hit.score,
            "ranks": dict(hit.ranks),
        }
        for place, hit in enumerate(answer.hits, start=1)
    ]
    return {
        "question": question,
        "hits": hits,
        "channels": dict(answer.channels),
        "note": answer.note,
        "freshness": freshness_values(answer.freshness),
    }


def freshness_values(freshness: Freshness) -> dict[str, str | None]:
    """Return `state`, `checked_at` (ISO 8601, UTC, or null) and `warning` (or null)."""
    checked_at = freshness.checked_at
    return {
        "state": freshness.state,
        "checked_at": None if checked_at is None else checked_at.isoformat(timespec="seconds"),
        "warning": freshness.warning,
    }


def symbol_values(symbol: StoredSymbol | RetrievedSymbol) -> dict[str, Any]:
    """Return a symbol: `id`, `name`, `fqn`, `kind`, `path`, lines (from 1) and `signature`."""
    return {
        "id": symbol.id,
        "name": symbol.name,
        "fqn": symbol.fqn,
        "kind": symbol.kind,
        "path": symbol.path,
        "start_line": symbol.start_line,
        "end_line": symbol.end_line,
        "signature": symbol.signature,
    }


def source_values(source: SourceLines) -> dict[str, Any]:
    """Return `first_line` (from 1) and `text`, the lines joined by line feeds."""
    return {"first_line": source.first, "text": "\n".join(source.lines)}


def status_values(status: IndexStatus) -> dict[str, Any]:
    """Return the fields of an IndexStatus; `skipped` is a list of reason, count and examples."""
    return {**asdict(status), "index": str(status.index)}
