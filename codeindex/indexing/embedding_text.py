"""The text of a symbol that the embedding model sees."""

import re

from codeindex.models.symbol import StoredSymbol

_WORD = re.compile(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+|\d+|[^\W\d_a-zA-Z]+")
_MAX_DOCSTRING = 500


def embedding_text(symbol: StoredSymbol) -> str:
    """Return the words of name, signature and qualified name, then the docstring's beginning.

    Identifiers are split into lowercase words, as people write them in questions:
    "fuse ranks. def fuse ranks maps. app channels fusion fuse ranks. Merge the rankings of …".
    """
    parts = [_words(symbol.name), _words(symbol.signature or ""), _words(symbol.fqn)]
    if symbol.docstring:
        parts.append(symbol.docstring[:_MAX_DOCSTRING])
    return ". ".join(part for part in parts if part)


def _words(text: str) -> str:
    return " ".join(word.lower() for word in _WORD.findall(text))
