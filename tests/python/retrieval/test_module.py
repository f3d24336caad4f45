"""What a Python person relies on in the module: types, records, errors, threads, memory."""

import copy
import ctypes
import gc
import os
import pickle
import re
import sqlite3
import subprocess
import sys
import threading
import unicodedata
import weakref
from collections import Counter
from collections.abc import Callable, Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor
from importlib import resources
from pathlib import Path
from typing import Any

import pytest
from nanobind import stubgen

from codeindex.models.symbol import StoredSymbol
from codeindex.workers import retrieval
from codeindex.workers.retrieval import (
    FileWeights,
    Hit,
    HybridRetriever,
    LexicalWeights,
    QueryVector,
    RetrievalResult,
    RetrievalSettings,
    RetrievedSymbol,
)
from codeindex.workers.retrieval import _native as native

THREADS = 8
QUESTIONS = 1000


def symbol(number: int, name: str, path: str = "src/a.py") -> StoredSymbol:
    return StoredSymbol(number, f"a.{name}", name, "function", path, 1, 2, None, "Parses a file.")


class Index:
    """An index whose states all hold the same symbols and one named after the state."""

    def __init__(self, names: Sequence[str] = ("parse", "parse_file", "serve")) -> None:
        self.names = names
        self.state = 0
        self.listed: Counter[object] = Counter()
        self.read: Callable[[], None] = lambda: None

    def retrieval_fingerprint(self) -> object:
        return self.state

    def retrievable_code_symbols(
        self, languages: frozenset[str], kinds: frozenset[str], /
    ) -> Iterator[StoredSymbol]:
        state = self.state
        self.listed[state] += 1
        self.read()
        for number, name in enumerate([*self.names, f"state_{state}"]):
            yield symbol(number, name)

    def nearest_symbol_ids(
        self, values: Sequence[float], model: str, /, *, top_k: int
    ) -> list[tuple[int, float]]:
        return [(number, 0.5) for number in range(len(self.names) + 1)][:top_k]

    def get_symbols_by_ids(self, ids: list[int], /) -> dict[int, StoredSymbol]:
        return {}


def embed(text: str) -> QueryVector:
    return QueryVector([0.5], "model")


FOUND = RetrievedSymbol(1, "a.b", "b", "function", "a.py", 1, 2, None)
RECORDS: list[Any] = [
    FOUND,
    Hit(FOUND, 0.5, {"exact": 1}),
    RetrievalResult([Hit(FOUND, 0.5, {"exact": 1})], {"exact": "ok"}, "A note."),
    QueryVector([0.5, -0.0], "model"),
    LexicalWeights(name=5),
    FileWeights(1, 2, 3),
    RetrievalSettings(depth=10**30, weights=LexicalWeights(0.5)),
]


@pytest.mark.parametrize("record", RECORDS, ids=lambda record: type(record).__name__)
def test_records_are_frozen_values_that_copy_pickle_and_print(record: Any) -> None:
    for other in (copy.copy(record), copy.deepcopy(record), pickle.loads(pickle.dumps(record))):
        assert other == record
        assert type(other) is type(record)
    assert eval(repr(record), vars(retrieval)) == record
    assert record != object()
    for name in record.__match_args__:
        with pytest.raises(AttributeError):
            setattr(record, name, None)
    hashable = not isinstance(record, (Hit, RetrievalResult, QueryVector))
    assert hashable == isinstance(_hash_of(record), int)


def _hash_of(record: Any) -> int | None:
    try:
        return hash(record)
    except TypeError:
        return None


def test_records_take_part_in_pattern_matching() -> None:
    match RECORDS[1]:
        case Hit(RetrievedSymbol(id=1, name=name), score, {"exact": place}):
            assert (name, score, place) == ("b", 0.5, 1)
        case _:
            pytest.fail("no match")


class _Halting:
    def __index__(self) -> int:
        raise KeyboardInterrupt


ask = HybridRetriever(Index()).retrieve
WRONG: list[tuple[Callable[..., object], tuple[Any, ...], dict[str, Any], str]] = [
    (ask, (3,), {}, "query must be str, not int"),
    (ask, (None,), {}, "query must be str, not NoneType"),
    (ask, ("q",), {"limit": 2.0}, "limit must be int, not float"),
    (ask, ("q",), {"limit": None}, "limit must be int, not NoneType"),
    (ask, ("q",), {"scope": b"src"}, "scope must be str or None, not bytes"),
    (ask, ("q",), {"include_tests": "no"}, "include_tests must be bool, not str"),
    (ask, ("q",), {"rerank": None}, "rerank must be bool, not NoneType"),
    (ask, ("q", 3), {}, "retrieve"),
    (HybridRetriever, (Index(),), {"embedder": 3}, "embedder must be callable or None, not int"),
    (HybridRetriever, (Index(),), {"settings": {}}, "settings must be RetrievalSettings or None"),
    (HybridRetriever, (Index(), embed), {}, "HybridRetriever|__init__"),
    (retrieval.split_identifier, (None,), {}, "text must be str, not NoneType"),
    (retrieval.query_terms, (b"",), {}, "text must be str, not bytes"),
    (retrieval.query_names, (1,), {}, "query must be str, not int"),
    (retrieval.reads_as_code, (1,), {}, "word must be str, not int"),
    (retrieval.is_test_query, ([b"test"],), {}, "a term of terms must be str, not bytes"),
    (retrieval.ranks_in_order, (["1"],), {}, "a symbol id of ids must be int, not str"),
    (retrieval.reciprocal_rank_fusion, ({"a": {1: "2"}},), {}, "a rank in rankings must be int"),
    (retrieval.reciprocal_rank_fusion, ({},), {"k": 6.0}, "k must be int, not float"),
    (RetrievalSettings, (), {"depth": "50"}, "depth must be int, not str"),
    (RetrievalSettings, (), {"weights": None}, "weights must be LexicalWeights, not NoneType"),
    (LexicalWeights, ("10",), {}, "name must be float, not str"),
    (Hit, (FOUND, "0.5", {}), {}, "score must be float or int, not str"),
]


@pytest.mark.parametrize(("call", "args", "named", "message"), WRONG, ids=lambda value: str(value))
def test_a_wrong_type_is_an_error_that_names_the_argument(
    call: Callable[..., object], args: tuple[Any, ...], named: dict[str, Any], message: str
) -> None:
    with pytest.raises(TypeError, match=message):
        call(*args, **named)


@pytest.mark.parametrize(
    ("call", "error", "message"),
    [
        (lambda: ask("q", limit=0), ValueError, "limit must be at least 1, not 0"),
        (
            lambda: HybridRetriever(
                Index(), settings=RetrievalSettings(weights=LexicalWeights(1e-5))
            ).retrieve("q"),
            sqlite3.OperationalError,
            "SQL logic error",
        ),
        (
            lambda: retrieval.reciprocal_rank_fusion({"a": {1: 1}}, -1),
            ZeroDivisionError,
            "division",
        ),
        (lambda: retrieval.ranks_in_order([2**63]), OverflowError, "id of ids must fit in 64 bits"),
        (lambda: retrieval.ranks_in_order([10**5000]), OverflowError, "an integer of 16610 bits"),
        (lambda: ask("q", limit=-(10**5000)), ValueError, "at least 1, not an integer of 16610"),
        (lambda: ask("q", limit=_Halting()), KeyboardInterrupt, "^$"),  # type: ignore[arg-type]
    ],
)
def test_every_failure_of_the_library_is_the_python_error_of_its_kind(
    call: Callable[[], object], error: type[BaseException], message: str
) -> None:
    with pytest.raises(error, match=message):
        call()


def test_the_stub_says_what_the_module_holds(tmp_path: Path) -> None:
    patterns = Path(__file__).parents[3] / "workers/retrieval/python/stub_patterns.txt"
    made = tmp_path / "made.pyi"
    stubgen.main(["-q", "-P", "-m", native.__name__, "-p", str(patterns), "-o", str(made)])
    kept = resources.files(retrieval).joinpath("_native.pyi").read_text()
    assert made.read_text() == kept, "run `make stubs`"


def lower_case_order(names: Sequence[str]) -> list[str]:
    return sorted(names, key=lambda name: (len(name.lower()), name.lower()))


def test_names_are_lower_cased_as_python_does_it() -> None:
    cased = [chr(c) for c in range(sys.maxunicode + 1) if unicodedata.category(chr(c)) != "Cn"]
    cased = [c for c in cased if c.lower() != c or unicodedata.category(c) == "Mn"]
    names = [
        f"abcd{c}\N{GREEK CAPITAL LETTER SIGMA}{tail}" for c in cased for tail in ("", c, "-x")
    ]
    hits = HybridRetriever(Index(names)).retrieve("abcd", limit=len(names) + 1).hits
    places = {hit.ranks["exact"]: hit.symbol.name for hit in hits if "exact" in hit.ranks}
    assert [places[rank] for rank in sorted(places)] == lower_case_order(names)


def test_white_space_around_a_scope_is_what_python_strips() -> None:
    ask = HybridRetriever(Index()).retrieve
    for space in map(chr, range(0x3100)):
        hits = ask("parse", scope=f"{space}src{space}").hits
        assert bool(hits) == (f"{space}src{space}".strip() == "src" or space in "/\\"), ascii(space)


def test_threads_get_the_answers_of_one_thread_and_build_each_state_once() -> None:
    index = Index()
    retriever = HybridRetriever(index, embedder=embed)
    queries = ["parse", "how is a file parsed?", "serve state", "tests of parse_file"]

    def without_state(result: RetrievalResult) -> str:
        return re.sub(r"state_\d+", "state", repr(result))

    expected = {query: without_state(retriever.retrieve(query)) for query in queries}

    def asked(thread: int) -> bool:
        return all(
            without_state(retriever.retrieve(query)) == expected[query]
            for query in (queries[(thread + n) % len(queries)] for n in range(QUESTIONS))
        )

    with ThreadPoolExecutor(THREADS) as pool:
        answers = [pool.submit(asked, thread) for thread in range(THREADS)]
        while not all(answer.done() for answer in answers):
            index.state = sum(index.listed.values())
            retriever.retrieve("parse")
        assert all(answer.result() for answer in answers)
    assert len(index.listed) > 5


def test_questions_wait_for_a_build_without_the_interpreter_lock() -> None:
    index = Index()
    retriever = HybridRetriever(index)
    listing, go_on = threading.Event(), threading.Event()

    def wait() -> None:
        listing.set()
        assert go_on.wait(60)

    index.read = wait
    with ThreadPoolExecutor(THREADS) as pool:
        answers = [pool.submit(retriever.retrieve, "parse") for _ in range(THREADS)]
        assert listing.wait(60)
        # This thread runs on while one thread builds and seven wait for it.
        go_on.set()
        assert len({repr(answer.result(60)) for answer in answers}) == 1
    assert index.listed == {0: 1}


class Fingerprint:
    """Reaches its retriever, and so closes a cycle through the snapshot."""

    retriever: HybridRetriever


def test_a_cycle_through_a_retriever_is_collected() -> None:
    class Cyclic(Index):
        retriever: HybridRetriever
        fingerprint: Fingerprint

        def retrieval_fingerprint(self) -> object:
            return self.fingerprint

        def embed(self, text: str) -> QueryVector:
            return embed(text)

        def feature_enabled(self, name: str, /) -> bool:
            return False

        def decide(self, state: Any, questions: Any, /, *, question_version: str) -> Any: ...

    index, fingerprint = Cyclic(), Fingerprint()
    index.fingerprint = fingerprint
    index.retriever = fingerprint.retriever = HybridRetriever(
        index, embedder=index.embed, decisions=index, settings=RetrievalSettings()
    )
    index.retriever.retrieve("parse", rerank=True)
    gone = [weakref.ref(each) for each in (index, fingerprint, index.retriever)]
    gc.collect()
    assert all(ref() is not None for ref in gone)
    del index, fingerprint
    gc.collect()
    assert [ref() for ref in gone] == [None, None, None]


def test_replaced_snapshots_close_their_database_and_let_their_fingerprint_go() -> None:
    sqlite = ctypes.CDLL("libsqlite3.so.0")
    sqlite.sqlite3_memory_used.restype = ctypes.c_int64
    index = Index([f"name_{n}" for n in range(200)])
    retriever = HybridRetriever(index, embedder=embed)
    used = []
    for state in range(50):
        index.state = state
        for _ in range(20):
            retriever.retrieve("name_7 parse", limit=3)
        used.append(sqlite.sqlite3_memory_used())
    assert used[0] > 0
    assert max(used[5:]) < 1.2 * used[5]
    del retriever
    gc.collect()
    assert sqlite.sqlite3_memory_used() < used[5] / 2


def test_python_ends_while_daemon_threads_ask() -> None:
    program = """
import sys, threading, time
from retrieval.test_module import Index
from codeindex.workers.retrieval import HybridRetriever
class Slow:
    def __del__(self, wait=time.sleep): wait(0.2)
sys.kept = Slow()
retriever = HybridRetriever(Index([f"name_{n}" for n in range(2000)]))
retriever.retrieve("name")
def ask():
    while True: retriever.retrieve("name parse", limit=2000)
for _ in range(3): threading.Thread(target=ask, daemon=True).start()
time.sleep(0.1)
"""
    done = subprocess.run(
        [sys.executable, "-c", program],
        env={**os.environ, "PYTHONPATH": str(Path(__file__).parents[1])},
        stderr=subprocess.DEVNULL,
        timeout=60,
    )
    assert done.returncode == 0
