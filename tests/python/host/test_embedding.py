"""The embedding model and its loading."""

import threading

import numpy as np
import pytest

import codeindex.engines.embedding as embedding
from codeindex.engines.embedding import EmbeddingEngine
from codeindex.exceptions import EmbeddingModelError, EmbeddingNotReadyError


def test_vectors_are_unit_means_of_their_words_whatever_the_batch(engine: EmbeddingEngine) -> None:
    model = engine.wait_ready(0)
    texts = [f"merge the rankings {i} of all channels" for i in range(40)]
    texts[3], texts[5] = "", "lone \ud800 surrogate"
    many = model.embed_array(texts)
    assert many.shape == (40, 256)
    assert many.dtype == np.float32
    lengths = np.linalg.norm(many, axis=1)
    assert lengths[3] == 0
    assert np.delete(lengths, 3) == pytest.approx(1, abs=1e-5)
    alone = np.array([model.embed([text])[0] for text in texts])
    assert alone == pytest.approx(many, abs=1e-6)
    assert model.embed([]) == []


def test_meaning_counts(engine: EmbeddingEngine) -> None:
    question, near, far = engine.wait_ready(0).embed_array(
        ["where is the user's password checked", "verify login credentials", "draw a red circle"]
    )
    assert question @ near > question @ far + 0.1


def test_nothing_waits_for_a_loading_model_and_a_failed_one_says_why(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    begun = threading.Event()

    def load() -> None:
        begun.wait()
        raise FileNotFoundError("no weights")

    monkeypatch.setattr(embedding, "_load_model", load)
    engine = EmbeddingEngine()
    with pytest.raises(EmbeddingNotReadyError, match=r"^The embedding model is still loading$"):
        engine.wait_ready(0)
    begun.set()
    with pytest.raises(EmbeddingModelError, match="no weights"):
        engine.wait_ready(60)
