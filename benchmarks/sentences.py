"""The first sentence of a docstring, as a person would ask it: without markup and tags."""

import html
import re

MIN_WORDS = 4
MAX_WORDS = 40

_TAG_LINE = re.compile(r"\s*(?:[@\\](?!brief\b|\{)\w|:\w+[ :]|>>>|```|~~~|[-=~^#*]{3,}|\.\. )")
_BRIEF = re.compile(r"^\s*[@\\]brief\s+")
_REPLACED = (
    (re.compile(r"\{@link(?:plain)?\s+[^\s}]+\s+([^}]+)\}"), r"\1"),
    (re.compile(r"\{@\w+\s+#?([^}]*)\}"), r"\1"),
    (re.compile(r":[\w:]+:`~?([^`<]+?)(?:\s*<[^>`]*>)?`"), r"\1"),  # :class:`~a.B`
    (re.compile(r"`([^`<]+?)\s*<[^>`]*>`_+"), r"\1"),
    (re.compile(r"!?\[([^\]]+)\](?:\([^)]*\)|\[[^\]]*\])"), r"\1"),
    (re.compile(r"\[(`[^`\]]+`|[\w.]+)\]"), r"\1"),
    (re.compile(r"</?[A-Za-z][^<>]*>"), " "),
    (re.compile(r"`+|\*\*|__(?=\s|$)|(?<!\w)[*_](?=\w)|(?<=\w)\*(?!\w)"), ""),
)
_HEADING = re.compile(r"^#+\s.*\n+")
_END = re.compile(r"(?<!\be\.g)(?<!\bi\.e)(?<!\betc)(?<!\bvs)(?<!\bcf)[.!?:](?=\s+[^a-z\s]|\s*$)")
_SAYS_NOTHING = re.compile(
    r"deprecated|todo|fixme|xxx|auto-?generated|code generated|copyright|see\b|same as\b"
    r"|https?:|note\b|example|internal api",
    re.IGNORECASE,
)
_CODE = re.compile(r"[{}=;\\|<>]|://")


def question_of(docstring: str, name: str) -> str | None:
    """Return the docstring's first sentence as a question, or None when it makes none.

    A sentence makes a question when 4 to 40 words are left without markup, code and the symbol's
    own name at the front, with which the comments of some languages begin by habit.
    """
    lines: list[str] = []
    for line in _HEADING.sub("", docstring.strip()).splitlines():
        if not line.strip() or _TAG_LINE.match(line):
            break
        lines.append(line.strip())
    text = _BRIEF.sub("", " ".join(lines))
    for markup, plain in _REPLACED:
        text = markup.sub(plain, text)
    text = " ".join(html.unescape(text).split())
    end = _END.search(text)
    text = text[: end.start()] if end else text
    text = re.sub(rf"^(?:{re.escape(name)})(?:\(\))?(?=\s)[\s:-]+", "", text).strip()
    unfit = _CODE.search(text) or _SAYS_NOTHING.match(text) or not text[:1].isalpha()
    return None if unfit or not MIN_WORDS <= len(text.split()) <= MAX_WORDS else text
