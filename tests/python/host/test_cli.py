"""The command line, run as its users run it."""

import json
import subprocess
import sys
from pathlib import Path

import pytest


@pytest.fixture(scope="module")
def repo(tmp_path_factory: pytest.TempPathFactory) -> Path:
    root = tmp_path_factory.mktemp("shop")
    (root / "cart.py").write_text(
        '"""The cart."""\n\ndef add_item(cart, item="\x1b[31mred"):\n    """Put an item in."""\n'
    )
    (root / "tests").mkdir()
    (root / "tests" / "test_cart.py").write_text("def test_add_item(): pass\n")
    (root / "evil\x1b[2J.py").write_text("def evil_function(): pass\n")
    codeindex("index", ".", cwd=root)
    return root


def codeindex(*arguments: str, cwd: Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [sys.executable, "-m", "codeindex", *arguments],
        cwd=cwd,
        env={"XDG_CACHE_HOME": str(cwd / ".cache"), "HOME": str(cwd)},
        capture_output=True,
        text=True,
        check=False,
    )


def test_an_answer_is_readable_at_a_glance(repo: Path) -> None:
    done = codeindex("ask", "where is add_item", "--limit", "1", cwd=repo)
    assert (done.returncode, done.stderr) == (0, "")
    place, signature, ranks, *_ = done.stdout.splitlines()
    assert place == "  1  cart.add_item  function  cart.py:3"
    assert signature == '     def add_item(cart, item="?[31mred")'
    assert ranks.startswith("     exact 1 · lexical 1 · file 1 · semantic ")


def test_json_has_its_stated_shape(repo: Path) -> None:
    done = codeindex("ask", "add_item", "--json", cwd=repo)
    answer = json.loads(done.stdout)
    assert list(answer) == ["version", "question", "repository", "hits", "channels", "note"]
    assert (answer["version"], answer["repository"]) == (1, str(repo))
    assert list(answer["channels"]) == ["exact", "lexical", "file", "semantic"]
    hit = answer["hits"][0]
    assert hit.pop("score") > 0
    assert hit.pop("id") > 0
    assert list(hit.pop("ranks").values())
    assert hit == {
        "place": 1,
        "name": "add_item",
        "fqn": "cart.add_item",
        "kind": "function",
        "path": "cart.py",
        "start_line": 3,
        "end_line": 4,
        "signature": 'def add_item(cart, item="?[31mred")',
    }


def test_control_characters_never_reach_the_terminal(repo: Path) -> None:
    for arguments in (["evil_function"], ["evil_function", "--json"]):
        done = codeindex("ask", *arguments, cwd=repo)
        assert "evil" in done.stdout
        assert "\x1b" not in done.stdout + done.stderr


def test_tests_answer_only_when_asked_for(repo: Path) -> None:
    def paths(*arguments: str) -> set[str]:
        done = codeindex("ask", *arguments, "--json", cwd=repo)
        return {hit["path"] for hit in json.loads(done.stdout)["hits"]}

    assert "tests/test_cart.py" not in paths("add_item")
    assert "tests/test_cart.py" in paths("add_item", "--tests")
    assert "tests/test_cart.py" not in paths("test of add_item", "--no-tests")
    assert paths("add_item", "--tests", "--scope", "tests") == {"tests/test_cart.py"}


@pytest.mark.parametrize(
    ("arguments", "code", "said"),
    [
        (["ask", "add_item", "--scope", "nowhere"], 1, "No symbol of this repository"),
        (["ask", "add_item", "--limit", "0"], 2, "--limit"),
        (["ask", " "], 2, "the question is empty"),
        (["ask", "x", "--repo", "missing"], 2, "missing"),
        (["index", "cart.py"], 2, "cart.py"),
        (["ask", "x", "--index", "cart.py"], 3, "no index or a damaged one"),
        (["ask", "x", "--index", "cart.py/x"], 3, "cannot be made"),
        (["ask", "add_item", "--rerank"], 0, "No decision model is configured"),
        (["index", "."], 0, "3 files (0 read, 0 removed)"),
    ],
)
def test_exit_codes_and_messages(repo: Path, arguments: list[str], code: int, said: str) -> None:
    done = codeindex(*arguments, cwd=repo)
    assert done.returncode == code, done.stderr
    assert said in done.stdout + done.stderr
    assert "Traceback" not in done.stderr
