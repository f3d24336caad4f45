"""The command line. Exit codes: 0 answers, 1 none, 2 wrong usage, 3 failure, 130 interrupted."""

from __future__ import annotations

import sqlite3
import time
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import TYPE_CHECKING, Annotated

import typer

from codeindex.exceptions import CodeIndexError
from codeindex.utils.text import one_line

if TYPE_CHECKING:
    from codeindex.engines.embedding import EmbeddingEngine
    from codeindex.indexing.refresh import RefreshReport
    from codeindex.storage.repository import Repository

_NO_ANSWER = 1
_FAILURE = 3
_INTERRUPTED = 130

app = typer.Typer(
    help="Ask a repository where something is done, by name, by words and by meaning.",
    no_args_is_help=True,
    pretty_exceptions_enable=False,
)

_IndexFile = Annotated[
    Path | None,
    typer.Option("--index", help="Keep the index in this file, not in the cache folder."),
]


def main() -> None:
    """Run the command line; the entry point of the `codeindex` program."""
    app()


@app.command("index")
def index_command(
    path: Annotated[
        Path, typer.Argument(exists=True, file_okay=False, help="The repository's folder.")
    ],
    index: _IndexFile = None,
) -> None:
    """Bring the index of a repository up to date, as `ask` does by itself.

    Example: codeindex index ~/work/flask
    """
    started = time.monotonic()
    with _failures_explained(), _up_to_date(path.resolve(), index) as (_, _, report):
        typer.echo(
            f"{report.files:,} files ({report.files_read:,} read, "
            f"{report.files_removed:,} removed), "
            f"{report.symbols:,} symbols ({report.symbols_embedded:,} embedded) "
            f"in {time.monotonic() - started:.1f} s"
        )


@app.command("ask")
def ask_command(
    question: Annotated[str, typer.Argument(help="A sentence, keywords or a name in code.")],
    repo: Annotated[
        Path | None,
        typer.Option(
            exists=True,
            file_okay=False,
            help="The repository's folder; by default the one around the current folder.",
        ),
    ] = None,
    scope: Annotated[
        str | None, typer.Option(help="Answer only from this folder or file of the repository.")
    ] = None,
    limit: Annotated[int, typer.Option(min=1, help="How many answers at most.")] = 10,
    tests: Annotated[
        bool | None,
        typer.Option(
            "--tests/--no-tests",
            help="Whether test files may answer; by default when the question is about tests.",
        ),
    ] = None,
    rerank: Annotated[
        bool, typer.Option("--rerank", help="Let the decision model order the first answers.")
    ] = False,
    as_json: Annotated[bool, typer.Option("--json", help="Print the answer as JSON.")] = False,
    index: _IndexFile = None,
) -> None:
    """Answer a question about a repository, after bringing its index up to date.

    Example: codeindex ask "where are sessions signed?" --repo ~/work/flask --scope src
    """
    if not question.strip():
        raise typer.BadParameter("the question is empty", param_hint="QUESTION")
    root = _enclosing_repository(Path.cwd()) if repo is None else repo.resolve()
    with _failures_explained(), _up_to_date(root, index) as (repository, engine, _):
        from codeindex.answers import answer_json, print_answer
        from codeindex.engines.decision import DecisionClient
        from codeindex.workers.retrieval import (
            RERANK_FEATURE,
            HybridRetriever,
            engine_query_embedder,
        )

        decisions = DecisionClient()
        if rerank and not decisions.feature_enabled(RERANK_FEATURE):
            typer.echo("No decision model is configured, so nothing is reranked.", err=True)
        retriever = HybridRetriever(
            repository, embedder=engine_query_embedder(engine), decisions=decisions
        )
        result = retriever.retrieve(
            question, limit=limit, scope=scope, include_tests=tests, rerank=rerank
        )
        if as_json:
            typer.echo(answer_json(question, root, result))
        else:
            print_answer(result)
        if not result.hits:
            raise typer.Exit(_NO_ANSWER)


@contextmanager
def _up_to_date(
    root: Path, index: Path | None
) -> Iterator[tuple[Repository, EmbeddingEngine, RefreshReport]]:
    """Open the index of a repository, brought up to date while the model loads."""
    from codeindex.engines.embedding import EmbeddingEngine
    from codeindex.indexing.refresh import refresh
    from codeindex.progress import ProgressBar
    from codeindex.storage.location import default_index_path
    from codeindex.storage.repository import Repository

    repository = Repository(default_index_path(root) if index is None else index)
    try:
        engine = EmbeddingEngine()
        with ProgressBar() as progress:
            report = refresh(root, repository, engine, progress)
        yield repository, engine, report
    finally:
        repository.close()


@contextmanager
def _failures_explained() -> Iterator[None]:
    """Turn what may go wrong for a user into one line on stderr and an exit code."""
    try:
        yield
    except BrokenPipeError:
        raise
    except (CodeIndexError, OSError, sqlite3.Error) as error:
        typer.echo(f"codeindex: {one_line(str(error))}", err=True)
        raise typer.Exit(_FAILURE) from error
    except KeyboardInterrupt as error:
        raise typer.Exit(_INTERRUPTED) from error


def _enclosing_repository(folder: Path) -> Path:
    """Return the nearest folder above with a ".git", or the folder itself."""
    folder = folder.resolve()
    for candidate in (folder, *folder.parents):
        if (candidate / ".git").exists():
            return candidate
    return folder
