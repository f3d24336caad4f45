"""The kinds of symbol that an index holds, and the stored symbol itself."""

from dataclasses import dataclass

CALLABLE_KINDS: frozenset[str] = frozenset({"function", "macro", "method"})
"""The kinds of symbol that can be called."""

DECLARATION_KINDS: frozenset[str] = CALLABLE_KINDS | {
    "class",
    "constant",
    "enum",
    "interface",
    "struct",
    "trait",
    "type",
    "union",
}
"""The kinds of symbol that define something; a "module" stands for its file and is none of them."""


@dataclass(frozen=True, slots=True)
class ExtractedSymbol:
    """One symbol as it was read from a file, not yet in an index; fields as in StoredSymbol."""

    fqn: str
    name: str
    kind: str
    start_line: int
    end_line: int
    signature: str | None
    docstring: str | None


@dataclass(frozen=True, slots=True)
class StoredSymbol:
    """One symbol of the index.

    `id` is unique in the index and stays with the symbol while its file is unchanged. `path` is
    relative to the repository root, with forward slashes. Lines count from 1 and both belong to
    the symbol. `signature` is one line without the body; `docstring` is free of comment markers.
    """

    id: int
    fqn: str
    name: str
    kind: str
    path: str
    start_line: int
    end_line: int
    signature: str | None
    docstring: str | None
