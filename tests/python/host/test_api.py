"""The Python interface, and the examples that show it."""

import subprocess
import sys
import threading
from collections.abc import Iterator
from pathlib import Path

import pytest

import codeindex
from codeindex.api import Index
from codeindex.exceptions import CodeIndexError

EXAMPLES = Path(__file__).parents[3] / "examples"


@pytest.fixture
def index(tmp_path: Path) -> Iterator[Index]:
    (tmp_path / "shop" / "src").mkdir(parents=True)
    (tmp_path / "shop" / "src" / "cart.py").write_text("def add_item(cart, item): pass\n")
    (tmp_path / "shop" / "bin.py").write_text("def add_all(cart): pass\n")
    with codeindex.open(tmp_path / "shop", index_file=tmp_path / "index") as index:
        yield index


def run_python(*arguments: str, cwd: Path) -> str:
    env = {"XDG_CACHE_HOME": str(cwd / "cache"), "HOME": str(cwd)}
    command = [sys.executable, *arguments]
    return subprocess.run(
        command, cwd=cwd, env=env, check=True, capture_output=True, text=True
    ).stdout


def test_asking_sees_every_change_and_says_how_fresh_it_is(index: Index) -> None:
    before = index.ask("add_item", scope="src")
    assert [hit.symbol.fqn for hit in before] == ["cart.add_item", "cart"]
    assert len(before) == len(before.hits)
    assert set(before.channels.values()) == {"ok"}
    again = index.ask("add_item", scope="src").freshness
    assert again.state == before.freshness.state
    assert again.checked_at is not None
    assert before.freshness.checked_at is not None
    assert again.checked_at > before.freshness.checked_at
    (index.root / "src" / "cart.py").write_text("def put_item(cart, item): pass\n")
    after = index.ask("put_item", limit=1)
    assert [hit.symbol.fqn for hit in after] == ["cart.put_item"]
    assert after.freshness.state != before.freshness.state


def test_the_retriever_answers_without_a_refresh(index: Index) -> None:
    assert index.retriever.retrieve("add_item").hits == []
    report = index.refresh()
    assert (report.files, report.files_read) == (2, 2)
    assert index.retriever.retrieve("add_item").hits[0].symbol.name == "add_item"


def test_threads_may_ask_one_index_from_the_first_question_on(index: Index) -> None:
    found: list[list[str]] = []

    def ask() -> None:
        found.append([hit.symbol.name for hit in index.ask("add_item", limit=1)])

    threads = [threading.Thread(target=ask) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert found == [["add_item"]] * 8


def test_what_cannot_be_opened_or_asked_is_a_clear_error(index: Index, tmp_path: Path) -> None:
    with pytest.raises(CodeIndexError, match=r"There is no folder .*missing"):
        codeindex.open(tmp_path / "missing")
    with pytest.raises(ValueError, match="limit"):
        index.ask("add_item", limit=0)
    index.root.rename(tmp_path / "elsewhere")
    with pytest.raises(CodeIndexError, match=r"There is no folder .*shop"):
        index.ask("add_item")


@pytest.mark.parametrize("target", ["/etc/hostname", "../secret.py"])
def test_source_is_read_from_inside_the_repository_only(index: Index, target: str) -> None:
    (index.root.parent / "secret.py").write_text("key = 1\n")
    index.refresh()
    (symbol,) = index.find("add_all")
    assert index.source(symbol).lines == ["def add_all(cart): pass"]
    (index.root / "bin.py").unlink()
    (index.root / "bin.py").symlink_to(target)
    with pytest.raises(CodeIndexError, match=r"bin\.py leads out of the repository"):
        index.source(symbol)


def test_importing_the_package_is_light(tmp_path: Path) -> None:
    loaded = "import sys, codeindex; print(*sys.modules)"
    modules = run_python("-c", loaded, cwd=tmp_path).split()
    assert not {"numpy", "sqlite3", "codeindex.api"} & set(modules)


def test_the_examples_answer(index: Index, tmp_path: Path) -> None:
    ask = run_python(
        str(EXAMPLES / "ask_a_repository.py"), str(index.root), "add an item", "src", cwd=tmp_path
    )
    assert ask.splitlines()[0].startswith("cart.add_item  src/cart.py:1  {")
    host = run_python(str(EXAMPLES / "own_host.py"), "parse the config", cwd=tmp_path)
    assert host.splitlines()[0].startswith("config.parse config.py:12 {'exact': 1,")
    assert host.endswith("Every channel ranked.\n")
