"""Pinned source packages to measure on, fetched by each registry's own client.

Run as a program, it fetches what is missing and prints where each package lies and how many
symbols it has. Packages lie below `$CODEINDEX_BENCH_CACHE`, by default in the user's cache folder,
one folder for each version, which appears there only when it is complete: an interrupted run goes
on where it stopped. The clients' own settings decide where from; nothing of a package is run.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

import platformdirs

_CACHE = "CODEINDEX_BENCH_CACHE"


class FetchError(Exception):
    """A package could not be fetched; the message says which, and what the client said."""


@dataclass(frozen=True, slots=True)
class Package:
    """One version of a package: what fetches it, and the folder in it that is measured."""

    name: str
    version: str
    client: str  #: a key of `_FETCHERS`
    language: str  #: as the index names the language that most of it is written in
    folder: str = "."

    def __str__(self) -> str:
        """Return name and version, as people write them."""
        return f"{self.name} {self.version}"


PACKAGES: tuple[Package, ...] = (
    Package("django", "5.2.8", "pip", "python"),
    Package("sympy", "1.14.0", "pip", "python"),
    Package("com.google.guava:guava", "33.4.8-jre", "mvn", "java"),
    Package("org.hibernate.orm:hibernate-core", "6.6.13.Final", "mvn", "java"),
    Package("tokio", "1.47.1", "cargo", "rust", "src"),
    Package("bevy_ecs", "0.16.1", "cargo", "rust", "src"),
    Package("nalgebra", "0.33.2", "cargo", "rust", "src"),
    Package("k8s.io/kubernetes", "v1.33.1", "go", "go", "pkg"),
    Package("golang.org/x/tools", "v0.36.0", "go", "go"),
    Package("effect", "3.17.7", "npm", "typescript", "src"),
    Package("three", "0.178.0", "npm", "javascript", "src"),
    Package("librocksdb-sys", "0.17.1+9.9.3", "cargo", "cpp", "rocksdb"),
)
"""The packages of every benchmark."""


def fetch(package: Package) -> Path:
    """Return the folder with the package's sources, fetched unless it is there already.

    Safe to call from several threads and processes. Raises FetchError.
    """
    folder = f"{package.client}-{package.name}-{package.version}".replace("/", "-")
    place = cache_folder() / folder.replace(":", "-")
    if not place.is_dir():
        with tempfile.TemporaryDirectory(dir=cache_folder(), prefix=".fetching-") as scratch:
            fetched = _FETCHERS[package.client](package, Path(scratch))
            try:
                fetched.rename(place)
            except OSError:
                if not place.is_dir():  # nobody else was faster
                    raise
    sources = place / package.folder
    if not sources.is_dir():
        raise FetchError(f"{package} has no folder {package.folder}; look into {place}")
    return sources


def fetch_all(packages: Sequence[Package] = PACKAGES) -> dict[Package, Path]:
    """Fetch packages, several at a time; return the folder of each. Raises FetchError."""
    with ThreadPoolExecutor(4) as threads:
        return dict(zip(packages, threads.map(fetch, packages), strict=True))


def cache_folder() -> Path:
    """Return the folder that holds the packages, made if need be. Raises FetchError."""
    configured = os.environ.get(_CACHE)
    folder = Path(configured or platformdirs.user_cache_path("codeindex-bench"))
    try:
        folder.mkdir(parents=True, exist_ok=True)
    except OSError as error:
        raise FetchError(
            f"{folder} cannot keep packages ({error.strerror}); set {_CACHE}"
        ) from error
    return folder.resolve()


def _run(package: Package, command: Sequence[str], folder: Path, **environment: str) -> str:
    """Run a registry's client in a folder; return what it printed."""
    try:
        done = subprocess.run(
            command,
            cwd=folder,
            env=os.environ | environment,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            errors="replace",
            check=False,
        )
    except FileNotFoundError:
        raise FetchError(f"{package} needs the program {command[0]}; install it") from None
    if done.returncode != 0:
        said = (done.stderr.strip() or done.stdout.strip())[-2000:]
        raise FetchError(f"{package}: {' '.join(command[:3])} failed:\n{said}")
    return done.stdout


def _unpack(package: Package, folder: Path, archive_format: str) -> Path:
    """Unpack the one archive in a folder; members that would land outside are refused."""
    (archive,) = folder.iterdir()
    target = folder / "unpacked"
    try:
        if archive_format == "zip":
            shutil.unpack_archive(archive, target, "zip")
        else:
            shutil.unpack_archive(archive, target, archive_format, filter="data")
    except (OSError, ValueError, shutil.ReadError) as error:
        raise FetchError(f"{package}: {archive.name} cannot be unpacked: {error}") from error
    return target


def _pip(package: Package, scratch: Path) -> Path:
    # A wheel holds the sources of a pure package; to fetch an sdist, pip runs its build.
    wanted = f"{package.name}=={package.version}"
    command = [sys.executable, "-m", "pip", "download", "-q", "--no-deps", "-d", "."]
    _run(package, [*command, "--only-binary", ":all:", wanted], scratch)
    return _unpack(package, scratch, "zip")


def _npm(package: Package, scratch: Path) -> Path:
    _run(package, ["npm", "pack", "--ignore-scripts", f"{package.name}@{package.version}"], scratch)
    return _unpack(package, scratch, "gztar") / "package"


def _mvn(package: Package, scratch: Path) -> Path:
    artifact = f"{package.name}:{package.version}:jar:sources"
    options = [f"-Dartifact={artifact}", f"-DoutputDirectory={scratch}"]
    _run(package, ["mvn", "-B", "-q", "dependency:copy", *options], scratch)
    return _unpack(package, scratch, "zip")


def _go(package: Package, scratch: Path) -> Path:
    command = ["go", "mod", "download", "-modcacherw", "-json"]
    wanted = f"{package.name}@{package.version}"
    modules = {"GOMODCACHE": str(scratch), "GOTOOLCHAIN": "local", "GOFLAGS": ""}
    return Path(json.loads(_run(package, [*command, wanted], scratch, **modules))["Dir"])


def _cargo(package: Package, scratch: Path) -> Path:
    # Without its default features a crate brings few others along.
    manifest = (
        '[package]\nname = "scratch"\nversion = "0.0.0"\n[lib]\npath = "lib.rs"\n[dependencies]\n'
        f'{package.name} = {{ version = "={package.version}", default-features = false }}\n'
    )
    (scratch / "Cargo.toml").write_text(manifest)
    _run(package, ["cargo", "vendor", "-q", "--versioned-dirs", "vendor"], scratch)
    return scratch / "vendor" / f"{package.name}-{package.version}"


_FETCHERS = {"cargo": _cargo, "go": _go, "mvn": _mvn, "npm": _npm, "pip": _pip}


def _main() -> int:
    from benchmarks.sources import parsed_files

    total = 0
    try:
        for package, folder in fetch_all().items():
            count = sum(len(file.symbols) for file in parsed_files(folder))
            total += count
            print(f"{package!s:50} {package.language:10} {count:8,}  {folder}", flush=True)
    except FetchError as error:
        print(f"packages: {error}", file=sys.stderr)
        return 3
    print(f"{'together':50} {'':10} {total:8,}")
    return 0


if __name__ == "__main__":
    sys.exit(_main())
