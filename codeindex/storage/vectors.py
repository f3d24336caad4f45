"""Exact nearest neighbours by cosine over the stored embeddings of one model."""

from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

STORED_TYPE = np.dtype("<f2")
"""How the numbers of a stored vector are kept."""

_SLACK = 1e-4  # more than two single-precision products of unit vectors can differ
_ROWS_AT_ONCE = 8192


@dataclass(frozen=True, slots=True, eq=False)
class VectorTable:
    """The embeddings of one model: row i of `matrix` (n x d, unit length) is that of `ids`[i].

    Immutable, so any number of threads may search it.
    """

    ids: npt.NDArray[np.int64]
    matrix: npt.NDArray[np.float32]

    @classmethod
    def from_rows(cls, rows: Sequence[tuple[int, bytes]]) -> "VectorTable":
        """Make the table from pairs of symbol id and stored vector, all of one length."""
        ids = np.array([row[0] for row in rows], dtype=np.int64)
        stored = np.frombuffer(b"".join(row[1] for row in rows), dtype=STORED_TYPE)
        matrix = stored.reshape(len(rows), -1 if rows else 0).astype(np.float32)
        norms = np.linalg.norm(matrix, axis=1, keepdims=True)
        np.divide(matrix, norms, out=matrix, where=norms > 0)
        return cls(ids, matrix)

    def nearest(self, values: Sequence[float], top_k: int) -> list[tuple[int, float]]:
        """Return at most `top_k` pairs of id and cosine, nearest first, equals by id.

        Raises ValueError when `values` is no vector of finite numbers of the stored length.
        """
        if not len(self.ids):
            return []
        query = np.asarray(values, dtype=np.float64)
        if query.shape != (self.matrix.shape[1],) or not np.isfinite(query).all():
            raise ValueError(
                f"a query vector needs {self.matrix.shape[1]} finite numbers, "
                f"not an array of shape {query.shape}"
            )
        norm = np.linalg.norm(query)
        query = query / norm if norm > 0 else query
        rows = self._candidates(query, top_k)
        # The rounding of a matrix product depends on where a row stands; the sum of one row does
        # not, so equal vectors are equally near.
        exact = np.concatenate(
            [
                (self.matrix[chunk] * query).sum(axis=1)
                for chunk in np.array_split(rows, len(rows) // _ROWS_AT_ONCE + 1)
            ]
        )
        ids = self.ids[rows]
        order = np.lexsort((ids, -exact))[:top_k]
        return list(zip(ids[order].tolist(), exact[order].tolist(), strict=True))

    def _candidates(self, query: npt.NDArray[np.float64], top_k: int) -> npt.NDArray[np.intp]:
        """Return the rows that may be among the `top_k` nearest, judged in single precision."""
        if top_k >= len(self.ids):
            return np.arange(len(self.ids))
        rough = self.matrix @ query.astype(np.float32)
        least = np.partition(rough, len(rough) - top_k)[len(rough) - top_k]
        return np.flatnonzero(rough >= least - _SLACK)
