"""The command line, run as its users run it."""

import json
import re
import resource
import subprocess
import sys
from collections.abc import Mapping
from pathlib import Path
from types import MappingProxyType

import pytest

SHOP = """\
class Cart:
    '''A cart.'''

    def size(self):
        pass

    def drop(self):
        return "\x07\u202e"

def size(): pass
"""


@pytest.fixture(scope="module")
def repo(tmp_path_factory: pytest.TempPathFactory) -> Path:
    root = tmp_path_factory.mktemp("shop")
    (root / "cart.py").write_text(
        '"""The cart."""\n\ndef add_item(cart, item="\x1b[31mred"):\n    """Put an item in."""\n'
    )
    (root / "tests").mkdir()
    (root / "tests" / "test_cart.py").write_text("def test_add_item(): pass\n")
    (root / "not\x1b[2Jcode.txt").write_text("Nothing to index.")
    (root / "shop.py").write_text(SHOP)
    (root / "evil\x1b[2J.py").write_text("def evil_function(): pass  # \x1b[2J \x9b \u202e\n")
    codeindex("index", ".", cwd=root)
    return root


def codeindex(
    *arguments: str,
    cwd: Path,
    env: Mapping[str, str] = MappingProxyType({}),
    largest_file: int = resource.RLIM_INFINITY,
) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [sys.executable, "-m", "codeindex", *arguments],
        cwd=cwd,
        env={"XDG_CACHE_HOME": str(cwd.parent / "cache"), "HOME": str(cwd.parent), **env},
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (largest_file,) * 2),
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
    assert (answer["version"], answer["repository"]) == (1, str(repo))
    assert (answer["question"], answer["note"]) == ("add_item", None)
    assert list(answer["channels"]) == ["exact", "lexical", "file", "semantic"]
    assert answer["freshness"]["checked_at"].endswith("+00:00")
    assert answer["freshness"]["warning"] is None
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


@pytest.mark.parametrize(
    "arguments",
    [
        ["ask", "evil_function"],
        ["ask", "evil_function", "--json"],
        ["show", "evil_function"],
        ["show", "evil_function", "--json"],
        ["show", "\x1b[2J\u202e"],
    ],
)
def test_control_characters_never_reach_the_terminal(repo: Path, arguments: list[str]) -> None:
    for env in ({}, {"FORCE_COLOR": "1"}):
        done = codeindex(*arguments, cwd=repo, env=env)
        assert ("evil" in done.stdout) == ("evil_function" in arguments), done.stderr
        shown = done.stdout + done.stderr
        assert not re.search("\x1b\\[2J|[\x00-\x08\x7f-\x9f\u202e]", shown)
        assert ("\x1b" in shown) == bool(env and "evil" in shown and "--json" not in arguments)


def test_paths_are_links_on_a_terminal_and_colours_can_be_turned_off(repo: Path) -> None:
    shown = codeindex("ask", "add_item", cwd=repo, env={"FORCE_COLOR": "1"}).stdout
    assert f";{(repo / 'cart.py').as_uri()}\x1b\\" in shown
    assert "\x1b[36m" in shown
    plain = codeindex("ask", "add_item", cwd=repo, env={"FORCE_COLOR": "1", "NO_COLOR": "1"}).stdout
    assert not re.search(r"\x1b\[(\d+;)*3\dm", plain)


@pytest.mark.parametrize("name", ["Cart.drop", "shop.Cart.drop", "drop", "./shop.py:8"])
def test_a_symbol_is_shown_by_any_of_its_names(repo: Path, name: str) -> None:
    done = codeindex("show", name, "--context", "1", cwd=repo)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines() == [
        "shop.Cart.drop  method  shop.py:7",
        " 6  ",
        " 7      def drop(self):",
        ' 8          return "??"',
        " 9  ",
    ]


def test_a_name_of_several_symbols_gives_the_candidates(repo: Path) -> None:
    done = codeindex("show", "size", cwd=repo)
    assert done.returncode == 1
    assert done.stdout.splitlines()[1:] == [
        "  shop.Cart.size  method  shop.py:4",
        "  shop.size  function  shop.py:10",
    ]
    shown = json.loads(codeindex("show", "size", "--json", cwd=repo).stdout)
    assert [symbol["fqn"] for symbol in shown["symbols"]] == ["shop.Cart.size", "shop.size"]
    assert shown["source"] is None
    one = json.loads(codeindex("show", "shop.size", "--json", "--context", "0", cwd=repo).stdout)
    assert one["source"] == {"first_line": 10, "text": "def size(): pass"}


def test_status_says_what_the_index_holds_and_leaves_out(repo: Path) -> None:
    known = json.loads(codeindex("status", "--json", cwd=repo).stdout)
    assert (known["version"], known["whole"], known["files"]) == (1, True, 4)
    assert known["languages"] == {"python": 4}
    skipped = {files["reason"]: files for files in known["skipped"]}
    assert skipped["language not read"]["examples"] == ["not\x1b[2Jcode.txt"]
    shown = codeindex("status", "--skipped", cwd=repo)
    assert shown.returncode == 0
    assert "      1  language not read\n         not?[2Jcode.txt\n" in shown.stdout
    assert "code.txt" not in codeindex("status", cwd=repo).stdout


def test_status_makes_no_index(repo: Path) -> None:
    done = codeindex("status", "--index", "none.sqlite", cwd=repo)
    assert (done.returncode, (repo / "none.sqlite").exists()) == (1, False)
    assert "No whole index yet" in done.stdout


def test_an_index_that_cannot_grow_still_answers_and_says_so(repo: Path) -> None:
    late = repo / "late.py"
    late.write_text("".join(f"def late_{number}(): pass\n" for number in range(2000)))
    try:
        done = codeindex("ask", "add_item", "--json", cwd=repo, largest_file=1 << 16)
    finally:
        late.unlink()
    assert done.returncode == 0, done.stderr
    freshness = json.loads(done.stdout)["freshness"]
    assert freshness["checked_at"] is None
    assert freshness["warning"] in done.stderr


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
        (["index", "."], 0, "4 files (0 read, 0 removed)"),
        (["show", "nothing_of_the_kind"], 1, "No symbol is named"),
        (["show", "cart.py:99999"], 1, "No symbol is named"),
        (["show", "x", "--context", "-1"], 2, "--context"),
    ],
)
def test_exit_codes_and_messages(repo: Path, arguments: list[str], code: int, said: str) -> None:
    done = codeindex(*arguments, cwd=repo)
    assert done.returncode == code, done.stderr
    assert said in done.stdout + done.stderr
    assert "Traceback" not in done.stderr
