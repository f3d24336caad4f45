"""Embeddings from a server, and which model an engine has."""

import json
import traceback
from typing import Any

import numpy as np
import pytest
from model_server import KEY, Request, serving

from codeindex.configuration import EmbeddingConfiguration
from codeindex.engines.embedding import EmbeddingEngine
from codeindex.engines.embedding_endpoint import EndpointModel
from codeindex.engines.endpoint import Endpoint
from codeindex.exceptions import EmbeddingModelError, TryAgainLaterError


@pytest.fixture(autouse=True)
def _key(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("TEST_MODEL_KEY", KEY)


def model_at(url: str) -> EndpointModel:
    endpoint = Endpoint("embedding", url, "words-1", "TEST_MODEL_KEY")
    return EndpointModel(endpoint, question_seconds=0.5, pause_seconds=0)


def answer_vectors(request: Request, *vectors: Any) -> None:
    entries = [{"index": i, "embedding": vector} for i, vector in enumerate(vectors)]
    request.answer(json.dumps({"data": entries[::-1]}))


def lengths(request: Request) -> None:
    answer_vectors(request, *([3 * len(text), 4 * len(text), 0] for text in request.body["input"]))


def test_texts_go_in_batches_and_come_back_in_order_as_unit_vectors() -> None:
    def first_letters(request: Request) -> None:
        answer_vectors(request, *([ord(text[0]), 1] for text in request.body["input"]))

    texts = [chr(48 + i % 70) for i in range(150)]
    with serving(first_letters) as server:
        vectors = model_at(server.url).embed_array(texts)
    assert vectors.shape == (150, 2)
    assert np.linalg.norm(vectors, axis=1) == pytest.approx(1)
    assert vectors[:, 0] / vectors[:, 1] == pytest.approx([ord(text) for text in texts], rel=1e-4)
    assert [len(request.body["input"]) for request in server.requests] == [64, 64, 22]
    assert {request.path for request in server.requests} == {"/v1/embeddings"}
    assert server.requests[0].headers["Authorization"] == f"Bearer {KEY}"


def test_an_engine_has_the_model_that_is_configured() -> None:
    with serving(lengths) as server:
        configuration = EmbeddingConfiguration("words-1", server.url, "TEST_MODEL_KEY")
        model = EmbeddingEngine(configuration).wait_ready(10)
        assert model.embed(["\ud800", "", "x" * 99999]) == [pytest.approx([0.6, 0.8, 0])] * 3
        assert model.embed([]) == []
        assert model.embed_array([]).shape == (0, 0)
        assert server.requests[0].body["input"] == ["?", " ", "x" * 8192]
    others = [("words-2", server.url), ("words-1", "http://localhost:1")]
    names = {EmbeddingEngine(EmbeddingConfiguration(*it)).wait_ready(10).name for it in others}
    assert len(names | {model.name}) == 3
    assert KEY not in repr(vars(model)) + repr(configuration) + model.name


@pytest.mark.parametrize(("status", "attempts"), [(500, 3), (429, 3), (401, 1), (400, 1), (302, 1)])
def test_only_what_may_pass_is_tried_again_and_never_for_a_question(
    status: int, attempts: int
) -> None:
    def refuse(request: Request) -> None:
        request.answer(str(request.headers["Authorization"]), status)

    kind = TryAgainLaterError if attempts > 1 else EmbeddingModelError
    with serving(refuse) as server:
        with pytest.raises(kind) as raised:
            model_at(server.url).embed_array(["text"])
        assert len(server.requests) == attempts
        told = traceback.TracebackException.from_exception(raised.value, capture_locals=True)
        assert KEY not in "".join(told.format())
        with pytest.raises(kind):
            model_at(server.url).embed(["text"])
        assert len(server.requests) == attempts + 1


def test_a_batch_survives_a_fault_and_a_question_does_not_wait_for_a_silent_server() -> None:
    def fail_once(request: Request) -> None:
        if len(request.server.requests) == 1:
            request.answer("busy", 503, Retry_After="0")
        else:
            lengths(request)

    with serving(fail_once) as server:
        assert model_at(server.url).embed_array(["a"]).shape == (1, 3)
    with serving(lambda request: request.server.stopped.wait()) as server:
        sentence = r"^The embedding model at 127\.0\.0\.1 did not answer within 0\.5 seconds$"
        with pytest.raises(TryAgainLaterError, match=sentence):
            model_at(server.url).embed(["a"])


@pytest.mark.parametrize(
    ("reply", "said"),
    [
        ('{"data": [{"index": 0, "embedding": [1, 2]}]}', "does not hold each of the 2 texts once"),
        ('[{"index": 0}]', "lists no embeddings by index"),
        (([1, 2], [1]), "lists no embeddings by index"),
        (([1, 2, 3, 4], [1, 2, 3, 4]), "vectors of 4 numbers where 3 came before"),
        (([1, 2, 3], [1, 2, float("nan")]), "not finite"),
        ((["1", "2", "3"], ["1", "2", "3"]), "other than vectors of numbers"),
        (([], []), "other than vectors of numbers"),
    ],
)
def test_an_answer_of_no_use_says_so(reply: Any, said: str) -> None:
    def behave(request: Request) -> None:
        if request.body["input"] == ["first"]:
            lengths(request)
        elif isinstance(reply, str):
            request.answer(reply)
        else:
            answer_vectors(request, *reply)

    with serving(behave) as server:
        model = model_at(server.url)
        model.embed(["first"])
        with pytest.raises(EmbeddingModelError, match=said):
            model.embed_array(["a", "b"])
        assert len(server.requests) == 2
