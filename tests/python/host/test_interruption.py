"""An index run that is killed, kept waiting or out of space leaves an index that can go on.

`CODEINDEX_KILLS=100` kills more often; `CODEINDEX_KILL_TREE=/some/checkout` indexes another tree.
"""

import asyncio
import os
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import time
from pathlib import Path

import pytest

from codeindex.engines.embedding import EmbeddingEngine
from codeindex.exceptions import CodeIndexError, IndexFileError, TryAgainLaterError
from codeindex.indexing import discovery, refresh
from codeindex.storage import connections
from codeindex.storage.repository import Repository

_KILLS = int(os.environ.get("CODEINDEX_KILLS", "4"))
_TREE = Path(os.environ.get("CODEINDEX_KILL_TREE", asyncio.__path__[0]))

_RUN = """
import sys
from pathlib import Path
from codeindex.engines.embedding import EmbeddingEngine
from codeindex.indexing import refresh
from codeindex.storage.repository import Repository
refresh._SYMBOLS_AT_ONCE = int(sys.argv[3])
engine = EmbeddingEngine()
engine.wait_ready(60)
print("ready", flush=True)
with open(sys.argv[2] + "-go"):
    pass
refresh.refresh(Path(sys.argv[1]), Repository(Path(sys.argv[2])), engine, lambda *_: None)
"""

_EVERYTHING = """
    SELECT path, language, digest, skipped, fqn, name, kind, start_line, end_line, signature,
           docstring, symbol.id
    FROM file LEFT JOIN symbol ON file_id = file.id ORDER BY path, start_line, symbol.id
"""


def content(path: Path, engine: EmbeddingEngine) -> list[tuple[object, ...]]:
    """Return all that an index holds, in order, with each symbol's vector in place of its id."""
    repository = Repository(path)
    table = repository._vector_table(engine.wait_ready(0).name)
    vectors = {
        symbol_id: (scale, coarse.tobytes(), fine.tobytes())
        for symbol_id, scale, coarse, fine in zip(
            table.ids.tolist(), table.scales.tolist(), table.coarse, table.fine, strict=True
        )
    }
    with repository._connections.reading() as connection:
        assert connection.execute("PRAGMA integrity_check").fetchone() == ("ok",)
        rows = connection.execute(_EVERYTHING).fetchall()
    repository.close()
    found = [(*row[:-1], vectors.pop(row[-1], None)) for row in rows]
    assert not vectors
    return found


def index(root: Path, path: Path, engine: EmbeddingEngine) -> None:
    repository = Repository(path)
    refresh.refresh(root, repository, engine, lambda *_: None)
    repository.close()


@pytest.mark.parametrize("first_run", [True, False])
def test_after_a_kill_the_next_run_makes_what_an_undisturbed_one_makes(
    tmp_path: Path, engine: EmbeddingEngine, first_run: bool
) -> None:
    chance = random.Random(7)
    root = tmp_path / "tree"
    shutil.copytree(_TREE, root, ignore=shutil.ignore_patterns("__pycache__"))
    before = tmp_path / "before.sqlite"
    if not first_run:
        index(root, before, engine)
        sources = sorted(root.rglob("*.py"))
        for source in sources[::3]:
            source.write_text(source.read_text().replace("def ", "def new_", 9))
        sources[1].unlink()
        sources[4].rename(root / "renamed.py")
    started = time.monotonic()
    index(root, tmp_path / "whole.sqlite", engine)
    seconds = time.monotonic() - started
    expected = content(tmp_path / "whole.sqlite", engine)
    interrupted = 0
    for kill in range(_KILLS):
        path = tmp_path / f"{kill}.sqlite"
        if not first_run:
            shutil.copy(before, path)
        os.mkfifo(f"{path}-go")
        command = [sys.executable, "-c", _RUN, str(root), str(path), "100"]
        run = subprocess.Popen(command, stdout=subprocess.PIPE)
        assert run.stdout is not None
        assert run.stdout.readline() == b"ready\n"
        with open(f"{path}-go", "w"):
            pass
        time.sleep(chance.uniform(0, 1.1 * seconds))
        run.send_signal(signal.SIGKILL)
        interrupted += run.wait() == -signal.SIGKILL
        run.stdout.close()
        index(root, path, engine)
        assert content(path, engine) == expected
    assert interrupted


def test_a_killed_first_run_is_not_lost(
    tmp_path: Path, engine: EmbeddingEngine, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(refresh, "_SYMBOLS_AT_ONCE", 3)
    for number in range(10):
        (tmp_path / f"m{number}.py").write_text("def f(): pass\ndef g(): pass\n")
    repository = Repository(tmp_path / "index.sqlite")

    def interrupt(step: str, done: int, total: int) -> None:
        if (step, done) == ("files", 7):
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        refresh.refresh(tmp_path, repository, engine, interrupt)
    assert (repository.symbol_count(), repository.is_whole()) == (21, False)
    refresh.refresh(tmp_path, repository, engine, lambda *_: None)
    assert (repository.symbol_count(), repository.is_whole()) == (30, True)
    repository.close()


def test_one_run_waits_for_another_and_says_which(
    tmp_path: Path, engine: EmbeddingEngine, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(connections, "WAIT_FOR_WRITER_SECONDS", 0.2)
    monkeypatch.setattr(discovery, "_SETTLED_AFTER_NS", -1)
    (tmp_path / "a.py").write_text("A = 1\n")
    one, other = (Repository(tmp_path / "index.sqlite") for _ in range(2))
    with one.indexing():
        with pytest.raises(TryAgainLaterError, match=f"by process {os.getpid()} on .* since 20"):
            refresh.refresh(tmp_path, other, engine, lambda *_: None)
        assert other.symbol_count() == 0
    refresh.refresh(tmp_path, other, engine, lambda *_: None)
    assert one.symbol_count() == 2
    with one.indexing():  # nothing changed, so there is nothing to wait for
        refresh.refresh(tmp_path, other, engine, lambda *_: None)
    one.close()
    other.close()


def test_a_full_disk_is_told_and_leaves_the_last_state(
    tmp_path: Path, engine: EmbeddingEngine, monkeypatch: pytest.MonkeyPatch
) -> None:
    (tmp_path / "a.py").write_text("A = 1\n")
    index(tmp_path, tmp_path / "index.sqlite", engine)
    before = content(tmp_path / "index.sqlite", engine)
    connect = connections.Connections._connect

    def connect_to_a_full_disk(self: connections.Connections) -> sqlite3.Connection:
        connection = connect(self)
        connection.execute("PRAGMA max_page_count = 1")
        return connection

    (tmp_path / "a.py").write_text("".join(f"A{number} = 1\n" for number in range(3000)))
    with monkeypatch.context() as full:
        full.setattr(connections.Connections, "_connect", connect_to_a_full_disk)
        with pytest.raises(IndexFileError, match="no space left"):
            index(tmp_path, tmp_path / "index.sqlite", engine)
    assert content(tmp_path / "index.sqlite", engine) == before
    index(tmp_path, tmp_path / "index.sqlite", engine)
    assert len(content(tmp_path / "index.sqlite", engine)) == 3001


def test_a_damaged_index_is_removed_and_made_again(tmp_path: Path, engine: EmbeddingEngine) -> None:
    path = tmp_path / "index.sqlite"
    (tmp_path / "a.py").write_text("".join(f"A{number} = 1\n" for number in range(3000)))
    index(tmp_path, path, engine)
    whole = content(path, engine)
    with path.open("r+b") as file:
        file.seek(8192)
        file.write(b"\xff" * 300_000)
    (tmp_path / "a.py").write_text("A0 = 1\n")
    with pytest.raises(CodeIndexError, match=r"was damaged .* has been removed"):
        index(tmp_path, path, engine)
    (tmp_path / "a.py").write_text("".join(f"A{number} = 1\n" for number in range(3000)))
    index(tmp_path, path, engine)
    assert content(path, engine) == whole
