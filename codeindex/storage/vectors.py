"""Exact nearest neighbours by cosine over the stored embeddings of one model.

A number of a vector is kept as 16 bits, 256 times a coarse part plus a fine one, in units of its
vector's scale: closer than half precision. One pass over the coarse bytes of all vectors leaves
a few that may be among the nearest; their whole numbers decide.
"""

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Self

import numpy as np
import numpy.typing as npt

_LARGEST = 127 * 256 + 127
_MOST_FINE = np.int16(128)
_ROWS_AT_ONCE = 512  # as single-precision numbers they stay within a core's cache
_ROUNDING = 1e-5  # more than single-precision products of unit vectors are off


@dataclass(frozen=True, slots=True, eq=False)
class VectorTable:
    """Embeddings of one model: row i of the arrays belongs to the symbol `ids`[i].

    `coarse` and `fine` are n x d; `scales` makes unit vectors of them. Immutable, so any number
    of threads may search it.
    """

    ids: npt.NDArray[np.int64]
    scales: npt.NDArray[np.float32]
    coarse: npt.NDArray[np.int8]
    fine: npt.NDArray[np.int8]

    @classmethod
    def from_vectors(
        cls, ids: npt.NDArray[np.int64], vectors: npt.NDArray[np.floating]
    ) -> "VectorTable":
        """Make a table of the rows of an array (n x d); all that counts is their direction."""
        largest = np.abs(vectors).max(axis=1, initial=0, keepdims=True)
        units = np.divide(_LARGEST, largest, where=largest > 0, out=np.zeros_like(largest))
        whole = np.rint(vectors * units).astype(np.int16)
        norms = np.sqrt(np.einsum("ij,ij->i", whole, whole, dtype=np.float64))
        scales = np.divide(1, norms, where=norms > 0, out=norms).astype(np.float32)
        coarse = (whole + _MOST_FINE) >> 8
        return cls(ids, scales, coarse.astype(np.int8), (whole - (coarse << 8)).astype(np.int8))

    @classmethod
    def from_bytes(cls, rows: Sequence[tuple[bytes, bytes, bytes, bytes]]) -> "VectorTable":
        """Make a table of what `to_bytes` gave of others of the same model."""
        ids, scales, coarse, fine = (
            b"".join(column) for column in (zip(*rows, strict=True) if rows else [()] * 4)
        )
        shape = len(ids) // 8, len(coarse) * 8 // len(ids) if ids else 0
        return cls(
            np.frombuffer(ids, np.int64),
            np.frombuffer(scales, np.float32),
            np.frombuffer(coarse, np.int8).reshape(shape),
            np.frombuffer(fine, np.int8).reshape(shape),
        )

    def to_bytes(self) -> tuple[bytes, bytes, bytes, bytes]:
        """Return the arrays as they are stored."""
        return (
            self.ids.tobytes(),
            self.scales.tobytes(),
            self.coarse.tobytes(),
            self.fine.tobytes(),
        )

    def followed_by(self, other: Self) -> Self:
        """Return the table of both tables' rows."""
        return type(self)(
            np.concatenate((self.ids, other.ids)),
            np.concatenate((self.scales, other.scales)),
            np.concatenate((self.coarse, other.coarse)),
            np.concatenate((self.fine, other.fine)),
        )

    def rows(self, which: npt.NDArray[np.bool_] | npt.NDArray[np.intp]) -> Self:
        """Return the table of these rows."""
        return type(self)(self.ids[which], self.scales[which], self.coarse[which], self.fine[which])

    def nearest(self, values: Sequence[float], top_k: int) -> list[tuple[int, float]]:
        """Return at most `top_k` pairs of id and cosine, nearest first, equals by id.

        Raises ValueError when `values` is no vector of finite numbers of the stored length.
        """
        if not len(self.ids):
            return []
        query = np.asarray(values, dtype=np.float64)
        if query.shape != self.coarse.shape[1:] or not np.isfinite(query).all():
            raise ValueError(
                f"a query vector needs {self.coarse.shape[1]} finite numbers, "
                f"not an array of shape {query.shape}"
            )
        norm = np.linalg.norm(query)
        query = query / norm if norm > 0 else query
        near = self._candidates(query, top_k)
        # The rounding of a matrix product depends on where a row stands; the sum of one row does
        # not, so equal vectors are equally near.
        exact = np.concatenate(
            [
                (self.rows(chunk)._unit_vectors() * query).sum(axis=1)
                for chunk in np.array_split(near, len(near) // _ROWS_AT_ONCE + 1)
            ]
        )
        ids = self.ids[near]
        order = np.lexsort((ids, -exact))[:top_k]
        return list(zip(ids[order].tolist(), exact[order].tolist(), strict=True))

    def _unit_vectors(self) -> npt.NDArray[np.float64]:
        whole = 256 * self.coarse.astype(np.float64) + self.fine
        return whole * self.scales[:, np.newaxis].astype(np.float64)

    def _candidates(self, query: npt.NDArray[np.float64], top_k: int) -> npt.NDArray[np.intp]:
        """Return the rows that may be among the `top_k` nearest, judged by their coarse part."""
        count, length = self.coarse.shape
        if top_k >= count:
            return np.arange(count)
        single = query.astype(np.float32)
        rough = np.empty(count, dtype=np.float32)
        block = np.empty((_ROWS_AT_ONCE, length), dtype=np.float32)
        for start in range(0, count, _ROWS_AT_ONCE):
            end = min(start + _ROWS_AT_ONCE, count)
            np.copyto(block[: end - start], self.coarse[start:end])
            np.dot(block[: end - start], single, out=rough[start:end])
        rough *= 256 * self.scales
        # The fine part of a vector is no longer than the square root of d times its most.
        error = self.scales * np.float32(float(_MOST_FINE) * length**0.5) + np.float32(_ROUNDING)
        least = np.partition(rough - error, count - top_k)[count - top_k]
        return np.flatnonzero(rough + error >= least)
