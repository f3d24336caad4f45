"""The engine that has the embedding model ready, and the model it has unless told otherwise.

That one is static: word vectors that come with the wordllama package, pooled by mean. Nothing is
downloaded and nothing of that package is run; only its two data files are read.
"""

from __future__ import annotations

import hashlib
import importlib.util
import threading
from collections.abc import Sequence
from pathlib import Path
from typing import TYPE_CHECKING, Protocol

from codeindex.configuration import STATIC_MODEL, EmbeddingConfiguration
from codeindex.exceptions import EmbeddingModelError, EmbeddingNotReadyError

if TYPE_CHECKING:
    import numpy as np
    import numpy.typing as npt
    from tokenizers import Tokenizer

_PACKAGE = "wordllama"
_TOKENIZER_FILE = Path("tokenizers", "l2_supercat_tokenizer_config.json")
_WEIGHTS_FILE = Path("weights", "l2_supercat_256.safetensors")
_MAX_CHARACTERS = 8192
_TEXTS_AT_ONCE = 1024
_TEXTS_PER_SUM = 32  # keeps the gathered rows within a core's cache
_BATCH_FROM = 16


class EmbeddingModel(Protocol):
    """A model that is ready. Safe from any thread."""

    @property
    def name(self) -> str:
        """Names the model; another model, or other weights, have another name."""

    def embed(self, texts: Sequence[str]) -> list[list[float]]:
        """Return one vector for each text, in order, soon: for questions that people wait for."""

    def embed_array(self, texts: Sequence[str]) -> npt.NDArray[np.float32]:
        """Return the vectors of any number of texts as the rows of an array."""


class StaticModel:
    """Embeds text as the mean of its tokens' vectors. Immutable; safe from any thread."""

    def __init__(self, name: str, tokenizer: Tokenizer, vectors: npt.NDArray[np.float32]) -> None:
        """Use the tokenizer's ids as rows of `vectors` (tokens x dimensions)."""
        self.name = name
        """Names the model; another model, or other weights, have another name."""
        self._tokenizer = tokenizer
        self._vectors = vectors

    def embed(self, texts: Sequence[str]) -> list[list[float]]:
        """Return one unit vector for each text, in order; a text without words gives zeros."""
        return self.embed_array(texts).tolist()  # type: ignore[no-any-return]

    def embed_array(self, texts: Sequence[str]) -> npt.NDArray[np.float32]:
        """Return the unit vectors of the texts as the rows of an array (texts x dimensions).

        Only the first 8192 characters of a text count. Many texts are split into tokens by
        several threads of the tokenizer's own; a few are not, so that a question starts none.
        """
        import numpy as np

        result = np.zeros((len(texts), self._vectors.shape[1]), dtype=np.float32)
        for start in range(0, len(texts), _TEXTS_AT_ONCE):
            token_ids = self._token_ids(texts[start : start + _TEXTS_AT_ONCE])
            for first in range(0, len(token_ids), _TEXTS_PER_SUM):
                block = token_ids[first : first + _TEXTS_PER_SUM]
                lengths = np.array([len(ids) for ids in block])
                filled = np.flatnonzero(lengths)
                if not len(filled):
                    continue
                rows = self._vectors[np.concatenate([np.array(block[i]) for i in filled])]
                offsets = np.cumsum(lengths[filled]) - lengths[filled]
                sums = np.add.reduceat(rows, offsets, axis=0)
                # The length of a sum and of a mean differ, their direction does not.
                norms = np.linalg.norm(sums, axis=1, keepdims=True)
                result[start + first + filled] = np.divide(sums, norms, where=norms > 0, out=sums)
        return result

    def _token_ids(self, texts: Sequence[str]) -> list[list[int]]:
        clean = [text[:_MAX_CHARACTERS].encode("utf-8", "replace").decode() for text in texts]
        if len(clean) < _BATCH_FROM:
            encode = self._tokenizer.encode
            return [encode(text, add_special_tokens=False).ids for text in clean]
        encodings = self._tokenizer.encode_batch_fast(clean, add_special_tokens=False)
        return [encoding.ids for encoding in encodings]


class EmbeddingEngine:
    """Loads the configured model in the background, from the moment it is made.

    Safe from any thread.
    """

    def __init__(self, configuration: EmbeddingConfiguration | None = None) -> None:
        """Start loading the model of that configuration, by default the static one."""
        self._configuration = configuration or EmbeddingConfiguration()
        self._loaded = threading.Event()
        self._model: EmbeddingModel | None = None
        self._problem: Exception | None = None
        threading.Thread(target=self._load, name="embedding-model").start()

    def wait_ready(self, timeout_seconds: float) -> EmbeddingModel:
        """Return the model, waiting for it at most so long; 0 does not wait.

        Raises EmbeddingNotReadyError while it still loads, EmbeddingModelError when it cannot be
        loaded.
        """
        if not self._loaded.wait(timeout_seconds):
            raise EmbeddingNotReadyError("The embedding model is still loading")
        if self._model is None:
            raise EmbeddingModelError(
                f"The embedding model cannot be loaded ({self._problem}). "
                f"Install the package {_PACKAGE} again."
            ) from self._problem
        return self._model

    def _load(self) -> None:
        try:
            url = self._configuration.url
            if url is None or self._configuration.model == STATIC_MODEL:
                self._model = _load_model()
            else:
                self._model = _endpoint_model(url, self._configuration)
        except Exception as error:
            self._problem = error
        finally:
            self._loaded.set()


def _endpoint_model(url: str, configuration: EmbeddingConfiguration) -> EmbeddingModel:
    from codeindex.engines.embedding_endpoint import EndpointModel
    from codeindex.engines.endpoint import Endpoint

    return EndpointModel(
        Endpoint("embedding", url, configuration.model, configuration.key_variable)
    )


def _load_model() -> StaticModel:
    import numpy as np
    from safetensors.numpy import load
    from tokenizers import Tokenizer

    spec = importlib.util.find_spec(_PACKAGE)
    if spec is None or not spec.submodule_search_locations:
        raise FileNotFoundError(f"no package named {_PACKAGE}")
    folder = Path(spec.submodule_search_locations[0])
    tokenizer_json = (folder / _TOKENIZER_FILE).read_bytes()
    weights = (folder / _WEIGHTS_FILE).read_bytes()
    digest = hashlib.sha256(tokenizer_json + weights).hexdigest()[:8]
    (vectors,) = load(weights).values()
    tokenizer = Tokenizer.from_buffer(tokenizer_json)
    tokenizer.no_padding()
    tokenizer.no_truncation()
    return StaticModel(
        f"{_WEIGHTS_FILE.stem}-{digest}", tokenizer, np.ascontiguousarray(vectors, dtype=np.float32)
    )
