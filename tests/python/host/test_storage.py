"""The index file: what retrieval reads of it, and when its state moves."""

import pwd
import sqlite3
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np
import pytest

from codeindex.exceptions import IndexFileError
from codeindex.models.symbol import ExtractedSymbol
from codeindex.storage.location import default_index_path
from codeindex.storage.repository import IndexedFile, IndexWriter, Repository

A_FILE = IndexedFile("python", "1", b"digest")


def symbol(name: str, line: int = 1, kind: str = "function") -> ExtractedSymbol:
    return ExtractedSymbol(f"m.{name}", name, kind, line, line + 1, f"def {name}()", None)


@pytest.fixture
def repository(tmp_path: Path) -> Iterator[Repository]:
    repository = Repository(tmp_path / "new" / "index.sqlite")
    yield repository
    repository.close()


def put(repository: Repository, path: str, *symbols: ExtractedSymbol) -> None:
    with repository.writing() as writer:
        writer.put_file(path, A_FILE, symbols)


def listed(repository: Repository) -> list[tuple[str, int, int]]:
    symbols = repository.retrievable_code_symbols({"python"}, {"function", "module"})
    return [(s.path, s.start_line, s.id) for s in symbols]


def ids_by_name(repository: Repository) -> dict[str, int]:
    return {s.name: s.id for s in repository.retrievable_code_symbols({"python"}, {"function"})}


def test_symbols_are_listed_by_path_line_and_id_and_filtered(repository: Repository) -> None:
    put(repository, "b.py", symbol("late", 9), symbol("early", 2))
    put(repository, "a.py", symbol("twin"), symbol("twin"), symbol("K", kind="constant"))
    with repository.writing() as writer:
        writer.put_file("c.txt", IndexedFile("text", None, b""), [symbol("other")])
    assert listed(repository) == [("a.py", 1, 3), ("a.py", 1, 4), ("b.py", 2, 2), ("b.py", 9, 1)]


def test_an_unfinished_listing_keeps_its_state_and_harms_nobody(repository: Repository) -> None:
    put(repository, "a.py", *(symbol(f"f{i}", i) for i in range(1, 50)))
    listing = iter(repository.retrievable_code_symbols({"python"}, {"function"}))
    next(listing)
    with repository.writing() as writer:
        writer.remove_file("a.py")
    assert len(list(listing)) == 48
    assert listed(repository) == []


def test_the_fingerprint_moves_exactly_when_something_retrievable_changes(
    repository: Repository,
) -> None:
    put(repository, "a.py", symbol("f"), symbol("g", 5))

    def moves(path: str, stamp: str, symbols: list[ExtractedSymbol] | None) -> bool:
        before = repository.retrieval_fingerprint()
        with repository.writing() as writer:
            writer.put_file(path, IndexedFile("python", stamp, b"other"), symbols)
        return repository.retrieval_fingerprint() != before

    assert not moves("a.py", "2", None)
    assert not moves("a.py", "3", [symbol("f"), symbol("g", 5)])
    assert moves("a.py", "4", [symbol("f"), symbol("g", 6)])
    assert moves("a.py", "5", [symbol("f")])
    assert moves("b.py", "6", [symbol("h")])

    before = repository.retrieval_fingerprint()
    with repository.writing() as writer:
        writer.put_embeddings("model", [1], np.ones((1, 4)))
    with pytest.raises(AttributeError), repository.writing() as writer:
        writer.put_file("a.py", A_FILE, [symbol("new"), None])  # type: ignore[list-item]
    assert repository.retrieval_fingerprint() == before
    with repository.writing() as writer:
        writer.remove_file("b.py")
    assert repository.retrieval_fingerprint() != before


def test_a_symbol_that_only_moves_keeps_its_id_and_embedding(repository: Repository) -> None:
    put(repository, "a.py", symbol("f"), symbol("g", 5), symbol("gone", 9))
    before = ids_by_name(repository)
    with repository.writing() as writer:
        writer.put_embeddings("m", sorted(before.values()), np.ones((3, 4)))
        writer.finish_embeddings("m")
    assert repository.is_embedded("m")
    assert not repository.is_embedded("another")
    put(repository, "a.py", symbol("new"), symbol("f", 11), symbol("g", 15))
    after = ids_by_name(repository)
    assert (after["f"], after["g"]) == (before["f"], before["g"])
    assert after["new"] not in before.values()
    assert not repository.is_embedded("m")
    assert repository.symbols_to_embed("m") == [after["new"]]
    assert repository.symbols_to_embed("another") == sorted(after.values())
    nearest = repository.nearest_symbol_ids([1.0] * 4, "m", top_k=9)
    assert [symbol_id for symbol_id, _ in nearest] == [after["f"], after["g"]]


def test_symbols_of_one_line_stay_in_their_order(repository: Repository) -> None:
    put(repository, "a.py", symbol("a"), symbol("b"), symbol("c"), symbol("d", 2))
    before = ids_by_name(repository)
    put(repository, "a.py", symbol("a"), symbol("new"), symbol("c"), symbol("b"), symbol("d", 2))
    after = ids_by_name(repository)
    assert list(after) == ["a", "new", "c", "b", "d"]
    assert (after["a"], after["d"]) == (before["a"], before["d"])


def test_lookup_by_ids_leaves_out_what_is_not_there(repository: Repository) -> None:
    put(repository, "a.py", symbol("f"), symbol("g\0\n", 5))
    found = repository.get_symbols_by_ids([2, 1, 1, 99, -(2**63), 2**70])
    assert {i: s.name for i, s in found.items()} == {1: "f", 2: "g\0\n"}


@pytest.mark.parametrize("top_k", [1, 7, 100, 399, 400, 2**70])
def test_nearest_is_a_plain_sort_by_cosine_and_id(repository: Repository, top_k: int) -> None:
    random = np.random.default_rng(7)
    # Few distinct vectors, so that many are equally near, at the cut too.
    vectors = random.integers(-3, 4, size=(20, 8)).astype(np.float32)[
        random.integers(0, 20, size=400)
    ]
    vectors[5] = 0
    put(repository, "a.py", *(symbol(f"f{i}", i + 1) for i in range(400)))
    for ids in (range(1, 301), range(301, 401)):
        with repository.writing() as writer:
            writer.put_embeddings("m", ids, vectors[ids.start - 1 : ids.stop - 1])
    query = random.normal(size=8)
    lengths = np.linalg.norm(vectors, axis=1)
    cosines = (vectors @ query / np.where(lengths, lengths, 1) / np.linalg.norm(query)).tolist()
    expected = sorted(range(400), key=lambda i: (-round(cosines[i], 4), i))[:top_k]
    nearest = repository.nearest_symbol_ids(query.tolist(), "m", top_k=top_k)
    assert [symbol_id for symbol_id, _ in nearest] == [i + 1 for i in expected]
    assert [s for _, s in nearest] == pytest.approx([cosines[i] for i in expected], abs=1e-5)
    assert repository.nearest_symbol_ids(query.tolist(), "another model", top_k=top_k) == []


@pytest.mark.parametrize("values", [[1.0], [float("nan")] * 4, []])
def test_a_query_that_is_no_vector_of_the_model_is_refused(
    repository: Repository, values: list[float]
) -> None:
    put(repository, "a.py", symbol("f"))
    with repository.writing() as writer:
        writer.put_embeddings("m", [1], np.ones((1, 4)))
    with pytest.raises(ValueError, match="4 finite numbers"):
        repository.nearest_symbol_ids(values, "m", top_k=3)
    with pytest.raises(ValueError, match="top_k must be at least 1, not 0"):
        repository.nearest_symbol_ids([1.0] * 4, "m", top_k=0)


def test_readers_see_whole_states_while_a_writer_changes_them(repository: Repository) -> None:
    def write(_: int) -> None:
        for round_ in range(20):
            with repository.writing() as writer:
                write_state(writer, round_)

    def write_state(writer: IndexWriter, round_: int) -> None:
        for path in ("a.py", "b.py"):
            writer.put_file(path, A_FILE, [symbol(f"r{round_}", i + 1) for i in range(30)])

    def read(_: int) -> int:
        for _ in range(40):
            names = {s.name for s in repository.retrievable_code_symbols({"python"}, {"function"})}
            assert len(names) == 1
            repository.retrieval_fingerprint()
            repository.nearest_symbol_ids([1.0], "m", top_k=3)
        return 1

    with repository.writing() as writer:
        write_state(writer, 0)
    with ThreadPoolExecutor(5) as threads:
        writing = threads.submit(write, 0)
        assert sum(threads.map(read, range(4))) == 4
        writing.result()


def test_a_foreign_or_damaged_file_is_refused_and_left_alone(tmp_path: Path) -> None:
    text = tmp_path / "notes.txt"
    text.write_text("not a database " * 100)
    with pytest.raises(IndexFileError, match="no index or a damaged one"):
        Repository(text)
    foreign = tmp_path / "other.sqlite"
    with sqlite3.connect(foreign) as connection:
        connection.execute("CREATE TABLE mine (a)")
    with pytest.raises(IndexFileError, match="database of another program"):
        Repository(foreign)
    assert text.read_text().startswith("not a database")
    with sqlite3.connect(foreign) as connection:
        assert connection.execute("SELECT count(*) FROM mine").fetchone() == (0,)


def test_without_a_home_folder_the_user_is_told_what_to_set(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def unknown_user(user: int) -> None:
        raise KeyError(user)

    monkeypatch.setattr(pwd, "getpwuid", unknown_user)
    monkeypatch.delenv("HOME")
    monkeypatch.setenv("XDG_CACHE_HOME", str(tmp_path))
    assert default_index_path(Path("/work/shop")).parent == tmp_path / "codeindex"
    monkeypatch.delenv("XDG_CACHE_HOME")
    with pytest.raises(IndexFileError, match="Set HOME or XDG_CACHE_HOME"):
        default_index_path(Path("/work/shop"))


def test_an_index_with_another_layout_is_emptied(tmp_path: Path) -> None:
    repository = Repository(tmp_path / "index.sqlite")
    put(repository, "a.py", symbol("f"))
    before = repository.retrieval_fingerprint()
    repository.close()
    with sqlite3.connect(tmp_path / "index.sqlite") as connection:
        connection.execute("PRAGMA user_version = 999")
    repository = Repository(tmp_path / "index.sqlite")
    assert listed(repository) == []
    assert repository.retrieval_fingerprint() != before
    repository.close()
    with pytest.raises(IndexFileError, match="was closed"):
        repository.retrieval_fingerprint()
