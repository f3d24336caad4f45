"""What a retriever needs of its host: the types of its collaborators, and one adapter.

All collaborators are called from the threads that ask questions, several at the same time.
"""

from collections.abc import Callable, Iterable, Mapping, Sequence
from typing import Any, Protocol, TypeAlias

from codeindex.workers.retrieval.records import QueryVector

__all__ = [
    "EmbeddingBackend",
    "EmbeddingEngine",
    "QueryEmbedder",
    "Repository",
    "RerankClient",
    "StoredSymbol",
    "engine_query_embedder",
]


class StoredSymbol(Protocol):
    """One symbol of the index; a retriever reads these attributes and no others."""

    @property
    def id(self) -> int:
        """Unique in the index, 64 bits."""

    @property
    def fqn(self) -> str:
        """Fully qualified name."""

    @property
    def name(self) -> str:
        """Its own name, as written in code."""

    @property
    def kind(self) -> str:
        """One of `RETRIEVABLE_KINDS`."""

    @property
    def path(self) -> str:
        """Its file, relative to the repository root, with forward slashes."""

    @property
    def start_line(self) -> int:
        """First line in its file."""

    @property
    def end_line(self) -> int:
        """Last line in its file."""

    @property
    def signature(self) -> str | None:
        """Signature, if it has one."""

    @property
    def docstring(self) -> str | None:
        """Docstring or comment, if it has one."""


class Repository(Protocol):
    """The index of one repository."""

    def retrieval_fingerprint(self) -> object:
        """Identify the index's state: equal exactly while nothing retrievable changed.

        Asked once per question; it must be cheap, whatever the number of symbols.
        """

    def retrievable_code_symbols(
        self, languages: frozenset[str], kinds: frozenset[str], /
    ) -> Iterable[StoredSymbol]:
        """List the symbols of these languages and kinds, each id once; read once per state."""

    def nearest_symbol_ids(
        self, values: Sequence[float], model: str, /, *, top_k: int
    ) -> Sequence[tuple[int, float]]:
        """Return (id, similarity) of the `top_k` stored embeddings of `model` nearest by cosine.

        Most similar first; fewer than `top_k` only when the store holds fewer of that model.
        """

    def get_symbols_by_ids(self, ids: list[int], /) -> Mapping[int, StoredSymbol]:
        """Return the stored symbols by id, without the ids that the index no longer holds."""


#: Embeds the text of a query. Never waits for a model: while it cannot answer it raises
#: `codeindex.exceptions.TryAgainLaterError`.
QueryEmbedder: TypeAlias = Callable[[str], QueryVector]


class RerankClient(Protocol):
    """The decision client that a rerank asks."""

    def feature_enabled(self, name: str, /) -> bool:
        """Whether the client is usable and the switch of this name is on; must not fail."""

    def decide(self, state: Any, questions: Any, /, *, question_version: str) -> Any:
        """Make one model call of at most 3 seconds; every failure is a `DecisionError`."""


class EmbeddingBackend(Protocol):
    """A loaded embedding model."""

    @property
    def name(self) -> str:
        """The model's name, as the stored embeddings of it carry it."""

    def embed(self, texts: list[str], /) -> Sequence[Sequence[float]]:
        """Return one vector per text, in order."""


class EmbeddingEngine(Protocol):
    """An embedding engine that loads its model in its own time."""

    def wait_ready(self, timeout: float, /) -> EmbeddingBackend:
        """Return the backend, or raise `EmbeddingNotReadyError` after `timeout` seconds."""


def engine_query_embedder(engine: EmbeddingEngine) -> QueryEmbedder:
    """Make a query embedder of an engine. It never waits, and passes every error on unchanged."""

    def embed(text: str) -> QueryVector:
        backend = engine.wait_ready(0)
        vectors = backend.embed([text])
        return QueryVector(vectors[0], backend.name)

    return embed
