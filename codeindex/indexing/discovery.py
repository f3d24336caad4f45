"""Finding the source files of a repository as git sees them."""

from __future__ import annotations

import os
import stat
import subprocess
import time
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import TYPE_CHECKING

from codeindex.utils.language_filter import Language, language_of

if TYPE_CHECKING:
    from pathspec import GitIgnoreSpec

MAX_FILE_BYTES = 1_000_000
_MINIFIED = (".min.js", ".min.mjs", ".bundle.js")
_SETTLED_AFTER_NS = 2_000_000_000  # the coarsest clock of a file system in use


@dataclass(frozen=True, slots=True)
class SourceFile:
    """A file that may be indexed; `path` is relative to the repository, with forward slashes.

    `stamp` changes whenever the file's content does. It is None while the file is so fresh that
    a further change could leave it as it is.
    """

    path: str
    language: Language
    stamp: str | None


def find_source_files(root: Path) -> list[SourceFile]:
    """Return the source files below `root`, sorted by path.

    Those are the files that git tracks or would track; without git, all files that the
    `.gitignore` files do not exclude. Links, files above 1 MB, minified files, what is no regular
    file and what has a name that is no UTF-8 are left out.
    """
    names = _git_files(root)
    now = time.time_ns()
    files: list[SourceFile] = []
    for name in sorted(set(_walk(root) if names is None else names)):
        language = language_of(name)
        if language is None or name.endswith(_MINIFIED):
            continue
        try:
            name.encode()
            status = os.lstat(root / name)
        except (OSError, UnicodeEncodeError):
            continue
        if not stat.S_ISREG(status.st_mode) or status.st_size > MAX_FILE_BYTES:
            continue
        changed = max(status.st_mtime_ns, status.st_ctime_ns)
        stamp = f"{status.st_size} {status.st_mtime_ns} {status.st_ctime_ns}"
        settled = now - changed > _SETTLED_AFTER_NS
        files.append(SourceFile(name, language, stamp if settled else None))
    return files


def _git_files(root: Path) -> list[str] | None:
    """Return the paths git lists; None without git, outside a checkout and in an ignored folder."""
    # A repository's own settings must not make git run a program of its choice.
    command = ["git", "-c", "core.fsmonitor=false", "ls-files", "-z"]
    command += ["--cached", "--others", "--exclude-standard"]
    environment = {name: value for name, value in os.environ.items() if name[:4] != "GIT_"}
    try:
        listing = subprocess.run(
            command,
            cwd=root,
            env=environment,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            check=False,
        )
    except OSError:
        return None
    if listing.returncode != 0 or not listing.stdout:
        return None
    return [os.fsdecode(name) for name in listing.stdout.split(b"\0") if name]


def _walk(root: Path) -> Iterator[str]:
    """Yield the paths of all files that no `.gitignore` between them and `root` excludes."""
    from pathspec import GitIgnoreSpec

    folders: list[tuple[str, list[tuple[str, GitIgnoreSpec]]]] = [("", [])]
    while folders:
        folder, rules = folders.pop()
        try:
            entries = list(os.scandir(root / folder))
        except OSError:
            continue
        if any(entry.name == ".gitignore" for entry in entries):
            try:
                lines = (root / folder / ".gitignore").read_text("utf-8", "replace").splitlines()
                rules = [*rules, (folder, GitIgnoreSpec.from_lines(lines))]
            except OSError:
                pass
        for entry in entries:
            path = folder + entry.name
            is_folder = entry.is_dir(follow_symlinks=False)
            if entry.name == ".git" or _ignored(path + "/" * is_folder, rules):
                continue
            if is_folder:
                folders.append((path + "/", rules))
            else:
                yield path


def _ignored(path: str, rules: list[tuple[str, GitIgnoreSpec]]) -> bool:
    """Return what the innermost `.gitignore` that knows the path says of it."""
    for folder, spec in reversed(rules):
        ignored: bool | None = spec.check_file(path[len(folder) :]).include
        if ignored is not None:
            return ignored
    return False
