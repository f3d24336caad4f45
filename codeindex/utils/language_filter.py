"""The languages that count as source code, and which files are written in them."""

from dataclasses import dataclass


@dataclass(frozen=True, slots=True)
class Language:
    """One language of the index.

    `name` is the stored name and the stem of the language's query file; `grammar` names its
    tree-sitter grammar; `separator` joins the parts of a qualified name.
    """

    name: str
    grammar: str
    separator: str
    suffixes: tuple[str, ...]


# Another language is one more line here and one more query file beside the others.
LANGUAGES: tuple[Language, ...] = (
    Language("bash", "bash", "::", (".sh", ".bash")),
    Language("c", "c", "::", (".c", ".h")),
    Language("cpp", "cpp", "::", (".cc", ".cpp", ".cxx", ".hh", ".hpp", ".hxx", ".ipp", ".inl")),
    Language("csharp", "csharp", ".", (".cs",)),
    Language("elixir", "elixir", ".", (".ex", ".exs")),
    Language("go", "go", ".", (".go",)),
    Language("java", "java", ".", (".java",)),
    Language("javascript", "javascript", ".", (".js", ".jsx", ".mjs", ".cjs")),
    Language("kotlin", "kotlin", ".", (".kt", ".kts")),
    Language("lua", "lua", ".", (".lua",)),
    Language("php", "php", "\\", (".php",)),
    Language("python", "python", ".", (".py", ".pyi")),
    Language("ruby", "ruby", "::", (".rb", ".rake")),
    Language("rust", "rust", "::", (".rs",)),
    Language("scala", "scala", ".", (".scala", ".sc")),
    Language("swift", "swift", ".", (".swift",)),
    Language("typescript", "tsx", ".", (".tsx",)),
    Language("typescript", "typescript", ".", (".ts", ".mts", ".cts")),
)

SOURCE_LANGUAGES: frozenset[str] = frozenset(language.name for language in LANGUAGES)
"""The names of the languages whose symbols count as code."""

_BY_SUFFIX = {suffix: language for language in LANGUAGES for suffix in language.suffixes}


def language_of(path: str) -> Language | None:
    """Return the language that a path's ending stands for, or None when it is no source file."""
    stem, _, suffix = path[path.rfind("/") + 1 :].rpartition(".")
    return _BY_SUFFIX.get(f".{suffix.lower()}") if stem else None
