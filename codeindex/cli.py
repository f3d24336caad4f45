"""The command line. Exit codes: 0 answers, 1 none, 2 wrong usage, 3 failure, 130 interrupted.

What a command needs is imported when it runs, so that `--help` and completion are quick.
"""

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
    from codeindex.api import Freshness, Index

_NO_ANSWER = 1
_FAILURE = 3
_INTERRUPTED = 130

app = typer.Typer(
    help="Ask a repository where something is done, by name, by words and by meaning.\n\n"
    "Exit codes: 0 answers, 1 none, 2 wrong usage, 3 failure.",
    no_args_is_help=True,
    pretty_exceptions_enable=False,
)

_Repo = Annotated[
    Path | None,
    typer.Option(
        exists=True,
        file_okay=False,
        help="The repository's folder; by default the one around the current folder.",
    ),
]
_IndexFile = Annotated[
    Path | None,
    typer.Option("--index", help="Keep the index in this file, not in the cache folder."),
]
_Json = Annotated[bool, typer.Option("--json", help="Print JSON instead of lines to read.")]


def main() -> None:
    """Run the command line; the entry point of the `codeindex` program."""
    app()


@app.command("index")
def index_command(
    path: Annotated[
        Path | None,
        typer.Argument(
            exists=True,
            file_okay=False,
            help="The repository's folder; by default the one around the current folder.",
        ),
    ] = None,
    index: _IndexFile = None,
) -> None:
    """Bring the index of a repository up to date, as `ask` does by itself.

    Example: codeindex index ~/work/flask
    """
    from codeindex.progress import ProgressBar

    started = time.monotonic()
    with _opened(path, index) as opened:
        with ProgressBar() as progress:
            report = opened.refresh(progress)
        typer.echo(
            f"{report.files:,} files ({report.files_read:,} read, "
            f"{report.files_removed:,} removed), "
            f"{report.symbols:,} symbols ({report.symbols_embedded:,} embedded) "
            f"in {time.monotonic() - started:.1f} s"
        )


@app.command("ask")
def ask_command(
    question: Annotated[str, typer.Argument(help="A sentence, keywords or a name in code.")],
    repo: _Repo = None,
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
    as_json: _Json = False,
    index: _IndexFile = None,
) -> None:
    """Answer a question about a repository, after bringing its index up to date.

    Example: codeindex ask "where are sessions signed?" --repo ~/work/flask --scope src
    """
    if not question.strip():
        raise typer.BadParameter("the question is empty", param_hint="QUESTION")
    with _opened(repo, index) as opened:
        from codeindex.progress import ProgressBar
        from codeindex.workers.retrieval import RERANK_FEATURE

        why_not = opened.decisions.why_disabled(RERANK_FEATURE)
        if rerank and why_not is not None:
            typer.echo(f"codeindex: nothing is reranked: {why_not}", err=True)
        with ProgressBar() as progress:
            answer = opened.ask(
                question,
                limit=limit,
                scope=scope,
                include_tests=tests,
                rerank=rerank,
                progress=progress,
            )
        _warn(answer.freshness)
        if as_json:
            from codeindex.answers import answer_values, to_json

            typer.echo(to_json(opened.root, **answer_values(question, answer)))
        else:
            from codeindex.terminal import print_answer

            print_answer(opened.root, answer)
        if not answer:
            raise typer.Exit(_NO_ANSWER)


@app.command("show")
def show_command(
    symbol: Annotated[
        str, typer.Argument(help="A name, a qualified name or the end of one, or path:line.")
    ],
    repo: _Repo = None,
    context: Annotated[
        int, typer.Option(min=0, help="How many lines around the symbol to show.")
    ] = 3,
    as_json: _Json = False,
    index: _IndexFile = None,
) -> None:
    """Show a symbol's source, or the candidates when several symbols have that name.

    Example: codeindex show SecureCookieSessionInterface.get_signing_serializer
    """
    with _opened(repo, index) as opened:
        from codeindex.progress import ProgressBar

        with ProgressBar() as progress:
            _warn(opened.bring_up_to_date(progress))
        found = opened.find(symbol)
        source = opened.source(found[0], context) if len(found) == 1 else None
        if as_json:
            from codeindex.answers import source_values, symbol_values, to_json

            values = {
                "symbols": [symbol_values(candidate) for candidate in found],
                "source": source and source_values(source),
            }
            typer.echo(to_json(opened.root, **values))
        elif source is not None:
            from codeindex.terminal import print_source

            print_source(opened.root, found[0], source)
        elif found:
            from codeindex.terminal import print_candidates

            typer.echo("Several symbols have that name; name one by its place (path:line):")
            print_candidates(opened.root, found)
        else:
            typer.echo(f"No symbol is named {one_line(symbol)!r}.")
        if source is None:
            raise typer.Exit(_NO_ANSWER)


@app.command("status")
def status_command(
    repo: _Repo = None,
    skipped: Annotated[
        bool, typer.Option("--skipped", help="List what the index leaves out, and why.")
    ] = False,
    as_json: _Json = False,
    index: _IndexFile = None,
) -> None:
    """Say what the index of a repository holds; it is not brought up to date for that.

    Example: codeindex status --skipped --repo ~/work/flask
    """
    with _failures_explained():
        from codeindex.status import read_status

        root = _folder(repo).resolve()
        status = read_status(root, index)
        if as_json:
            from codeindex.answers import status_values, to_json

            typer.echo(to_json(root, **status_values(status)))
        else:
            from codeindex.terminal import print_status

            print_status(root, status, skipped)
        if not status.whole:
            raise typer.Exit(_NO_ANSWER)


@app.command("mcp")
def mcp_command(
    repo: Annotated[
        Path | None,
        typer.Option(help="The repository's folder; by default the one around the current folder."),
    ] = None,
    index: _IndexFile = None,
) -> None:
    """Serve questions to an agent over standard input and output, by the Model Context Protocol.

    Example: codeindex mcp --repo ~/work/flask
    """
    from codeindex.mcp_server import Server

    Server(_folder(repo), index).run()


@contextmanager
def _opened(path: Path | None, index_file: Path | None) -> Iterator[Index]:
    with _failures_explained():
        from codeindex.api import Index

        with Index(_folder(path), index_file) as index:
            yield index


@contextmanager
def _failures_explained() -> Iterator[None]:
    """Make one line on stderr and an exit code of what may go wrong for a user."""
    try:
        yield
    except BrokenPipeError:
        raise
    except (CodeIndexError, OSError, sqlite3.Error) as error:
        typer.echo(f"codeindex: {one_line(str(error))}", err=True)
        raise typer.Exit(_FAILURE) from error
    except KeyboardInterrupt as error:
        raise typer.Exit(_INTERRUPTED) from error


def _warn(freshness: Freshness) -> None:
    if freshness.warning is not None:
        typer.echo(f"codeindex: {one_line(freshness.warning)}", err=True)


def _folder(path: Path | None) -> Path:
    """Return the folder that was named, or the nearest above with a ".git", or the present one."""
    here = Path.cwd()
    if path is None:
        path = next((above for above in (here, *here.parents) if (above / ".git").exists()), here)
    return path
