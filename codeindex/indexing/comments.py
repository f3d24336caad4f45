"""Reading what comments and docstrings say, without their markers, pragmas and licences."""

import inspect
import re
from collections.abc import Sequence

_BLOCK = re.compile(r"/\*+!?|\*+/")
_BLOCK_MARGIN = re.compile(r"^[ \t]*\*+(?!/)[ ]?", re.MULTILINE)
_LONG_BRACKETS = re.compile(r"--\[(=*)\[(.*)\]\1\]", re.DOTALL)
_LINE_MARKER = re.compile(r"^[ \t]*(?://+!?|#+!?|--+)[ ]?", re.MULTILINE)
_RULE = re.compile(r"^\W{3,}$")
_END_OF_RULE = re.compile(r"\s*[-=~*#/]{4,}$")
_PRAGMA = re.compile(
    r"""\s*(?: @ts- | @flow\b | @format\b | @prettier\b | eslint | prettier | tslint | jshint
         | jslint | istanbul | c8\b | v8\ ignore | noqa | type:\s*ignore | pylint | pragma
         | mypy: | ruff: | fmt: | isort: | rubocop: | frozen_string_literal: | shellcheck | luacheck
         | swiftlint: | ktlint | scalafmt: | scalastyle: | phpcs: | @?phpstan | @?psalm | credo:
         | resharper | <\?php | nolint | go: | \+build | clang-(?:format|tidy)
         | -\*- | (?:en)?coding[:=] | vim: | \#?region\b | \#?endregion\b | /?(?:usr/)?bin/ )""",
    re.VERBOSE | re.IGNORECASE,
)
_LICENCE = re.compile(
    r"copyright|\(c\)\s*\d{4}|©|licen[cs]e|spdx-|all rights reserved|is part of|permission is|"
    r"free software|public domain|created by .{1,60} on \d",
    re.IGNORECASE,
)
_XML_REFERENCE = re.compile(r"""<\w+ (?:cref|name|langword)="(?:\w:)?([^"]*)" ?/>""")
_XML_TAG = re.compile(r"</?[a-z]+(?: [^<>]*)?/?>")
_STRING = re.compile(r"""~?[a-zA-Z]*(\"\"\"|'''|"|')(.*)\1""", re.DOTALL)

_MAX_LENGTH = 8000


def comment_text(comments: Sequence[str]) -> str:
    """Return the text of the comments that belong together, in order, without markers.

    Rules drawn with punctuation and instructions to tools are left out.
    """
    text = "\n".join(_without_markers(comment) for comment in comments)
    if text.lstrip().startswith("<"):
        text = _XML_TAG.sub("", _XML_REFERENCE.sub(r"\1", text))
    lines = (line.rstrip() for line in text.splitlines())
    kept = [
        _END_OF_RULE.sub("", line)
        for line in lines
        if not _RULE.match(line) and not _PRAGMA.match(line)
    ]
    return inspect.cleandoc("\n".join(kept)).strip()[:_MAX_LENGTH]


def _without_markers(comment: str) -> str:
    if comment.lstrip().startswith("/*"):
        return _BLOCK_MARGIN.sub("", _BLOCK.sub("", comment))
    if match := _LONG_BRACKETS.fullmatch(comment.strip()):
        return match[2]
    return _LINE_MARKER.sub("", comment)


def string_text(literal: str) -> str:
    """Return the text of a docstring literal."""
    match = _STRING.fullmatch(literal.strip())
    return inspect.cleandoc(match[2] if match else literal).strip()[:_MAX_LENGTH]


def without_licence(text: str) -> str:
    """Return what a file's first comment says before it turns to its licence; often nothing.

    A word or two above a licence are the project's name and say nothing about the file.
    """
    match = _LICENCE.search(text)
    if match is None:
        return text
    before = text[: text.rfind("\n", 0, match.start()) + 1].strip()
    return before if len(before.split()) > 2 else ""
