"""Embeddings from an OpenAI-compatible server.

A person waits for the embedding of a question, so that is tried once and given up after three
seconds. The texts of an index go in batches, each with a minute and tried again when the failure
may pass by itself.
"""

from __future__ import annotations

import threading
import time
from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

from codeindex.engines.endpoint import EndpointError
from codeindex.exceptions import EmbeddingModelError, TryAgainLaterError

if TYPE_CHECKING:
    import numpy as np
    import numpy.typing as npt

    from codeindex.engines.endpoint import Endpoint

_QUESTION_SECONDS = 3.0
_BATCH_SECONDS = 60.0
_ATTEMPTS = 3
_MAX_PAUSE_SECONDS = 30.0
_TEXTS_AT_ONCE = 64
_MAX_CHARACTERS = 8192
_MAX_ANSWER_BYTES_PER_TEXT = 262144


class EndpointModel:
    """Embeds text by asking an endpoint; its vectors have unit length. Safe from any thread."""

    def __init__(
        self,
        endpoint: Endpoint,
        *,
        question_seconds: float = _QUESTION_SECONDS,
        pause_seconds: float = 1.0,
    ) -> None:
        """Ask `endpoint`; the first pause before another attempt is so long, the next twice."""
        self.name = f"{endpoint.model} at {endpoint.url}"
        """Names the model and its server, so that no two models' vectors are ever mixed."""
        self._endpoint = endpoint
        self._question_seconds = question_seconds
        self._pause_seconds = pause_seconds
        self._lock = threading.Lock()
        self._dimensions: int | None = None

    def embed(self, texts: Sequence[str]) -> list[list[float]]:
        """Return one unit vector for each text, in order, from one request.

        Raises TryAgainLaterError when the server fails in a way that may pass by itself, being
        slow included; EmbeddingModelError when it does not, or when the answer is of no use.
        """
        if not texts:
            return []
        return self._request(texts, self._question_seconds).tolist()  # type: ignore[no-any-return]

    def embed_array(self, texts: Sequence[str]) -> npt.NDArray[np.float32]:
        """Return the unit vectors of the texts as the rows of an array (texts x dimensions).

        Only the first 8192 characters of a text count. Raises as `embed` does, after three
        attempts where another may help.
        """
        import numpy as np

        batches = [
            self._persistently(texts[start : start + _TEXTS_AT_ONCE])
            for start in range(0, len(texts), _TEXTS_AT_ONCE)
        ]
        return np.concatenate(batches) if batches else np.zeros((0, 0), np.float32)

    def _persistently(self, texts: Sequence[str]) -> npt.NDArray[np.float32]:
        pause = self._pause_seconds
        for _ in range(_ATTEMPTS - 1):
            try:
                return self._request(texts, _BATCH_SECONDS)
            except TryAgainLaterError as error:
                wanted = getattr(error.__cause__, "retry_after", 0)
                time.sleep(min(max(pause, wanted), _MAX_PAUSE_SECONDS))
                pause *= 2
        return self._request(texts, _BATCH_SECONDS)

    def _request(self, texts: Sequence[str], seconds: float) -> npt.NDArray[np.float32]:
        # Servers refuse a text without a character.
        inputs = [text[:_MAX_CHARACTERS] or " " for text in texts]
        try:
            return self._endpoint.post(
                "/embeddings",
                {"model": self._endpoint.model, "input": inputs},
                lambda reply: self._vectors(reply, len(texts)),
                seconds=seconds,
                max_bytes=_MAX_ANSWER_BYTES_PER_TEXT * len(texts),
            )
        except EndpointError as error:
            message = str(error)
            if error.passing:
                raise TryAgainLaterError(message.removesuffix(".")) from error
            raise EmbeddingModelError(message) from None

    def _vectors(self, reply: Any, count: int) -> npt.NDArray[np.float32]:
        import numpy as np

        try:
            entries = sorted(reply["data"], key=lambda entry: entry["index"])
            indexes = [entry["index"] for entry in entries]
            vectors = np.array([entry["embedding"] for entry in entries])
        except (TypeError, KeyError, ValueError):
            raise self._unusable("lists no embeddings by index") from None
        if indexes != list(range(count)):
            raise self._unusable(f"does not hold each of the {count} texts once")
        if vectors.ndim != 2 or vectors.shape[1] == 0 or vectors.dtype.kind not in "if":
            raise self._unusable("holds something other than vectors of numbers")
        vectors = vectors.astype(np.float64)
        with np.errstate(over="ignore"):
            norms = np.linalg.norm(vectors, axis=1, keepdims=True)
        if not np.isfinite(norms).all():
            raise self._unusable("holds numbers that are not finite")
        with self._lock:
            expected = self._dimensions = self._dimensions or vectors.shape[1]
        if vectors.shape[1] != expected:
            raise self._unusable(
                f"holds vectors of {vectors.shape[1]} numbers where {expected} came before"
            )
        np.divide(vectors, norms, out=vectors, where=norms > 0)
        return vectors.astype(np.float32)

    def _unusable(self, what: str) -> EndpointError:
        return self._endpoint.error(
            f"gave an answer that {what}; check embedding.url and embedding.model."
        )
