"""The reads of an index that retrieval makes."""

import json
import threading
from collections.abc import Collection, Iterable, Iterator, Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING

from codeindex.models.symbol import StoredSymbol
from codeindex.storage.connections import Connections

if TYPE_CHECKING:
    from codeindex.storage.vectors import VectorTable

SYMBOL_COLUMNS = "symbol.id, fqn, name, kind, path, start_line, end_line, signature, docstring"
"""The columns of a StoredSymbol, in its order, of `symbol` joined with `file`."""


@dataclass(frozen=True, slots=True)
class IndexFingerprint:
    """Identifies one state of an index: equal while nothing retrievable has changed."""

    index_id: str
    revision: int


class RetrievalQueries:
    """What a retriever reads of an index. Every method is safe from any thread, at any time."""

    def __init__(self, connections: Connections) -> None:
        """Read through `connections`, which the caller closes."""
        self._connections = connections
        self._vectors_lock = threading.Lock()
        self._vectors: tuple[tuple[int, str], VectorTable] | None = None

    def retrieval_fingerprint(self) -> IndexFingerprint:
        """Return the index's present state; costs the same however large the index is."""
        with self._connections.reading() as connection:
            row = connection.execute("SELECT index_id, revision FROM state").fetchone()
        return IndexFingerprint(*row)

    def retrievable_code_symbols(
        self, languages: Collection[str], kinds: Collection[str]
    ) -> Iterator[StoredSymbol]:
        """Yield the symbols of these languages and kinds, by path, start line and id.

        They are read as they are asked for, all from one state of the index.
        """
        # The cross join keeps the order of the two indexes, so nothing is sorted.
        statement = f"""
            SELECT {SYMBOL_COLUMNS} FROM file CROSS JOIN symbol ON symbol.file_id = file.id
            WHERE file.language IN (SELECT value FROM json_each(?))
              AND kind IN (SELECT value FROM json_each(?))
            ORDER BY file.path, start_line, symbol.id
        """
        with self._connections.reading() as connection:
            arguments = (json.dumps(sorted(languages)), json.dumps(sorted(kinds)))
            cursor = connection.execute(statement, arguments)
            try:
                for row in cursor:
                    yield StoredSymbol(*row)
            finally:
                cursor.close()

    def nearest_symbol_ids(
        self, values: Sequence[float], model: str, *, top_k: int
    ) -> list[tuple[int, float]]:
        """Return the symbols whose embeddings by `model` are nearest to `values`, by cosine.

        At most `top_k` pairs of symbol id and similarity, nearest first, equally near ones by
        id; fewer only when the index holds fewer embeddings of that model. Raises ValueError
        when `top_k` is below 1 or `values` is no vector of the model's length.
        """
        if top_k < 1:
            raise ValueError(f"top_k must be at least 1, not {top_k}")
        return self._vector_table(model).nearest(values, top_k)

    def get_symbols_by_ids(self, ids: Iterable[int]) -> dict[int, StoredSymbol]:
        """Return the symbols with these ids; ids that the index does not hold are left out."""
        statement = f"""
            SELECT {SYMBOL_COLUMNS} FROM symbol JOIN file ON file.id = symbol.file_id
            WHERE symbol.id IN (SELECT value FROM json_each(?))
        """
        with self._connections.reading() as connection:
            rows = connection.execute(statement, (json.dumps(list(ids)),)).fetchall()
        return {row[0]: StoredSymbol(*row) for row in rows}

    def _vector_table(self, model: str) -> "VectorTable":
        """Return the model's embeddings, read once for each state of the index."""
        from codeindex.storage.vectors import VectorTable

        with self._vectors_lock, self._connections.reading() as connection:
            connection.execute("BEGIN")
            try:
                (vectors,) = connection.execute("SELECT vectors FROM state").fetchone()
                if self._vectors is None or self._vectors[0] != (vectors, model):
                    rows = connection.execute(
                        "SELECT ids, scales, coarse, fine FROM vectors WHERE model = ? "
                        "ORDER BY block",
                        (model,),
                    ).fetchall()
                    self._vectors = (vectors, model), VectorTable.from_bytes(rows)
            finally:
                connection.execute("COMMIT")
            return self._vectors[1]
