"""What a user can configure, and whose word counts.

Three places are read, the later over the earlier, key by key: the user's own file
(`user_configuration_file`), the repository's file (`.codeindex.toml` at its root), and environment
variables named after the keys (`CODEINDEX_DECISION_URL` for `decision.url`).

A repository's file comes with a checkout from anyone, so it may only withhold: turn a switch off,
or keep to the embedding model that sends nothing. It can therefore neither choose where the user's
key or source goes, nor which variable is read as the key, nor run up the user's bill. Any other
key of it is an error rather than ignored, so that nobody believes it to be in force.

A key itself stands in no file, which could be shared or committed; `key_variable` names the
environment variable that holds it. Nothing here reads that variable, and no error repeats a value,
which may be a key that was put in the wrong place.
"""

import difflib
import ipaddress
import json
import os
import re
import tomllib
from collections.abc import Mapping
from dataclasses import dataclass, field, fields
from pathlib import Path
from typing import Any
from urllib.parse import urlsplit

import platformdirs

from codeindex.exceptions import ConfigurationError
from codeindex.utils.text import one_line

REPOSITORY_FILE = ".codeindex.toml"
STATIC_MODEL = "static"
"""The embedding model that comes with the installation."""

_MAX_BYTES = 65536
_ENVIRONMENT_PREFIX = "CODEINDEX_"


@dataclass(frozen=True, slots=True)
class EmbeddingConfiguration:
    """Which model embeds: the static one, or `model` at the endpoint whose base is `url`."""

    model: str = STATIC_MODEL
    url: str | None = None
    key_variable: str | None = None


@dataclass(frozen=True, slots=True)
class DecisionConfiguration:
    """Which decision model is asked, none without a `url`, and for what it may be used."""

    url: str | None = None
    model: str | None = None
    key_variable: str | None = None
    explore_rerank_results: bool = True
    show_source: bool = False


@dataclass(frozen=True, slots=True)
class Configuration:
    """All of it; without files and environment variables, what stands here."""

    embedding: EmbeddingConfiguration = field(default_factory=EmbeddingConfiguration)
    decision: DecisionConfiguration = field(default_factory=DecisionConfiguration)


_SECTIONS = {"embedding": EmbeddingConfiguration, "decision": DecisionConfiguration}
_TYPES = {
    f"{section}.{option.name}": bool if isinstance(option.default, bool) else str
    for section, options in _SECTIONS.items()
    for option in fields(options)
}
_WITHHOLDING: Mapping[str, object] = {
    "embedding.model": STATIC_MODEL,
    "decision.explore_rerank_results": False,
    "decision.show_source": False,
}


def user_configuration_file() -> Path:
    """Return where the user's own file lies, whether it exists or not.

    Raises ConfigurationError when the user has no home folder.
    """
    try:
        folder = platformdirs.user_config_path("codeindex")
    except RuntimeError as error:
        raise ConfigurationError(
            "There is no home folder to look for a configuration in. Set HOME or XDG_CONFIG_HOME."
        ) from error
    return folder / "config.toml"


def load_configuration(root: Path, environment: Mapping[str, str] = os.environ) -> Configuration:
    """Return the configuration for the repository at `root`.

    Raises ConfigurationError, whose message names the file and the key, for a file that cannot be
    read, an unknown key, a value of another type or form, or a key that is not the file's to set.
    """
    user_file = user_configuration_file()
    repository_file = root / REPOSITORY_FILE
    values = _file_values(user_file)
    for key, value in _file_values(repository_file).items():
        if key not in _WITHHOLDING or value != _WITHHOLDING[key]:
            exception = (
                f" other than to {json.dumps(_WITHHOLDING[key])}" if key in _WITHHOLDING else ""
            )
            raise ConfigurationError(
                f"{repository_file} sets {key}{exception}, which only {user_file} may do."
            )
        values[key] = value
    values |= _environment_values(environment)
    _check_together(values, user_file)
    return Configuration(
        EmbeddingConfiguration(**_section(values, "embedding")),
        DecisionConfiguration(**_section(values, "decision")),
    )


def _section(values: Mapping[str, Any], section: str) -> dict[str, Any]:
    prefix = section + "."
    return {key.removeprefix(prefix): v for key, v in values.items() if key.startswith(prefix)}


def _file_values(file: Path) -> dict[str, Any]:
    """Return the checked values of a file by dotted key; a file that does not exist has none."""
    try:
        if not file.is_file():
            return {}
        with file.open("rb") as stream:
            content = stream.read(_MAX_BYTES + 1)
        if len(content) > _MAX_BYTES:
            raise ConfigurationError(f"{file} is longer than {_MAX_BYTES:,} bytes; shorten it.")
        tables = tomllib.loads(content.decode())
    except OSError as error:
        raise ConfigurationError(f"{file} cannot be read: {error.strerror}.") from error
    except UnicodeDecodeError as error:
        raise ConfigurationError(f"{file} is not UTF-8 at byte {error.start}.") from error
    except (tomllib.TOMLDecodeError, RecursionError) as error:
        raise ConfigurationError(f"{file} is no valid TOML: {one_line(str(error))}.") from error
    values = {}
    for section, table in tables.items():
        if not isinstance(table, dict) or (not table and section not in _SECTIONS):
            raise _unknown(section, str(file))
        for name, value in table.items():
            key = f"{section}.{name}"
            values[key] = _checked(key, value, str(file))
    return values


def _environment_values(environment: Mapping[str, str]) -> dict[str, Any]:
    """Return the checked values of the variables that are set and not empty."""
    values = {}
    for key, wanted in _TYPES.items():
        variable = _ENVIRONMENT_PREFIX + key.replace(".", "_").upper()
        text = environment.get(variable)
        if text:
            value = {"true": True, "false": False}.get(text) if wanted is bool else text
            values[key] = _checked(key, value, f"the environment variable {variable}")
    return values


def _checked(key: str, value: object, source: str) -> object:
    """Return the value when it may stand under that key; `source` says where it was read."""
    if key not in _TYPES:
        raise _unknown(key, source)
    problem = None
    if not isinstance(value, _TYPES[key]):
        problem = "must be true or false" if _TYPES[key] is bool else "must be a text in quotes"
    elif isinstance(value, str):
        if not value.strip() or not value.isprintable():
            problem = "must be a text of printable characters, and not empty"
        elif key.endswith(".url"):
            problem = _url_problem(value)
        elif key.endswith(".key_variable") and not re.fullmatch(r"[A-Za-z_]\w*", value, re.ASCII):
            problem = (
                "must be the name of the environment variable that holds the key, never the key"
            )
    if problem is not None:
        raise ConfigurationError(f"{key} in {source} {problem}.")
    return value


def _unknown(key: str, source: str) -> ConfigurationError:
    completed = [known for known in _TYPES if known.startswith(key)]
    nearest, *_ = completed or difflib.get_close_matches(key, _TYPES, n=1, cutoff=0)
    return ConfigurationError(
        f"{source} sets {one_line(key, 80)}, which is no option; the nearest one is {nearest}."
    )


def _url_problem(url: str) -> str | None:
    try:
        parts = urlsplit(url)
        whole = parts.scheme in ("http", "https") and bool(parts.hostname) and parts.port != 0
    except ValueError:
        whole = False
    if not whole or not url.isascii() or " " in url:
        return "must be a whole address, such as https://models.example/v1"
    if "@" in parts.netloc or parts.query or parts.fragment:
        return "must have no user, password, ? or # in it; a key belongs to key_variable"
    return None


def _check_together(values: Mapping[str, Any], user_file: Path) -> None:
    """Refuse values that make no sense, or are not safe, side by side."""
    for section in _SECTIONS:
        url, model = values.get(f"{section}.url"), values.get(f"{section}.model")
        if url is not None and model is None:
            raise ConfigurationError(
                f"{section}.url is set but {section}.model is not; name the model in {user_file}."
            )
        local = section == "embedding" and model == STATIC_MODEL
        if url is None and model is not None and not local:
            raise ConfigurationError(
                f"{section}.model is set but {section}.url is not; say in {user_file} where it is."
            )
        if url is not None and f"{section}.key_variable" in values and not _keeps_secrets(url):
            raise ConfigurationError(
                f"{section}.url is plain http to another machine, where everyone between could "
                f"read the key; use https or take {section}.key_variable out."
            )


def _keeps_secrets(url: str) -> bool:
    """Return whether what is sent to this address cannot be read on the way."""
    parts = urlsplit(url)
    if parts.scheme == "https" or parts.hostname == "localhost":
        return True
    try:
        return ipaddress.ip_address(parts.hostname or "").is_loopback
    except ValueError:
        return False
