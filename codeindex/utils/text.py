"""Turning text that comes from a repository into text that is safe to show."""

import re

# Control characters, bidirectional overrides and lone surrogates: what could move a terminal's
# cursor, reorder a line or fail to encode.
_UNSHOWABLE = re.compile(
    "[\x00-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\ud800-\udfff]"
)


def one_line(text: str, max_length: int | None = None) -> str:
    """Return the text as one showable line: whitespace collapsed, unshowable characters as "?".

    When `max_length` is given, a longer line is cut to that many characters, "…" included.
    """
    line = _UNSHOWABLE.sub("?", " ".join(text.split()))
    if max_length is not None and len(line) > max_length:
        return line[: max_length - 1].rstrip() + "…"
    return line
