"""Seeded worlds, questions and texts, small and odd, that reach what can go wrong."""

import random
import struct
from collections.abc import Callable, Sequence
from typing import Any, TypeVar

from codeindex.models.symbol import StoredSymbol

from .fakes import ERRORS, ORDERS, Question, World

T = TypeVar("T")

_NAMES = """
parse Parser parser parseConfig parse_config parse2 ParserX parsers ParseError par part parts
build_context_pack build_context_pack_v2 HTTPServer getHTTPResponse_v2 XMLHttpRequest iOS
IPv6Address io X X1 x2 then the music Music MusicMixer MusicBox mixer duck work export exporter PDF
$scope $ near AND NOT debounce debounced debounces _private __init__ fixture TestSuite test_utils
"""
# Names whose lower case is longer or depends on their place, or whose order shows how they are
# compared; the Kelvin sign is lowered to an ASCII letter.
NAMES = [*_NAMES.split(), "parse\u0130x", "\u0130O", "\u039f\u0394\u039f\u03a3", "PARSE\u03a3", ""]
NAMES += ["parse\u03a3x", "\u212aey", "key", "keyring", "\u212aeyed", "stra\u00dfe", "STRASSE", " "]
NAMES += ["parse\U0001f600", "parse\uffff", "parse\ud800", "parse\0", "parse\0b", "\ud800"]
NAMES += ["parse\u03c3", "parse\u03c2", "parsez"]
_WORDS = """
how does the work what is where music duck background parse parser config debounced near or not
build context pack http response export latest testimony then a of 2 42 tests mocks spec it's key
"""
WORDS = _WORDS.split()
# Words that read as code and start many of the names, some of them each other's beginnings.
BEGINNINGS = [
    "Par",
    "Pars",
    "Parse",
    "ParseC",
    "parse_",
    "Music",
    "MusicM",
    "Key",
    "Deb",
    "Exp",
    "Io",
]
JOINTS = [*"            .-_/?\n\0\u00e9\ud800", "", "  ", "()", ", "]
PATHS = ["src/a.py", "src/b.py", "src/parse/config.py", "srcx/a.py", "src", "lib/music_mixer.ts"]
PATHS += ["tests/test_parser.py", "src/test_io.py", "Src/a.py", "src/./x", "src/\u00e9.py"]
PATHS += ["the/of.c", "src/\0n.c", "src/\ud800.c", "src//x.go", "a b.rs"]
SCOPES = ["", ".", "./", "/", " \t\u00a0\u2003", "\x1c.\x1f", "src", "./src/", "././src", "src/ "]
SCOPES += [
    ".//src",
    "src\\parse",
    " src/a.py\n",
    "src/a.py",
    "sr",
    "SRC",
    "src/./x",
    "./.",
    "tests",
]
SCOPES += ["src/\u00e9.py", "src/\0n.c", "\u3000lib\u0085", "\\src\\", "..", "src//x.go", "/ /"]
SCOPES += ["src/\ud800.c", ".\\src", "\u200bsrc", "./ /", ".. /"]
KINDS = ["class", "type", "struct", "function", "method", "module", "constant", "constant"]
MODELS = ["model-1"] * 4 + ["", "\u00c9 \ud800\0", "a\nb"]
TOKENIZERS = ["unicode61", "ascii", "porter ascii", "trigram", "", "unicode61 remove_diacritics 0"]
TOKENIZERS += ["nope", "n\u00f6", "x'y", "unicode61 nope 3", "ascii separators ae", "porter"]
WEIGHTS = [0.0, 1.0, 2.25, 0.5, 10.0, -1.0, 0.0001, 1e15, 123456.789, -0.0, 7.0]
ODD_WEIGHTS = [1e16, 1e-5, 1e300, -2.5e-7, 5e-324]
HUGE = 10**30
IDS = [1, 2, 7, 100, -1, -5, 0, 2**31, 2**53 + 1, 2**63 - 1, -(2**63)]
_RANKING = """
retrieval_fingerprint retrievable_code_symbols is_test_path embedder embedder wait_ready embed name
nearest_symbol_ids nearest_symbol_ids
"""
_RERANKING = """
feature_enabled rerank_request rerank_order source_consented candidate_line get_symbols_by_ids
decide
"""


def _often(r: random.Random, usual: T, share: float, others: Sequence[T]) -> T:
    return usual if r.random() < share else r.choice(others)


def text(r: random.Random, words: int = 6) -> str:
    """Return words of questions and of code, joined in ordinary and in odd ways."""
    said = [r.choice(r.choice([WORDS, NAMES])) for _ in range(r.randint(0, words))]
    return "".join(part for word in said for part in (word, r.choice(JOINTS)))


def noise(r: random.Random) -> str:
    """Return characters at which the splitting of words and names turns."""
    alphabet = (
        "abzABZ019_$.-' \u00e9\u00c9\u0130\u03a3\u01c5\u00b2\u0661\u0660\u2160\u00aa\u212a\ud800\0"
    )
    return "".join(r.choices(alphabet, k=r.randint(0, 9)))


def weight(r: random.Random) -> float:
    """Return any finite float: one of few digits, or one of random bits."""
    while True:
        drawn = r.choice([
            r.choice(WEIGHTS + ODD_WEIGHTS),
            round(r.uniform(-100, 100), r.randint(0, 4)) * 10.0 ** r.randint(-9, 20),
            struct.unpack("d", r.randbytes(8))[0],
        ])  # fmt: skip
        if abs(drawn) < float("inf"):
            return float(drawn)


def _symbols(r: random.Random, pool: Sequence[str]) -> tuple[StoredSymbol, ...]:
    count = r.choice([0, 1, 3, 8, 15, 15, 30, 30, 60])
    names = r.sample(pool, r.randint(3, len(pool)))
    paths = r.sample(PATHS, r.randint(1, 8))
    ids = r.sample(sorted({*IDS, *range(10, 10 + count)}), count)
    symbols = []
    for symbol_id in ids:
        name = r.choice(names)
        line = r.choice([1, 10, 2**40])
        symbols.append(
            StoredSymbol(
                symbol_id,
                r.choice(["", "pkg.", "a\0b::", "\ud800."]) + name,
                name,
                _often(r, r.choice(KINDS), 0.9995, ["comment"]),
                r.choice(paths),
                line,
                line + r.randint(0, 9),
                r.choice([None, "", f"def {name}({text(r, 2)})", "sig\0\ud800"]),
                r.choice([None, None, "", text(r), text(r, 20), "doc\0parse\ud800"]),
            )
        )
    return tuple(symbols)


def _states(r: random.Random) -> tuple[tuple[Any, tuple[StoredSymbol, ...]], ...]:
    """Return one to three states; two may share a fingerprint, of equal or the same value."""
    kinds: list[list[Any]] = [[1, 2, 3], [1, 1.0, 2], [("a", 1), ("a", 2), "b"], ["", "\0", None]]
    fingerprints = r.choice(kinds)
    return tuple(
        (fingerprint, _symbols(r, NAMES)) for fingerprint in fingerprints[: r.randint(1, 3)]
    )


def _settings(r: random.Random) -> dict[str, Any] | None:
    if r.random() < 0.25:
        return None
    drawn: dict[str, Any] = {
        "rrf_k": _often(r, 60, 0.6, [0, 1, 10**6, 2**53 + 1, 2**63 - 1, -1, -2, -7, -60, -(2**63)]),
        "depth": r.choice([50, 50, 1, 2, 5, 8, 12, 0, -3, HUGE, -HUGE]),
        "semantic_shortlist": r.choice([150, 1, 2, 5, 20, 0, -1, HUGE]),
        "semantic_max_neighbours": r.choice([2400, 1, 4, 7, 30, 0, -5, HUGE]),
        "best_files": r.choice([1, 1, 2, 3, 0, -1, HUGE, -HUGE]),
        "tokenizer": _often(r, "porter unicode61", 0.7, TOKENIZERS),
    }
    weights = _often(r, WEIGHTS, 0.85, [WEIGHTS + ODD_WEIGHTS])
    columns_of = {
        "weights": "name signature path docstring",
        "file_weights": "names path docstrings",
    }
    for key, columns in columns_of.items():
        if r.random() < 0.4:
            drawn[key] = {
                column: r.choice(weights) for column in columns.split() if r.random() < 0.7
            }
    return {key: value for key, value in drawn.items() if r.random() < 0.7}


def _failures(r: random.Random) -> tuple[tuple[str, int, str], ...]:
    if r.random() < 0.65:
        return ()
    errors = _often(r, list(ERRORS), 0.6, [["later", "decision", "decision, derived"]])
    drawn = [
        (r.choice(calls.split()), r.choice([1, 1, 1, 2, 3]), r.choice(errors))
        for calls in (_RANKING, _RERANKING)
    ]
    if r.random() < 0.15:
        drawn.append(("next symbol", r.randint(1, 9), r.choice(errors)))
    return tuple(drawn)


QUERIES: list[Callable[[random.Random], str]] = [
    text,
    text,
    lambda r: text(r, 2),
    lambda r: r.choice(NAMES),
    lambda r: " ".join(r.choices(WORDS, k=4)),
    lambda r: " ".join(r.sample(BEGINNINGS, k=r.randint(1, 5))),
    lambda r: " ".join([r.choice(WORDS)] * 2),
    noise,
]


def _question(r: random.Random, states: int) -> Question:
    arguments: dict[str, Any] = {
        "limit": _often(
            r, r.choice([1, 2, 3, 5, 10, 14]), 0.85, [61, 61, 0, -3, HUGE, -HUGE, 2**63 - 1]
        ),
        "scope": _often(r, None, 0.7, SCOPES),
        "include_tests": r.choice([None, None, True, False]),
        "rerank": r.random() < 0.5,
    }
    return Question(
        query=r.choice(QUERIES)(r),
        arguments={key: value for key, value in arguments.items() if r.random() < 0.8},
        state=r.randrange(states),
        then_state=_often(r, None, 0.95, range(states)),
        failures=_failures(r),
        switch_on=r.random() < 0.9,
        order=r.choice(list(ORDERS)),
    )


def _lookups(r: random.Random) -> World:
    """Return an index of names that begin alike, asked for several of their beginnings at once."""
    names = [name for name in NAMES if name.lower().startswith("par")]
    asked = [
        *BEGINNINGS,
        "Part",
        "ParseConfig",
        "Parser",
        "ParseCon",
        "parse_c",
        "ParseE",
        "ParserS",
    ]
    return World(
        states=((1, _symbols(r, names)),),
        questions=tuple(
            Question(" ".join(r.sample(asked, k=r.randint(1, 5))), {"limit": r.randint(1, 9)})
            for _ in range(8)
        ),
        settings={"depth": r.randint(1, 9)},
        embedder=None,
    )


def world(r: random.Random) -> World:
    """Return a host with up to three states of its index, and eight questions."""
    if r.random() < 0.2:
        return _lookups(r)
    states = _states(r)
    known = [symbol.id for _, symbols in states for symbol in symbols]
    strangers = [99999, -99999]
    neighbours = r.choices(known + strangers, k=r.choice([0, 1, 5, 20, 20, 70, 70, 200]))
    if r.random() < 0.7:
        neighbours = list(dict.fromkeys(neighbours))
    return World(
        states=states,
        questions=tuple(_question(r, len(states)) for _ in range(8)),
        settings=_settings(r),
        embedder=_often(r, None, 0.1, ["function", "engine"]),
        model=r.choice(MODELS),
        neighbours=tuple(neighbours),
        ignores_top_k=r.random() < 0.1,
        client=r.random() < 0.9,
        listing=r.choice(["generator", "list"]),
    )
