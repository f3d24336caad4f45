"""The decision client against a server that does everything a server should not."""

import json
import logging
import socket
import threading
import time
import traceback
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor

import pytest
from model_server import KEY, Request, serving

from codeindex.configuration import DecisionConfiguration
from codeindex.engines.decision import (
    RERANK_QUESTION_VERSION,
    DecisionClient,
    DecisionError,
    DecisionResult,
    rerank_order,
    rerank_request,
)

FEATURE = "explore_rerank_results"


def client(url: str | None, deadline_seconds: float = 20, **options: bool) -> DecisionClient:
    configuration = DecisionConfiguration(url, "judge", "TEST_MODEL_KEY", **options)
    return DecisionClient(configuration, deadline_seconds=deadline_seconds)


def rerank(decisions: DecisionClient) -> list[int]:
    request = rerank_request("where is \ud800 it?", ["first", "second", "third"])
    answer = decisions.decide(*request, question_version=RERANK_QUESTION_VERSION)
    return rerank_order(answer, 3)


def completion(text: object) -> Callable[[Request], None]:
    reply = json.dumps({"choices": [{"message": {"role": "assistant", "content": text}}]})
    return lambda request: request.answer(reply)


def flood(request: Request) -> None:
    request.wfile.write(b"HTTP/1.0 200 OK\r\n\r\n")
    while True:
        request.wfile.write(b" " * 65536)


def drip(request: Request) -> None:
    request.wfile.write(b"HTTP/1.0 200 OK\r\n\r\n")
    while not request.server.stopped.wait(0.02):
        request.wfile.write(b" ")


def echo(status: int) -> Callable[[Request], None]:
    def behave(request: Request) -> None:
        seen = str(request.headers["Authorization"])
        request.answer(seen, status, Location=f"http://127.0.0.1:1/{seen}", Retry_After=seen)

    return behave


def raw(content: bytes) -> Callable[[Request], object]:
    return lambda request: request.wfile.write(content)


GOOD = '{"0": 0.2, "1": 1, "2": 0.9}'
LATE = "did not answer within 0.3 seconds"
NOT_ONE_OBJECT = "did not answer with one JSON object"
BROKEN = "broke off, or does not speak HTTP"


@pytest.fixture(autouse=True)
def _key(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("TEST_MODEL_KEY", f" {KEY}\n")


@pytest.mark.parametrize("text", [GOOD, f"```json\n{GOOD}\n```", f"Gladly: {GOOD}. Anything else?"])
def test_the_model_is_asked_once_and_orders_the_candidates(text: str) -> None:
    with serving(completion(text)) as server:
        assert rerank(client(server.url + "/")) == [1, 2, 0]
    (request,) = server.requests
    assert request.path == "/v1/chat/completions"
    assert request.headers["Authorization"] == f"Bearer {KEY}"
    assert request.body["model"] == "judge"
    asked = json.loads(request.body["messages"][-1]["content"])
    assert asked["state"]["question"] == "where is ? it?"
    assert asked["questions"] == {"0": "first", "1": "second", "2": "third"}


HOSTILE: dict[str, tuple[Callable[[Request], object], str]] = {
    "silent": (lambda request: request.server.stopped.wait(), LATE),
    "dripping": (drip, LATE),
    "cut off in the body": (raw(b"HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n{"), BROKEN),
    "another protocol": (raw(b"SSH-2.0-" + KEY.encode() + b"\r\n"), BROKEN),
    "flooding": (flood, "more than 262,144 bytes"),
    "no JSON": (lambda request: request.answer(KEY), "no JSON"),
    "nested too deeply": (lambda request: request.answer("[" * 200_000), "no JSON"),
    "JSON of another kind": (lambda request: request.answer('{"choices": []}'), "no chat"),
    "no text": (completion(None), "no chat completion"),
    "prose": (completion(f"The second, {KEY}."), NOT_ONE_OBJECT),
    "two objects": (completion(GOOD + " or " + GOOD), NOT_ONE_OBJECT),
    "a list": (completion("[0.2, 1, 0.9]"), NOT_ONE_OBJECT),
    "unknown": (completion(json.dumps({KEY: 0.5})), "question that was not asked"),
    "text for a number": (completion(json.dumps({"0": KEY})), "no number as the answer to '0'"),
    "out of range": (completion('{"0": 0.2, "1": 85, "2": 0.9}'), "candidate 1 the probability 85"),
    "huge": (completion('{"0": %s, "1": 1, "2": 1}' % ("9" * 999)), "0 the probability inf"),
    "twice": (completion('{"0": 0.2, "1": 1, "2": 0.9, "1": 0}'), "candidate 1 twice"),
    "redirect": (echo(307), "redirects, which is not followed"),
    "unauthorized": (echo(401), "variable named in decision.key_variable"),
    "not found": (echo(404), "check decision.url and .model"),
    "too many": (echo(429), "no capacity or credit"),
    "fault": (echo(500), "has a fault"),
    "bad request": (echo(400), "refuses the request; check decision.model .status 400"),
}


@pytest.mark.parametrize(("behave", "said"), HOSTILE.values(), ids=HOSTILE)
def test_a_bad_answer_is_one_sentence_without_the_key(
    behave: Callable[[Request], object], said: str, caplog: pytest.LogCaptureFixture
) -> None:
    caplog.set_level(logging.DEBUG)
    started = time.monotonic()
    with serving(behave) as server:
        decisions = client(server.url, 0.3 if said is LATE else 20)
        with pytest.raises(DecisionError, match=said) as raised:
            rerank(decisions)
        assert time.monotonic() - started < 15
        assert len(server.requests) == 1
        for thread in [it for it in threading.enumerate() if it.name == "decision-model"]:
            thread.join(10)  # the server goes on, but what was given up ends
            assert not thread.is_alive()
    told = traceback.TracebackException.from_exception(raised.value, capture_locals=True)
    shown = "".join(told.format()) + caplog.text + repr(decisions) + repr(vars(decisions))
    assert KEY not in shown
    assert "\n" not in str(raised.value)


def test_nobody_waits_for_an_address_where_nothing_speaks(monkeypatch: pytest.MonkeyPatch) -> None:
    with socket.create_server(("127.0.0.1", 0)) as listening:
        address = f"127.0.0.1:{listening.getsockname()[1]}"
        with pytest.raises(DecisionError, match=LATE):
            rerank(client(f"https://{address}", 0.3))
    with pytest.raises(DecisionError, match="refuses connections; is it running"):
        rerank(client(f"http://{address}"))
    with serving(completion(GOOD)) as server, pytest.raises(DecisionError, match="speak TLS"):
        rerank(client(server.url.replace("http:", "https:")))
    resolving = threading.Event()
    monkeypatch.setattr(socket, "getaddrinfo", lambda *_, **__: resolving.wait())
    with pytest.raises(DecisionError, match=LATE):
        rerank(client("http://models.example", 0.3))
    resolving.set()


def test_the_answers_of_threads_do_not_mix() -> None:
    def behave(request: Request) -> None:
        ((key, value),) = json.loads(request.body["messages"][-1]["content"])["questions"].items()
        completion(json.dumps({key: value}))(request)

    with serving(behave) as server, ThreadPoolExecutor(8) as threads:
        decisions = client(server.url)

        def ask(n: int) -> DecisionResult:
            return decisions.decide({}, {str(n): n / 10}, question_version="1")

        answers = threads.map(ask, range(1, 9))
        assert [it.probabilities for it in answers] == [((str(n), n / 10),) for n in range(1, 9)]


def test_a_switch_is_on_only_for_a_usable_client(monkeypatch: pytest.MonkeyPatch) -> None:
    url = "http://localhost:1"
    assert client(url).feature_enabled(FEATURE)
    assert not client(url).feature_enabled("another")
    assert not client(url).source_consented
    assert client(url, show_source=True).source_consented
    off = client(url, explore_rerank_results=False)
    assert off.why_disabled(FEATURE) == f"The switch decision.{FEATURE} is off."
    assert "No decision model" in str(client(None).why_disabled(FEATURE))
    for key, said in (
        (f"{KEY}\r\nX: y", "holds no key"),
        ("ключ", "holds no key"),
        (" ", "not set"),
    ):
        monkeypatch.setenv("TEST_MODEL_KEY", key)
        assert said in str(client(url).why_disabled(FEATURE))
        with pytest.raises(DecisionError, match=said) as raised:
            rerank(client(url))
        assert KEY not in str(raised.value)


def test_what_json_cannot_hold_is_a_decision_error() -> None:
    with pytest.raises(DecisionError, match="cannot be written as JSON"):
        client("http://localhost:1").decide(object(), {}, question_version="1")
