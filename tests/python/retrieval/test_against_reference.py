"""The library against the plain reference: generated hosts and questions, compared in full.

`CODEINDEX_QUESTIONS` says how many questions are asked (8 a world), `CODEINDEX_SEED` where the
seeds of the worlds start. A difference prints its seed, its question and its world.
"""

import importlib.util
import os
import random
from collections.abc import Callable
from types import ModuleType
from typing import Any

import pytest

from codeindex.models.symbol import CALLABLE_KINDS
from codeindex.workers import retrieval

from . import generate, reference
from .fakes import outcomes

QUESTIONS = int(os.environ.get("CODEINDEX_QUESTIONS", "4000"))
FIRST_SEED = int(os.environ.get("CODEINDEX_SEED", "0"))
SEEDS = range(FIRST_SEED, FIRST_SEED + QUESTIONS // 8)


def difference(seed: int, side: Any) -> str | None:
    """Ask both sides the world of `seed`; describe the first question they answer differently."""
    world = generate.world(random.Random(seed))
    asked = zip(world.questions, outcomes(world, reference), outcomes(world, side), strict=True)
    for number, (question, expected, found) in enumerate(asked, 1):
        if found != expected:
            told = [
                f"{part}: {found[part]!a}\n  not: {expected[part]!a}"
                for part in expected
                if found[part] != expected[part]
            ]
            return "\n".join([f"seed {seed}, question {number}: {question!a}", *told, f"{world!a}"])
    return None


def test_every_question_is_answered_as_the_reference_answers_it() -> None:
    for seed in SEEDS:
        told = difference(seed, retrieval)
        assert told is None, told


def _another_reference() -> ModuleType:
    found = importlib.util.spec_from_file_location("another_reference", reference.__file__)
    assert found is not None
    assert found.loader is not None
    module = importlib.util.module_from_spec(found)
    found.loader.exec_module(module)
    return module


@pytest.mark.parametrize(
    ("name", "broken"),
    [
        ("_MIN_PREFIX", 4),
        ("_WIDENING", 5),
        ("RERANK_DEPTH", 11),
        ("STOP_WORDS", reference.STOP_WORDS - {"then"}),
        ("TEST_QUERY_WORDS", reference.TEST_QUERY_WORDS - {"tests"}),
        ("CALLABLE_KINDS", CALLABLE_KINDS - {"method"}),
        ("_in_scope", lambda path, scope: scope is None or path.startswith(scope)),
        ("_normalize_scope", lambda scope: scope and scope.strip(" ./")),
        ("_sentence_start", lambda message: message),
        ("_note", lambda channels: None),
        ("reads_as_code", lambda word: word != word.lower()),
        ("ranks_in_order", lambda ids: {i: rank for rank, i in enumerate(ids, 1)}),
    ],
)
def test_the_questions_tell_a_side_that_is_wrong_in_one_place(
    monkeypatch: pytest.MonkeyPatch, name: str, broken: Any
) -> None:
    other = _another_reference()
    monkeypatch.setattr(other, name, broken)
    assert any(difference(seed, other) for seed in range(500))


def _ranks(r: random.Random) -> dict[int, int]:
    ranks = [1, 1, 2, 3, 7, 62, 0, -1, -60, 2**31, 10**6]
    return {i: r.choice(ranks) for i in r.sample(generate.IDS, r.randint(0, len(generate.IDS)))}


def _rankings(r: random.Random) -> tuple[dict[str, dict[int, int]], int]:
    channels = r.sample([*reference.CHANNELS, "", "\ud800\0"], r.randint(0, 6))
    return {c: _ranks(r) for c in channels}, r.choice([60, 60, 60, 0, 1, -1, -2, 2**53 + 1])


@pytest.mark.parametrize(
    ("call", "arguments"),
    [
        ("split_identifier", lambda r: [r.choice(generate.QUERIES)(r)]),
        ("query_terms", lambda r: [r.choice(generate.QUERIES)(r)]),
        ("query_names", lambda r: [r.choice(generate.QUERIES)(r)]),
        ("reads_as_code", lambda r: [r.choice([generate.noise(r), r.choice(generate.NAMES)])]),
        ("is_test_query", lambda r: r.choices([generate.WORDS, ["Tests", "spec\0", "test\ud800"]])),
        ("ranks_in_order", lambda r: [r.choices(generate.IDS, k=r.randint(0, 9))]),
        ("reciprocal_rank_fusion", _rankings),
        ("LexicalWeights", lambda r: [generate.weight(r) for _ in range(4)]),
        ("FileWeights", lambda r: [generate.weight(r) for _ in range(3)]),
    ],
)
def test_every_function_answers_as_the_reference_does(
    call: str, arguments: Callable[[random.Random], list[Any]]
) -> None:
    r = random.Random(FIRST_SEED)
    for _ in range(2000):
        given = arguments(r)
        assert _called(retrieval, call, given) == _called(reference, call, given), ascii(given)


def _called(side: Any, call: str, given: list[Any]) -> str:
    try:
        result = getattr(side, call)(*given)
    except ZeroDivisionError:
        return "division by zero"
    return repr(result.rank_function() if hasattr(result, "rank_function") else result)


@pytest.mark.parametrize(
    "name", ["CHANNELS", "STOP_WORDS", "TEST_QUERY_WORDS", "RETRIEVABLE_KINDS"]
)
def test_every_constant_is_that_of_the_reference(name: str) -> None:
    assert getattr(retrieval, name) == getattr(reference, name)
