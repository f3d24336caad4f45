"""Which files are indexed, and that a later run reads only what changed."""

import os
import subprocess
from pathlib import Path

import pytest

from codeindex.engines.embedding import EmbeddingEngine
from codeindex.indexing import discovery, reading, refresh
from codeindex.indexing.discovery import MAX_FILE_BYTES, find_source_files
from codeindex.indexing.embedding_text import embedding_text
from codeindex.indexing.refresh import RefreshReport
from codeindex.models.symbol import StoredSymbol
from codeindex.storage import connections
from codeindex.storage.repository import Repository
from codeindex.utils.language_filter import SOURCE_LANGUAGES


def write(root: Path, **files: str | bytes) -> None:
    """Write files named by their paths, "/" spelled "__" and "." spelled "_DOT_"."""
    for key, content in files.items():
        path = root / key.replace("__", "/").replace("_DOT_", ".")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content if isinstance(content, bytes) else content.encode())


@pytest.fixture
def tree(tmp_path: Path) -> Path:
    root = tmp_path / "tree"
    write(
        root,
        _DOT_gitignore="build/\n*_gen.py\n!keep_gen.py\n/top.go\n",
        app_DOT_py="def run(): pass\n",
        src__a_DOT_ts="export class A {}\n",
        src__top_DOT_go="package x\n",
        src___DOT_gitignore="secret.py\n",
        src__secret_DOT_py="",
        top_DOT_go="package y\n",
        a_gen_DOT_py="",
        keep_gen_DOT_py="",
        build__out_DOT_py="",
        notes_DOT_md="# no source",
        lib_DOT_min_DOT_js="var a",
        big_DOT_c=b" " * (MAX_FILE_BYTES + 1),
    )
    (root / "link.py").symlink_to("/etc/passwd")
    (root / "loop").symlink_to(root / "src")
    (root / "dead.py").symlink_to("dead.py")
    write(root, inner__main_DOT_c="")
    subprocess.run(["git", "init", "-q", root / "inner"], check=True)
    os.mkfifo(root / "pipe.py")
    Path(os.fsdecode(bytes(root) + b"/bad\xff.py")).write_text("")
    return root


FOUND = ["app.py", "keep_gen.py", "lib.min.js", "src/a.ts", "src/top.go"]
LEFT_OUT = [
    (".gitignore", "language not read"),
    ("bad\udcff.py", "name is no UTF-8"),
    ("big.c", "larger than 1 MB"),
    ("dead.py", "link that loops or leads nowhere"),
    ("inner", "repository within the repository"),
    ("link.py", "link that leaves the repository"),
    ("loop", "link within the repository"),
    ("notes.md", "language not read"),
    ("pipe.py", "no regular file"),
    ("src/.gitignore", "language not read"),
]


def found(root: Path) -> tuple[list[str], list[tuple[str, str]]]:
    """Return the paths of the source files, and those left out with the reason."""
    left_out: list[tuple[str, str]] = []
    files = find_source_files(root, lambda reason, path: left_out.append((path, reason)))
    return [file.path for file in files], sorted((path.rstrip("/"), why) for path, why in left_out)


def test_without_git_the_gitignore_files_decide(tree: Path) -> None:
    assert found(tree) == (FOUND, LEFT_OUT)


def test_with_git_tracked_and_new_files_count_and_deleted_ones_do_not(tree: Path) -> None:
    def git(*arguments: str) -> None:
        subprocess.run(["git", *arguments], cwd=tree, check=True, capture_output=True)

    git("init", "-q")
    git("add", "-f", "app.py", "a_gen.py", "src")
    (tree / "src" / "secret.py").unlink()
    paths, left_out = found(tree)
    assert paths == ["a_gen.py", *FOUND]
    # Git itself lists neither pipes nor devices.
    assert left_out == [item for item in LEFT_OUT if item[0] != "pipe.py"]


def test_what_lies_behind_a_linked_folder_is_not_read(tree: Path) -> None:
    subprocess.run(["git", "init", "-q"], cwd=tree, check=True)
    subprocess.run(["git", "add", "src"], cwd=tree, check=True)
    (tree / "src").rename(tree.parent / "elsewhere")
    (tree / "src").symlink_to(tree.parent / "elsewhere")
    paths, left_out = found(tree)
    assert [path for path in paths if path.startswith("src")] == []
    assert ("src/a.ts", "link that leaves the repository") in left_out


def run(root: Path, repository: Repository, engine: EmbeddingEngine) -> RefreshReport:
    return refresh.refresh(root, repository, engine, lambda step, done, total: None)


def names(repository: Repository) -> set[str]:
    symbols = repository.retrievable_code_symbols({"python"}, {"function", "module"})
    return {symbol.fqn for symbol in symbols}


def test_a_later_run_reads_and_embeds_only_what_changed(
    tmp_path: Path, engine: EmbeddingEngine, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(discovery, "_SETTLED_AFTER_NS", -1)
    root = tmp_path / "tree"
    write(root, a_DOT_py="def a(): pass\n", b_DOT_py="def b(): pass\n", c_DOT_py="C = 1\n")
    repository = Repository(tmp_path / "index.sqlite")
    report = run(root, repository, engine)
    assert report == RefreshReport(
        files=3, files_read=3, files_removed=0, symbols=6, symbols_embedded=6
    )
    state = repository.retrieval_fingerprint()

    os.utime(root / "a.py", (1, 1))  # touched, not changed
    assert run(root, repository, engine) == RefreshReport(3, 0, 0, 6, 0)
    assert repository.retrieval_fingerprint() == state

    write(root, b_DOT_py="\n\ndef b(): pass\ndef new(): pass\n")
    (root / "c.py").rename(root / "d.py")
    assert run(root, repository, engine) == RefreshReport(3, 2, 1, 7, 3)
    assert names(repository) == {"a", "a.a", "b", "b.b", "b.new", "d"}
    assert repository.retrieval_fingerprint() != state
    repository.close()

    monkeypatch.setattr(connections, "INDEX_VERSION", 99)
    repository = Repository(tmp_path / "index.sqlite")
    assert run(root, repository, engine) == RefreshReport(3, 3, 0, 7, 7)
    repository.close()


def test_a_change_too_quick_for_the_clock_is_seen(tmp_path: Path, engine: EmbeddingEngine) -> None:
    root = tmp_path / "tree"
    write(root, a_DOT_py="def a(): pass\n")
    repository = Repository(tmp_path / "index.sqlite")
    run(root, repository, engine)
    before = os.stat(root / "a.py")
    write(root, a_DOT_py="def z(): pass\n")
    os.utime(root / "a.py", ns=(before.st_atime_ns, before.st_mtime_ns))
    run(root, repository, engine)
    assert names(repository) == {"a", "a.z"}
    repository.close()


def test_an_interrupted_run_leaves_the_last_whole_state(
    tmp_path: Path, engine: EmbeddingEngine
) -> None:
    root = tmp_path / "tree"
    write(root, a_DOT_py="def a(): pass\n")
    repository = Repository(tmp_path / "index.sqlite")
    run(root, repository, engine)
    write(root, a_DOT_py="def a2(): pass\n", b_DOT_py="def b(): pass\n")

    def interrupt(step: str, done: int, total: int) -> None:
        if (step, done) == ("files", 1):
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        refresh.refresh(root, repository, engine, interrupt)
    assert names(repository) == {"a", "a.a"}
    run(root, repository, engine)
    assert names(repository) == {"a", "a.a2", "b", "b.b"}
    repository.close()


HOSTILE = {
    "nul.py": (b"def a(): pass\n\0", "binary"),
    "wide.js": (b"function f(){};" * 5000, "minified"),
    "lib.min.js": (b"var a\n", "minified"),
    "api.pb.go": (b"// Code generated by a tool. DO NOT EDIT.\npackage api\n", "generated"),
    "sums.py": (b'"""Adds up.\n\nThe file was generated by hand."""\n', None),
    "latin.py": (b"def caf\xe9(): pass\n", None),
    "empty.py": (b"", None),
    "new\nline \x1b[2J.py": (b"def f(): pass\n", None),
    "deep.py": (b"x = " + b"[" * 20_000 + b"]" * 20_000 + b"\n" * 90, None),
    "deep.js": (b"(function(){" * 20_000 + b"\n" * 500, None),
    "deep.c": (b"int f() " + b"{" * 20_000 + b"}" * 20_000 + b"\n" * 90, None),
    "deep.go": (b"package a\nvar a = " + b"(" * 20_000 + b"\n" * 90, None),
    "deep.rs": (b"mod a { " * 20_000 + b"\n" * 500, None),
}


@pytest.mark.parametrize("processes", [1, 2])
def test_nothing_about_a_file_ends_a_run(
    tmp_path: Path, engine: EmbeddingEngine, monkeypatch: pytest.MonkeyPatch, processes: int
) -> None:
    monkeypatch.setattr(discovery, "_SETTLED_AFTER_NS", -1)
    monkeypatch.setattr(reading, "_BYTES_WORTH_A_PROCESS", 1 if processes > 1 else 1e9)
    root = tmp_path / "tree"
    root.mkdir()
    for name, (content, _) in HOSTILE.items():
        (root / name).write_bytes(content)
    repository = Repository(tmp_path / "index.sqlite")
    run(root, repository, engine)
    reasons = {
        path: files.reason for files in repository.skipped_files() for path in files.examples
    }
    assert reasons == {name: reason for name, (_, reason) in HOSTILE.items() if reason}
    modules = repository.retrievable_code_symbols(SOURCE_LANGUAGES, {"module"})
    assert {m.path for m in modules} == HOSTILE.keys() - reasons.keys()

    # What is a file when it is found may be gone, a link or a pipe when it is read.
    for name in ("empty.py", "latin.py", "sums.py"):
        (root / name).write_text("def changed(): pass")
    files = find_source_files(root)
    (root / "empty.py").unlink()
    (root / "latin.py").rename(root.parent / "away.py")
    (root / "latin.py").symlink_to(root.parent / "away.py")
    (root / "sums.py").unlink()
    os.mkfifo(root / "sums.py")
    monkeypatch.setattr(refresh, "find_source_files", lambda root, skipped: files)
    run(root, repository, engine)
    assert "changed" not in names(repository)
    unreadable = [f.examples for f in repository.skipped_files() if f.reason == "unreadable"]
    assert unreadable == [("empty.py", "latin.py", "sums.py")]
    assert run(root, repository, engine).files_read == 0
    repository.close()


def test_the_embedded_text_is_words_and_the_docstrings_beginning() -> None:
    symbol = StoredSymbol(
        *(1, "app.HTTPServer.openPort2", "openPort2", "method", "app.py", 1, 2),
        *("def openPort2(self, max_tries)", "Opens it. " + "x" * 999),
    )
    text = embedding_text(symbol)
    assert text.startswith(
        "open port 2. def open port 2 self max tries. app http server open port 2. Opens it. xx"
    )
    assert len(text) < 700
