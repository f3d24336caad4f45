"""Finding the source files of a repository as git sees them."""

from __future__ import annotations

import os
import stat
import subprocess
import time
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import TYPE_CHECKING

from codeindex.utils.language_filter import Language, language_of

if TYPE_CHECKING:
    from pathspec import GitIgnoreSpec

MAX_FILE_BYTES = 1_000_000
_SETTLED_AFTER_NS = 2_000_000_000  # the coarsest clock of a file system in use

Skipped = Callable[[str, str], None]
"""Told of each file that is left out: the reason and the file's path."""


@dataclass(frozen=True, slots=True)
class SourceFile:
    """A file that may be indexed; `path` is relative to the repository, with forward slashes.

    `size` is in bytes. `stamp` changes whenever the file's content does. It is None while the
    file is so fresh that a further change could leave it as it is.
    """

    path: str
    language: Language
    size: int
    stamp: str | None


def find_source_files(root: Path, skipped: Skipped = lambda reason, path: None) -> list[SourceFile]:
    """Return the source files below `root`, sorted by path; tell `skipped` of all others.

    Source files are those that git tracks or would track; without git, all files that the
    `.gitignore` files do not exclude. Left out are links, repositories within the repository,
    files above 1 MB, what is no regular file or cannot be read, names that are no UTF-8, and
    languages that are not read. No file is opened.
    """
    names = _git_files(root)
    prefix = f"{root}/"
    now = time.time_ns()
    files: list[SourceFile] = []
    linked: dict[str, bool] = {"": False}
    for name in sorted(set(_walk(root, skipped) if names is None else names)):
        try:
            name.encode()
            status = os.lstat(prefix + name)
            behind_link = _behind_link(prefix, name, linked)
        except UnicodeEncodeError:
            skipped("name is no UTF-8", name)
            continue
        except FileNotFoundError:
            continue  # deleted, but git still tracks it
        except OSError:
            skipped("unreadable", name)
            continue
        language = language_of(name)
        if stat.S_ISDIR(status.st_mode):
            skipped("repository within the repository", name)
        elif behind_link or stat.S_ISLNK(status.st_mode):
            skipped(_fate_of_link(prefix, name), name)
        elif not stat.S_ISREG(status.st_mode):
            skipped("no regular file", name)
        elif language is None:
            skipped("language not read", name)
        elif status.st_size > MAX_FILE_BYTES:
            skipped("larger than 1 MB", name)
        else:
            changed = max(status.st_mtime_ns, status.st_ctime_ns)
            stamp = f"{status.st_size} {status.st_mtime_ns} {status.st_ctime_ns}"
            settled = now - changed > _SETTLED_AFTER_NS
            files.append(SourceFile(name, language, status.st_size, stamp if settled else None))
    return files


def read_source(root: Path, path: str) -> bytes:
    """Return a source file's content; raises OSError when it is no regular file any more.

    Never follows a link in its place, and never waits for a pipe's other end.
    """
    flags = os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC
    with open(os.open(root / path, flags), "rb") as file:
        if not stat.S_ISREG(os.fstat(file.fileno()).st_mode):
            raise OSError(f"{path} is no regular file")
        return file.read(MAX_FILE_BYTES)


def _behind_link(prefix: str, name: str, linked: dict[str, bool]) -> bool:
    """Return whether one of the folders that a path names is a link."""
    folder = name.rpartition("/")[0]
    if folder not in linked:
        is_link = stat.S_ISLNK(os.lstat(prefix + folder).st_mode)
        linked[folder] = is_link or _behind_link(prefix, folder, linked)
    return linked[folder]


def _fate_of_link(prefix: str, name: str) -> str:
    try:
        target = os.path.realpath(prefix + name, strict=True)
    except OSError:
        return "link that loops or leads nowhere"
    inside = target.startswith(os.path.realpath(prefix) + "/")
    return "link within the repository" if inside else "link that leaves the repository"


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


def _walk(root: Path, skipped: Skipped) -> Iterator[str]:
    """Yield the paths of all files that no `.gitignore` between them and `root` excludes.

    A folder with a repository of its own is one path.
    """
    from pathspec import GitIgnoreSpec

    folders: list[tuple[str, list[tuple[str, GitIgnoreSpec]]]] = [("", [])]
    while folders:
        folder, rules = folders.pop()
        try:
            with os.scandir(root / folder) as listing:
                entries = list(listing)
        except OSError:
            skipped("unreadable", folder)
            continue
        names = {entry.name for entry in entries}
        if ".git" in names and folder:
            yield folder
            continue
        if ".gitignore" in names:
            try:
                lines = read_source(root, folder + ".gitignore").decode("utf-8", "replace")
                rules = [*rules, (folder, GitIgnoreSpec.from_lines(lines.splitlines()))]
            except (OSError, ValueError):
                skipped("unreadable", folder + ".gitignore")
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
