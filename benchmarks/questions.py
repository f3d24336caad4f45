"""Questions made of a package's docstrings, and a copy of the package without those docstrings.

The copy differs from the package in nothing else, and its lines keep their numbers: whatever is
built from it, an index or chunks of text, has never seen the docstrings that the questions are.
"""

import random
import re
from collections import defaultdict
from dataclasses import dataclass
from functools import partial
from pathlib import Path

from benchmarks.sentences import question_of
from benchmarks.sources import ParsedFile, parsed_files
from codeindex.models.symbol import ExtractedSymbol
from codeindex.utils.path_filter import is_test_path
from codeindex.workers.retrieval import is_test_query, query_terms

MAX_ANSWERS = 5
_SEARCHED_BELOW = 250  # lines: a file's head comment may follow a long licence
_SEARCHED_ABOVE = 400
_WORD = re.compile(r"\w")


@dataclass(frozen=True, slots=True)
class Answer:
    """A symbol that answers a question; its line is the same in the package and in the copy."""

    path: str
    fqn: str
    start_line: int


@dataclass(frozen=True, slots=True)
class Question:
    """A sentence that one to five symbols of a package are documented with."""

    text: str
    language: str
    answers: frozenset[Answer]


def hide_and_ask(package: Path, copy: Path, share: float, most: int, seed: int) -> list[Question]:
    """Sample a share of the package's sentences as questions and write the copy without them.

    At most `most` questions; the same arguments give the same. Every symbol outside of tests that
    is documented with a sampled sentence loses its docstring and answers the question. Left out
    are sentences on more than five symbols, which say nothing about any one of them, questions
    about tests, and those of which an answer still has a docstring in the copy.
    """
    files = list(parsed_files(package))
    documented: dict[str, list[tuple[ParsedFile, ExtractedSymbol]]] = defaultdict(list)
    for file in files:
        for symbol in file.symbols if not is_test_path(file.path) else ():
            if symbol.docstring and (text := question_of(symbol.docstring, symbol.name)):
                documented[text].append((file, symbol))
    texts = sorted(
        text
        for text, symbols in documented.items()
        if len(symbols) <= MAX_ANSWERS and not is_test_query(query_terms(text))
    )
    random.Random(seed).shuffle(texts)
    texts = texts[: min(most, round(share * len(texts)))]
    hidden: dict[str, list[ExtractedSymbol]] = defaultdict(list)
    for text in texts:
        for file, symbol in documented[text]:
            hidden[file.path].append(symbol)
    for file in files:
        target = copy / file.path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(_without_docstrings(file, hidden[file.path]))
    bare = {
        _answer(file, symbol)
        for file in parsed_files(copy)
        for symbol in (file.symbols if file.path in hidden else ())
        if not symbol.docstring
    }
    questions = []
    for text in texts:
        answers = frozenset(_answer(file, symbol) for file, symbol in documented[text])
        if answers <= bare:
            questions.append(Question(text, documented[text][0][0].language, answers))
    return questions


def _answer(file: ParsedFile, symbol: ExtractedSymbol) -> Answer:
    return Answer(file.path, symbol.fqn, symbol.start_line)


def _without_docstrings(file: ParsedFile, symbols: list[ExtractedSymbol]) -> bytes:
    """Return the file's source with the words of these symbols' docstrings taken out."""
    if not symbols:
        return file.source
    lines = file.source.decode("utf-8", "replace").split("\n")
    for symbol in symbols:
        wanted = [line.strip() for line in (symbol.docstring or "").splitlines() if line.strip()]
        first = symbol.start_line - 1
        below = range(first, min(first + _SEARCHED_BELOW, symbol.end_line))
        above = range(first - 1, max(first - _SEARCHED_ABOVE, 0) - 1, -1)
        blank = partial(_take_out, lines, wanted)
        # What is above may be the sentence of the symbol before, unless nothing is inside. Within
        # the symbol the sentence may stand once more, at each of a function's overloads.
        inside_first = file.language == "python" or symbol.kind == "module"
        if not inside_first:
            any(map(blank, above))
        found = [blank(start) for start in below]
        if inside_first and not any(found):
            any(map(blank, above))
    return "\n".join(lines).encode()


def _take_out(lines: list[str], wanted: list[str], start: int) -> bool:
    """Take the wanted texts out of the lines from `start` on, if they all stand there.

    They stand there when none but bare lines are between them.
    """
    places: list[int] = []
    for number in range(start, len(lines)):
        if wanted[len(places)] in lines[number]:
            places.append(number)
            if len(places) == len(wanted):
                for place, text in zip(places, wanted, strict=True):
                    lines[place] = lines[place].replace(text, "", 1)
                return True
        elif not places or _WORD.search(lines[number]):
            break
    return False
