r"""How a file's place gives its symbols the first parts of their qualified names.

- Python, JavaScript, TypeScript: the path below the last "src" folder, without its ending and
  without a closing "__init__" or "index": "src/flask/json/__init__.py" gives "flask.json".
- Rust: the crate's folder ("crate" when the repository is the crate), then the path below "src"
  without a closing "mod", "lib" or "main": "tokio/src/io/mod.rs" gives "tokio::io".
- Lua: the path below the last "src", "lib" or "lua" folder, without a closing "init".
- C#, Go, Java, Kotlin, PHP, Scala: the package or namespace that the file declares: "gin",
  "com.google.gson", "App\Http".
- Bash, C, C++, Elixir, Ruby, Swift: nothing; only namespaces, modules and classes qualify a name.
"""

from pathlib import PurePosixPath

_SILENT_STEMS = {
    "python": {"__init__"},
    "javascript": {"index"},
    "typescript": {"index"},
    "rust": {"mod", "lib", "main"},
    "lua": {"init"},
}
_ROOT_FOLDERS = {"lua": {"src", "lib", "lua"}}


def file_parts(path: str, language: str, package: str | None) -> tuple[str, ...]:
    """Return the parts that come before the names a file declares.

    `package` is the package that the file itself names, if it does.
    """
    if language not in _SILENT_STEMS:
        return (package,) if package else ()
    *folders, _ = path.split("/")
    stem = file_stem(path)
    parts = [*folders, stem]
    roots = _ROOT_FOLDERS.get(language, {"src"})
    last = max((place for place, folder in enumerate(folders) if folder in roots), default=-1)
    if last >= 0:
        parts = parts[last + 1 :]
        if language == "rust":
            crate = folders[last - 1].replace("-", "_") if last else "crate"
            parts.insert(0, crate)
    if len(parts) > 1 and parts[-1] in _SILENT_STEMS[language]:
        parts.pop()
    return tuple(parts)


def module_name(path: str, language: str) -> tuple[str, str]:
    """Return the name and the qualified name of the module that a file is.

    Where packages span files, or files have no names in code, the qualified name is the path.
    """
    stem = file_stem(path)
    if language not in _SILENT_STEMS:
        return stem, path
    parts = file_parts(path, language, None)
    name = stem if parts[-1] == "crate" else parts[-1]
    return name, ("::" if language == "rust" else ".").join(parts)


def file_stem(path: str) -> str:
    """Return a file's name without its ending; a TypeScript "x.d.ts" is "x"."""
    return PurePosixPath(path).stem.removesuffix(".d")
