"""The test-path rule, the rerank's answer and what a decision model is shown."""

import math

import pytest

from codeindex.engines.decision import (
    DecisionClient,
    DecisionError,
    DecisionResult,
    rerank_order,
    rerank_request,
)
from codeindex.engines.decision_text import candidate_line, source_consented
from codeindex.utils.path_filter import is_test_path

TESTS = """
test_app.py pkg/app_test.py pkg/conftest.py tests.py tests/helpers.py a/tests/data/x.json
src/test/java/org/Foo.java src/FooTest.java src/TestFoo.java src/FooIT.java lib/FooTests.cs
Foo.Tests/Bar.cs app/src/androidTest/java/Foo.kt FooTest.kt FooSpec.scala foo/foo_test.go
internal/testdata/x.go foo.spec.ts foo.test.js foo.test.tsx src/__tests__/foo.js src/__mocks__/fs.js
foo-test.js cypress/login.cy.ts foo_spec.rb spec/models/user.rb test/test_helper.rb foo_test.rs
src/tests.rs base/foo_unittest.cc test_foo.c foo_test.cpp FooTests.swift Tests/AppTests/Foo.swift
foo_test.exs FooTest.php foo_test.dart runtests.jl foo_SUITE.erl FooSpec.hs foo_spec.lua
fixtures/a.py integration-tests/run.py e2e/login.ts test.js test-utils.ts
"""

NOT_TESTS = """
latest.py contest/entry.py testimony.go attest.py protest.rs greatest/hits.py Contest.java
src/testing.py flask/testing.py manifest.js Latest.java javax/crypto/spec/SecretKeySpec.java
openapi_spec.py spec/parser.py detest/x.c fastest.cc inspect.py suite.py unit.py IT.java
src/EDIT.java Testimony.java tester.py
"""


@pytest.mark.parametrize("path", TESTS.split())
def test_a_test_path_is_known(path: str) -> None:
    assert is_test_path(path)


@pytest.mark.parametrize("path", NOT_TESTS.split())
def test_a_path_that_only_sounds_like_a_test_is_none(path: str) -> None:
    assert not is_test_path(path)


def test_the_order_is_by_probability_then_by_position() -> None:
    answer = DecisionResult((("2", 0.5), ("0", 0.25), ("3", 1), ("1", 0.5)))
    assert rerank_order(answer, 4) == [3, 1, 2, 0]


@pytest.mark.parametrize(
    ("probabilities", "named"),
    [
        ((("0", 0.5),), "left out candidate 1"),
        ((("0", 0.5), ("0", 0.5), ("1", 0.5)), "candidate 0 twice"),
        ((("0", 0.5), ("1", 0.5), ("2", 0.5)), "candidate '2'"),
        ((("0", 0.5), ("1", math.nan)), "nan"),
        ((("0", 0.5), ("1", math.inf)), "inf"),
        ((("0", 1.5), ("1", 0.5)), "1.5"),
        ((("0", -0.1), ("1", 0.5)), "-0.1"),
        ((("0", True), ("1", 0.5)), "True"),
        ((("0", "0.4"), ("1", 0.5)), "'0.4'"),
    ],
)
def test_an_answer_that_cannot_order_the_candidates_is_refused(
    probabilities: tuple[tuple[str, float], ...], named: str
) -> None:
    with pytest.raises(DecisionError, match=named.replace(".", r"\.")):
        rerank_order(DecisionResult(probabilities), 2)


def test_without_a_model_every_switch_is_off_and_a_decision_fails() -> None:
    client = DecisionClient()
    assert not client.feature_enabled("explore_rerank_results")
    with pytest.raises(DecisionError, match="No decision model is configured"):
        client.decide(*rerank_request("q", ["a", "b"]), question_version="1")


def test_the_docstring_is_shown_only_with_consent_and_on_one_line() -> None:
    arguments = ("app.run", "function", "Run it.\nReally\x1b[2J.", "def run(\n  host)")
    hidden = candidate_line(*arguments, source_consented(object()), path="app.py")
    assert hidden == "function app.run in app.py: def run( host)"
    shown = candidate_line(*arguments, True, path="app.py")
    assert shown == "function app.run in app.py: def run( host) | Run it. Really?[2J."
    assert len(candidate_line("f", "function", "x" * 9999, "y" * 9999, True, path="p")) < 800
