"""What may be configured, where, and what a mistake is told."""

import os
from pathlib import Path

import pytest

from codeindex.configuration import (
    Configuration,
    DecisionConfiguration,
    EmbeddingConfiguration,
    load_configuration,
    user_configuration_file,
)
from codeindex.exceptions import CodeIndexError, ConfigurationError

ENDPOINTS = """
[embedding]
url = "https://models.example/v1"
model = "words-1"
[decision]
url = "http://localhost:11434/v1"
model = "judge"
key_variable = "MODEL_KEY"
show_source = true
"""
SECRET = "sk-0123456789"


@pytest.fixture(autouse=True)
def root(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    monkeypatch.setenv("XDG_CONFIG_HOME", str(tmp_path / "home"))
    user_configuration_file().parent.mkdir(parents=True)
    (tmp_path / "repository").mkdir()
    return tmp_path / "repository"


def refusal(root: Path, user: str = "", repository: str = "", **environment: str) -> str:
    user_configuration_file().write_bytes(user.encode("utf-8", "surrogateescape"))
    (root / ".codeindex.toml").write_text(repository)
    with pytest.raises(CodeIndexError) as raised:
        load_configuration(root, environment)
    assert SECRET not in str(raised.value)
    assert str(raised.value).isprintable()
    return str(raised.value)


def test_without_files_nothing_leaves_the_machine(root: Path) -> None:
    assert load_configuration(root, {}) == Configuration(
        EmbeddingConfiguration("static", None, None), DecisionConfiguration(None, None, None)
    )
    os.mkfifo(root / ".codeindex.toml")
    assert load_configuration(root, {}) == Configuration()


def test_the_repository_may_withhold_and_the_environment_has_the_last_word(root: Path) -> None:
    user_configuration_file().write_text(ENDPOINTS)
    decision = DecisionConfiguration("http://localhost:11434/v1", "judge", "MODEL_KEY", True, True)
    embedding = EmbeddingConfiguration("words-1", "https://models.example/v1")
    assert load_configuration(root, {}) == Configuration(embedding, decision)
    (root / ".codeindex.toml").write_text(
        'embedding.model = "static"\n[decision]\nshow_source = false\n'
        "explore_rerank_results = false\n"
    )
    withheld = load_configuration(root, {})
    assert withheld.embedding.model == "static"
    assert not withheld.decision.show_source
    assert not withheld.decision.explore_rerank_results
    variables = {"CODEINDEX_DECISION_MODEL": "other", "CODEINDEX_DECISION_SHOW_SOURCE": "true"}
    assert load_configuration(root, variables).decision.model == "other"
    assert load_configuration(root, variables).decision.show_source


@pytest.mark.parametrize(
    ("key", "value"),
    [
        ("decision.url", '"https://evil.example/"'),
        ("decision.model", '"dearest"'),
        ("decision.key_variable", '"AWS_SECRET_ACCESS_KEY"'),
        ("decision.show_source", "true"),
        ("decision.explore_rerank_results", "true"),
        ("embedding.url", '"https://evil.example/"'),
        ("embedding.model", '"dearest"'),
        ("embedding.key_variable", '"AWS_SECRET_ACCESS_KEY"'),
    ],
)
def test_a_repository_may_not_choose_where_anything_goes(root: Path, key: str, value: str) -> None:
    said = refusal(root, ENDPOINTS, f"{key} = {value}")
    assert said.startswith(f"{root / '.codeindex.toml'} sets {key}")
    assert said.endswith(f"which only {user_configuration_file()} may do.")


@pytest.mark.parametrize(
    ("user", "said"),
    [
        ("decision.modle = 'x'", "{} sets decision.modle, which is no option; the nearest one is"
         " decision.model."),
        (f"decision.key = '{SECRET}'", "the nearest one is decision.key_variable"),
        ("[embeding]", "sets embeding, which"),
        ("decision = 3", "sets decision, which"),
        ('"\\u001b[2J" = 3', "sets ?[2J, which"),
        ("decision.show_source = 'yes'", "decision.show_source in {} must be true or false"),
        ("decision.model = 3", "decision.model in {} must be a text in quotes"),
        ("decision.model = ' '", "decision.model in {} must be a text of printable"),
        ("embedding.url = 'models.example'", "embedding.url in {} must be a whole address"),
        ("embedding.url = 'http://a:99999'", "embedding.url in {} must be a whole address"),
        (f"embedding.url = 'https://u:{SECRET}@a'", "must have no user, password"),
        (f"embedding.url = 'https://a/?key={SECRET}'", "must have no user, password"),
        (f"decision.key_variable = '{SECRET}'", "never the key"),
        ("decision.url = 'https://a'", "decision.url is set but decision.model is not"),
        ("embedding.model = 'x'", "embedding.model is set but embedding.url is not"),
        ("[decision]\nurl = 'http://a'\nmodel = 'x'\nkey_variable = 'K'", "plain http to another"),
        ("decision.url = ", "{} is no valid TOML: "),
        ("x = " + "[" * 9999, "{} is no valid TOML: "),
        ("\udcff", "{} is not UTF-8 at byte 0"),
        ("#" * 70_000, "{} is longer than 65,536 bytes"),
    ],
)  # fmt: skip
def test_a_mistake_is_named(root: Path, user: str, said: str) -> None:
    assert said.format(user_configuration_file()) in refusal(root, user)


def test_a_mistake_in_a_variable_is_named_too(root: Path) -> None:
    said = refusal(root, CODEINDEX_DECISION_SHOW_SOURCE="1")
    assert "the environment variable CODEINDEX_DECISION_SHOW_SOURCE must be true or false" in said


def test_a_user_without_a_home_folder_is_told_so(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def homeless(name: str) -> Path:
        raise RuntimeError("Could not determine home directory.")

    monkeypatch.setattr("platformdirs.user_config_path", homeless)
    with pytest.raises(ConfigurationError, match="Set HOME or XDG_CONFIG_HOME"):
        load_configuration(tmp_path)
