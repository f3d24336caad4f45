"""Reading the symbols of one source file with tree-sitter.

A language is one query file in `queries/`, matched in tree-sitter's own C code. Its captures:

- `@definition.KIND` with `@name`: a symbol. Its signature ends where the first `@body` begins.
  With a body it may hold further symbols; without one it is no symbol inside a function.
- `@doc`: the docstring of the match's definition; `@doc.module` that of the file, a string or
  comments that belong to no definition.
- `@receiver`: what a method defined on its own belongs to.
- `@scope` with `@name`: a part of qualified names that is no symbol; `@scope.class` makes the
  functions in it methods.
- `@definition.constructor`: a method where it is named like its class, else no symbol.
- `@nested`: brackets around more code of the language, as in a macro call around declarations.
- `@package`: the package that the file declares.
- `@comment`, whose text is that of its `@doc` if it has one, and `@decoration` for what may stand
  between a comment and its definition.
"""

import re
from dataclasses import dataclass
from functools import cache
from importlib import resources
from typing import cast

from tree_sitter import Language as Grammar
from tree_sitter import Node, Parser, Query, QueryCursor, Range
from tree_sitter_language_pack import SupportedLanguage, get_language

from codeindex.indexing.comments import comment_text, string_text, without_licence
from codeindex.indexing.naming import file_parts, module_name
from codeindex.models.symbol import CALLABLE_KINDS, ExtractedSymbol
from codeindex.utils.language_filter import LANGUAGES, Language
from codeindex.utils.text import one_line

_MAX_SIGNATURE = 240
_CLASS_KINDS = frozenset({"class", "enum", "interface", "struct", "trait", "union"})
_CPP = next(language for language in LANGUAGES if language.name == "cpp")
_CPP_HEADER = re.compile(
    rb"^[ \t]*(?:class|namespace|template|using|constexpr)\b|\bstd::"
    rb"|^[ \t]*(?:public|private|protected)[ \t]*:",
    re.MULTILINE,
)
_NAME = re.compile(
    r"[~#@]?[^\W\d][\w$-]*[?!=]?|\$[\w$]*|operator\W.*|[-!#%&*+/:<=>?@\\^|~\[\]]{1,5}|`[^`\n]+`"
)
_LEADING_WORDS = re.compile(rb"[ \t]*((?:[A-Za-z_]+[ \t]+)+)")
_ANNOTATIONS = re.compile(
    r"""(?: (?: @(?!interface\b)[\w.:`]+ (?:\s*\( (?:[^()"]|"[^"]*"|\([^()]*\))* \))?
           | \#?\[ (?:[^][\"]|"[^"]*"|\[[^][]*\])* \] | //[^\n]*\n | /\*.*?\*/ ) \s* )+""",
    re.DOTALL | re.VERBOSE,
)
_SWIFT_DIRECTIVE = re.compile(rb"^[ \t]*#(?:if|elseif|else|endif)\b[^\n]*", re.MULTILINE)
_LAST_COMMENT = re.compile(r"\s*/\*(?:(?!\*/).)*\*/\s*$", re.DOTALL)
_LOOSE_BRACKET = re.compile(r"(?<=[(\[]) |,? (?=[)\]])")
_ARGUMENTS = re.compile(r"<[^<>]*>|\[[^\[\]]*\]")
_EXPORTS = re.compile(r"(?:module\.)?exports\.?|(?:this|self|window|global)\b\.?|\.?prototype\b")


@dataclass(slots=True)
class _Definition:
    """A definition or scope found in a file, before its place among the others is known."""

    node: Node
    kind: str
    name: str
    name_start: int
    body: Node | None
    doc: Node | None
    receiver: str


@dataclass(slots=True)
class _Comment:
    """Comments or decorations that fill the lines from `first` to `last`, counted from 0."""

    first: int
    last: int
    text: str | None


def extract_symbols(path: str, source: bytes, language: Language) -> list[ExtractedSymbol]:
    """Return the file's symbols in order of their place, the file's own "module" first.

    Bytes that are no UTF-8 are replaced. A file with errors gives what can be read of it. Safe
    from any thread.
    """
    language = source_language(path, source, language)
    parser = Parser(_grammar(language))
    file = _File(source)
    if language.name == "swift":  # conditions hide the rest of a class from the grammar
        source = _SWIFT_DIRECTIVE.sub(lambda found: b" " * len(found[0]), source)
    roots = [parser.parse(source).root_node]
    while roots:
        for _, captures in QueryCursor(_query(language)).matches(roots.pop()):
            if nested := captures.get("nested"):
                parser.included_ranges = [_inside(nested[0])]
                roots.append(parser.parse(source).root_node)
            else:
                file.add(captures)
    return file.symbols(path, language)


def source_language(path: str, source: bytes, language: Language) -> Language:
    """Return the language a file is written in: a ".h" may hold C++."""
    if path.lower().endswith(".h") and _CPP_HEADER.search(source):
        return _CPP
    return language


def _inside(node: Node) -> Range:
    """Return the range between a node's brackets."""
    first, last = node.children[0], node.children[-1]
    return Range(first.end_point, last.start_point, first.end_byte, last.start_byte)


@cache
def _grammar(language: Language) -> Grammar:
    return get_language(cast(SupportedLanguage, language.grammar))


@cache
def _query(language: Language) -> Query:
    file = resources.files("codeindex.indexing") / "queries" / f"{language.name}.scm"
    return Query(_grammar(language), file.read_text("utf-8"))


class _File:
    """What the query found in one file."""

    def __init__(self, source: bytes) -> None:
        self._source = source
        self._lines = source.split(b"\n")
        self._package: str | None = None
        self._module_docs: list[Node] = []
        self._definitions: dict[tuple[int, int, int], _Definition] = {}
        self._comments: dict[int, _Comment] = {}  # by last line

    def add(self, captures: dict[str, list[Node]]) -> None:
        """Take in one match of the query."""
        name_nodes = captures.get("name")
        if name_nodes is None:
            if nodes := captures.get("comment"):
                text = self._text(nodes[0])
                if doc := captures.get("doc"):
                    text = string_text(self._text(doc[0]))
                self._add_comment(nodes[0], text)
            elif nodes := captures.get("decoration"):
                self._add_comment(nodes[0], None)
            elif nodes := captures.get("package"):
                packages = [self._package] if self._package else []
                self._package = ".".join([*packages, self._text(nodes[0])])
            elif nodes := captures.get("doc.module"):
                self._module_docs.append(nodes[0])
            return
        name_node = name_nodes[0]
        kind, node = next(
            (capture, nodes[0])
            for capture, nodes in captures.items()
            if capture.startswith(("definition.", "scope"))
        )
        body = captures.get("body")
        doc = captures.get("doc")
        receiver = captures.get("receiver")
        found = _Definition(
            node,
            kind.removeprefix("definition."),
            self._text(name_node),
            name_node.start_byte,
            min(body, key=lambda node: node.start_byte) if body else None,
            doc[0] if doc else None,
            self._text(receiver[0]) if receiver else "",
        )
        # One definition may match several patterns, the plainer of which call it a constant.
        known = self._definitions.setdefault(
            (node.start_byte, node.end_byte, name_node.start_byte), found
        )
        if known is not found:
            known.kind = found.kind if known.kind == "constant" else known.kind
            bodies = [body for body in (known.body, found.body) if body is not None]
            known.body = min(bodies, key=lambda body: body.start_byte, default=None)
            known.doc = known.doc or found.doc
            known.receiver = known.receiver or found.receiver

    def symbols(self, path: str, language: Language) -> list[ExtractedSymbol]:
        """Return the module's symbol and one for each definition, qualified by its scopes."""
        separator = language.separator
        symbols: list[ExtractedSymbol] = []
        for doc in self._module_docs:
            self._comments.pop(_last_row(doc), None)
        file_scope = file_parts(path, language.name, self._package)
        scopes: list[tuple[int, tuple[str, ...], str]] = []  # end, qualified name's parts, kind
        in_order = sorted(
            self._definitions.values(), key=lambda d: (d.node.start_byte, -d.node.end_byte)
        )
        row = -1
        for definition in in_order:
            node, kind = definition.node, definition.kind
            first_in_line, row = row != node.start_point.row, node.start_point.row
            while scopes and scopes[-1][0] <= node.start_byte:
                scopes.pop()
            _, parts, outer_kind = scopes[-1] if scopes else (0, file_scope, "")
            if kind.startswith("scope"):
                own = _scope_parts(definition.name)
                scopes.append((node.end_byte, (*parts, *own), kind))
                continue
            if definition.body is None and outer_kind in CALLABLE_KINDS:
                continue
            receiver = _receiver_parts(definition.receiver)
            *qualifiers, name = _name_parts(definition.name)
            if not _NAME.fullmatch(name):
                continue
            if kind == "constructor":
                if outer_kind not in _CLASS_KINDS or parts[-1] != name:
                    continue
                kind = "method"
            if receiver[:1] == list(parts[-1:]) and (outer_kind or language.name == "lua"):
                receiver = receiver[1:]  # "def Foo.make" inside Foo, "function list.add" in list
            belongs_to_class = receiver or outer_kind == "scope.class"
            if qualifiers and language.name != "bash":
                belongs_to_class = True
            if kind == "function" and (belongs_to_class or outer_kind in _CLASS_KINDS):
                kind = "method"
            parts = (*parts, *receiver, *qualifiers, name)
            if definition.body is not None:
                scopes.append((node.end_byte, parts, kind))
            symbols.append(
                ExtractedSymbol(
                    fqn=separator.join(parts),
                    name=name,
                    kind=kind,
                    start_line=row + 1,
                    end_line=max(_last_row(n) for n in (node, definition.body) if n) + 1,
                    signature=self._signature(definition),
                    docstring=self._docstring(definition, first_in_line),
                )
            )
        return [self._module(path, language), *symbols]

    def _module(self, path: str, language: Language) -> ExtractedSymbol:
        name, fqn = module_name(path, language.name)
        texts = [self._text(node).rstrip() for node in self._module_docs]
        if not texts:
            docstring = self._head_comment()
        elif texts[0].startswith("/"):
            docstring = comment_text(texts)
        else:
            docstring = string_text(texts[0])
        lines = len(self._lines) - (len(self._lines) > 1 and not self._lines[-1])
        return ExtractedSymbol(fqn, name, "module", 1, lines, None, docstring or None)

    def _head_comment(self) -> str:
        """Return the first comment before any code that is neither a licence nor a symbol's."""
        defined_at = {definition.node.start_point.row for definition in self._definitions.values()}
        block: list[str] = []
        end = -1
        for comment in sorted(self._comments.values(), key=lambda c: c.first):
            if comment.text is None or self._has_code(end + 1, comment.first):
                break
            if comment.first > end + 1 and block:
                if text := without_licence(comment_text(block)):
                    return text
                block = []
            block.append(comment.text)
            end = comment.last
        text = comment_text(block)
        about_file = without_licence(text)
        return "" if about_file == text and end + 1 in defined_at else about_file

    def _has_code(self, first: int, last: int) -> bool:
        return any(line.strip() for line in self._lines[first:last])

    def _docstring(self, definition: _Definition, first_in_line: bool) -> str | None:
        if definition.doc is not None:
            return string_text(self._text(definition.doc)) or None
        if not first_in_line:
            return None
        lines: list[str] = []
        row = definition.node.start_point.row - 1
        # A documentation block may stand one empty line above.
        block = self._comments.get(row - 1)
        if row not in self._comments and block is not None and (block.text or "").startswith("/**"):
            row -= 1 if not self._has_code(row, row + 1) else 0
        while (comment := self._comments.get(row)) is not None:
            if comment.text is not None:
                lines.append(comment.text)
            row = comment.first - 1
        text = comment_text(lines[::-1])
        # A licence at the top of a file is not about the first symbol, however near.
        return None if row < 2 and without_licence(text) != text else text or None

    def _signature(self, definition: _Definition) -> str:
        start, body = definition.node.start_byte, definition.body
        end = definition.node.end_byte if body is None else body.start_byte
        line_start = start - definition.node.start_point.column
        # A keyword before the node, as in "type X struct" or "export const x", belongs to it.
        words = _LEADING_WORDS.fullmatch(self._source, line_start, start)
        start = words.start(1) if words else start
        text = self._source[start : min(end, start + 2000)].decode("utf-8", "replace")
        if annotations := _ANNOTATIONS.match(text):
            text = text[annotations.end() :]
        if body is None and "\n" in text[text.find("{") + 1 :] and "{" in text:
            text = text[: text.index("{")] + "{…}"
        text = _LAST_COMMENT.sub("", text.replace("\\\n", " "))
        if body is not None and definition.name_start > body.start_byte:
            text += definition.name  # "typedef enum {…} name"
        signature = one_line(_LOOSE_BRACKET.sub("", " ".join(text.split())), _MAX_SIGNATURE)
        return signature.removesuffix("=>").rstrip(" {:;,=")

    def _add_comment(self, node: Node, text: str | None) -> None:
        first, last = node.start_point.row, _last_row(node)
        line_start = node.start_byte - node.start_point.column
        if text is None or not self._source[line_start : node.start_byte].strip():
            self._comments[last] = _Comment(first, last, text.rstrip() if text else None)

    def _text(self, node: Node) -> str:
        return self._source[node.start_byte : node.end_byte].decode("utf-8", "replace")


def _last_row(node: Node) -> int:
    end = node.end_point
    return end.row - 1 if end.column == 0 and end.row > node.start_point.row else end.row


def _name_parts(name: str) -> list[str]:
    """Split a declared name such as "A<T>::f" into its parts, the name itself last."""
    if _NAME.fullmatch(name):
        bare = name.strip("`")
        return [bare if _NAME.fullmatch(bare) else name]
    scope, operator, symbol = name.partition("operator")
    if operator and symbol[:1] and not (symbol[0].isalnum() or symbol[0] == "_"):
        return [*_scope_parts(scope), operator + " ".join(symbol.split())]
    return _scope_parts(name) or [name]


def _scope_parts(text: str) -> list[str]:
    """Split a type or namespace into the names in it, without arguments: "a::B<T>" is a, B."""
    while (shorter := _ARGUMENTS.sub("", text)) != text:
        text = shorter
    parts = (part.strip(" \t\r\n&*'\"()?`") for part in re.split(r"::|[.\\]", text))
    return [part.rpartition(" ")[2] for part in parts if part]


def _receiver_parts(text: str) -> list[str]:
    return _scope_parts(_EXPORTS.sub("", text)) if len(text) <= 200 else []
