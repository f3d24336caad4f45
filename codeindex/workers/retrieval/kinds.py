"""Which kinds of symbol take part in retrieval, fixed when the module is loaded."""

from typing import Final

from codeindex.models.symbol import CALLABLE_KINDS, DECLARATION_KINDS

__all__ = ["CALLABLE_KINDS", "RETRIEVABLE_KINDS"]

#: The kinds that retrieval reads from the index: those that define something, and modules.
RETRIEVABLE_KINDS: Final[frozenset[str]] = frozenset(DECLARATION_KINDS) | {"module"}
