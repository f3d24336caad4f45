"""A slow, plain reading of retrieval in Python, one thread only, to compare the library against.

It keeps the library's public names, so that both answer to the same calls. Nothing here is
clever on purpose: where the library is fast, this is obvious.
"""

import bisect
import contextlib
import logging
import re
import sqlite3
import time
from collections.abc import Callable, Generator, Iterable, Iterator, Mapping, Sequence
from dataclasses import dataclass, field
from typing import Any

from codeindex.engines import decision, decision_text
from codeindex.exceptions import TryAgainLaterError
from codeindex.models.symbol import CALLABLE_KINDS, DECLARATION_KINDS
from codeindex.utils import path_filter
from codeindex.utils.language_filter import SOURCE_LANGUAGES

_logger = logging.getLogger("codeindex.workers.retrieval")

EXACT, LEXICAL, FILE, SEMANTIC = CHANNELS = ("exact", "lexical", "file", "semantic")
OK, PARTIAL, UNAVAILABLE, FAILED = "ok", "partial", "unavailable", "failed"
RERANK_DEPTH = 12
RERANK_FEATURE = "explore_rerank_results"
RETRIEVABLE_KINDS = DECLARATION_KINDS | {"module"}
_TESTS = """
conftest fixture fixtures jest mock mocks pytest spec specs test testing tests unittest vitest
"""
_STOPS = """
a about above after again against all am an and any are as at be because been before being below
between both but by can could d did do does doing down during each few for from further had has
have having he her here hers herself him himself his how i if in into is it its itself just ll m
may me might more most must my myself need no nor not now of off on once only or other our ours
ourselves out over own re s same shall she should so some such t than that the their theirs them
themselves then there these they this those through to too under until up ve very was we were what
when where which while who whom why will with would you your yours yourself yourselves
"""
TEST_QUERY_WORDS = frozenset(_TESTS.split())
STOP_WORDS = frozenset(_STOPS.split())

_BASIS = {EXACT: "name", LEXICAL: "text", FILE: "text", SEMANTIC: "meaning"}
_MIN_PREFIX = 3
_WIDENING = 4
_WORD = re.compile("[A-Z]+(?=[A-Z][a-z])|[A-Z]?[a-z]+|[A-Z]+|[0-9]+")
_NAME = re.compile("[A-Za-z_$][A-Za-z0-9_$]*")
_MIXED_CASE = re.compile("[a-z0-9][A-Z]|[A-Z]{2}[a-z]")
_NO_FTS5 = "this SQLite has no FTS5 for text search"
_RERANK_FAILED = (
    "The decision model could not rerank the hits (see the log); they keep the retriever's order."
)

Admit = Callable[[int], bool]
Ranks = dict[int, int]


# --- Words and names of a question -------------------------------------------------------------


def split_identifier(text: str) -> list[str]:
    return [word.lower() for word in _WORD.findall(text)]


def query_terms(text: str) -> list[str]:
    return list(dict.fromkeys(w for w in split_identifier(text) if w not in STOP_WORDS))


def is_test_query(terms: Iterable[str]) -> bool:
    return any(term in TEST_QUERY_WORDS for term in terms)


def _index_text(text: str | None) -> str:
    return " ".join(w for w in split_identifier(text or "") if w not in STOP_WORDS)


def reads_as_code(word: str) -> bool:
    return (
        "_" in word
        or "$" in word
        or any(character.isdigit() for character in word)
        or _MIXED_CASE.search(word) is not None
        or (word[:1].isupper() and word[1:2].islower())
    )


def query_names(query: str) -> list[str]:
    found = _NAME.findall(query)
    if len(found) == 1:
        return [found[0]]
    return list(dict.fromkeys(name for name in found if name.lower() not in STOP_WORDS))


# --- Records and settings ----------------------------------------------------------------------


@dataclass(frozen=True)
class RetrievedSymbol:
    id: int
    fqn: str
    name: str
    kind: str
    path: str
    start_line: int
    end_line: int
    signature: str | None


@dataclass(frozen=True)
class Hit:
    symbol: RetrievedSymbol
    score: float
    ranks: dict[str, int]


@dataclass(frozen=True)
class RetrievalResult:
    hits: list[Hit]
    channels: dict[str, str]
    note: str | None = None


@dataclass(frozen=True)
class QueryVector:
    values: list[float]
    model: str


@dataclass(frozen=True)
class _Channel:
    ranks: Ranks
    status: str = OK
    problem: str | None = None


def _bm25(*weights: float) -> str:
    # repr is the shortest text that reads back, with an exponent below 1e-4 and from 1e16 on.
    return "bm25(" + ", ".join(repr(float(weight)) for weight in weights) + ")"


@dataclass(frozen=True)
class LexicalWeights:
    name: float = 10.0
    signature: float = 3.0
    path: float = 2.0
    docstring: float = 1.0

    def rank_function(self) -> str:
        return _bm25(self.name, self.signature, self.path, self.docstring)


@dataclass(frozen=True)
class FileWeights:
    names: float = 3.0
    path: float = 2.0
    docstrings: float = 1.0

    def rank_function(self) -> str:
        return _bm25(self.names, self.path, self.docstrings)


@dataclass(frozen=True)
class RetrievalSettings:
    rrf_k: int = 60
    depth: int = 50
    semantic_shortlist: int = 150
    semantic_max_neighbours: int = 2400
    best_files: int = 1
    weights: LexicalWeights = field(default_factory=LexicalWeights)
    file_weights: FileWeights = field(default_factory=FileWeights)
    tokenizer: str = "porter unicode61"


def _sentence_start(message: str) -> str:
    return message[:1].lower() + message[1:]


def _note(channels: Mapping[str, _Channel]) -> str | None:
    sentences = []
    missing = [c.problem for c in channels.values() if c.problem and c.status != PARTIAL]
    if missing:
        bases = [_BASIS[n] for n, c in channels.items() if c.status in (OK, PARTIAL)]
        basis = " and ".join(dict.fromkeys(bases)) or "nothing"
        sentences.append(f"Ranked by {basis} only: {'; '.join(dict.fromkeys(missing))}.")
    for channel in channels.values():
        if channel.problem and channel.status == PARTIAL:
            sentences.append(channel.problem[:1].upper() + channel.problem[1:] + ".")
    return " ".join(sentences) or None


# --- Scope -------------------------------------------------------------------------------------


def _normalize_scope(scope: str | None) -> str | None:
    if scope is None:
        return None
    scope = scope.strip().replace("\\", "/")
    while scope.startswith("./"):
        scope = scope[2:]
    scope = scope.strip("/")
    return None if scope in ("", ".") else scope


def _in_scope(path: str, scope: str | None) -> bool:
    return scope is None or path == scope or path.startswith(scope + "/")


# --- Fusion ------------------------------------------------------------------------------------


def ranks_in_order(ids: Iterable[int]) -> Ranks:
    ranks: Ranks = {}
    for symbol_id in ids:
        if symbol_id not in ranks:
            ranks[symbol_id] = len(ranks) + 1
    return ranks


def reciprocal_rank_fusion(
    rankings: Mapping[str, Mapping[int, int]], k: int = 60
) -> list[tuple[int, float, dict[str, int]]]:
    scores: dict[int, float] = {}
    ranks: dict[int, dict[str, int]] = {}
    for channel, ranking in rankings.items():
        for symbol_id, rank in ranking.items():
            scores[symbol_id] = scores.get(symbol_id, 0.0) + 1.0 / (k + rank)
            ranks.setdefault(symbol_id, {})[channel] = rank
    order = sorted(scores, key=lambda i: (-scores[i], min(ranks[i].values()), i))
    return [(symbol_id, scores[symbol_id], ranks[symbol_id]) for symbol_id in order]


# --- The snapshot and its text tables ----------------------------------------------------------


@dataclass(frozen=True)
class _Corpus:
    fingerprint: Any
    symbols: dict[int, RetrievedSymbol]
    tests: frozenset[int]
    by_name: dict[str, list[int]]
    names: list[str]
    files: dict[int, list[int]]
    fts: sqlite3.Connection | None

    def names_starting_with(self, prefix: str) -> Iterator[str]:
        for name in self.names[bisect.bisect_right(self.names, prefix) :]:
            if not name.startswith(prefix):
                return
            yield name


@dataclass
class _FileText:
    row: int
    path_words: str
    in_tests: bool
    ids: list[int] = field(default_factory=list)
    names: list[str] = field(default_factory=list)
    docstrings: list[str] = field(default_factory=list)

    def add(self, symbol_id: int, name_words: str, docstring_words: str) -> None:
        self.ids.append(symbol_id)
        self.names.append(name_words)
        if docstring_words:
            self.docstrings.append(docstring_words)

    def table_row(self) -> tuple[int, str, str, str]:
        return self.row, " ".join(self.names), self.path_words, " ".join(self.docstrings)


def _kind_order(kind: str) -> int:
    if kind not in RETRIEVABLE_KINDS:
        raise KeyError(kind)
    if kind == "constant":
        return 2
    return 1 if kind in CALLABLE_KINDS or kind == "module" else 0


@contextlib.contextmanager
def _as_operational_error() -> Iterator[None]:
    try:
        yield
    except sqlite3.Error as error:
        raise sqlite3.OperationalError(str(error)) from error


def _text_tables(
    settings: RetrievalSettings,
    symbol_rows: Sequence[tuple[int, str, str, str, str]],
    file_rows: Sequence[tuple[int, str, str, str]],
) -> sqlite3.Connection | None:
    fts = sqlite3.connect(":memory:", isolation_level=None)
    options = f"tokenize = '{settings.tokenizer}', detail = column"
    try:
        fts.execute(
            f"CREATE VIRTUAL TABLE lexical USING fts5(name, signature, path, docstring, {options})"
        )
        fts.execute(f"CREATE VIRTUAL TABLE files USING fts5(names, path, docstrings, {options})")
    except sqlite3.OperationalError:
        fts.close()
        _logger.warning("This SQLite has no FTS5: retrieval ranks without text", exc_info=True)
        return None
    fts.execute("BEGIN")
    with _as_operational_error():
        for table, weights in (("lexical", settings.weights), ("files", settings.file_weights)):
            rank = (weights.rank_function(),)
            fts.execute(f"INSERT INTO {table} ({table}, rank) VALUES ('rank', ?)", rank)
        fts.executemany(
            "INSERT INTO lexical (rowid, name, signature, path, docstring) VALUES (?, ?, ?, ?, ?)",
            symbol_rows,
        )
        fts.executemany(
            "INSERT INTO files (rowid, names, path, docstrings) VALUES (?, ?, ?, ?)", file_rows
        )
        fts.execute("COMMIT")
    return fts


def _matching(
    fts: sqlite3.Connection, table: str, terms: Sequence[str]
) -> Generator[int, None, None]:
    match = " OR ".join(f'"{term}"' for term in terms)
    select = f"SELECT rowid FROM {table} WHERE {table} MATCH ? ORDER BY rank"
    with _as_operational_error(), contextlib.closing(fts.execute(select, (match,))) as rows:
        for (rowid,) in rows:
            yield rowid


def _build_corpus(repository: Any, fingerprint: Any, settings: RetrievalSettings) -> _Corpus:
    start = time.perf_counter()
    symbols: dict[int, RetrievedSymbol] = {}
    tests: set[int] = set()
    by_name: dict[str, list[int]] = {}
    symbol_rows: list[tuple[int, str, str, str, str]] = []
    files: dict[str, _FileText] = {}
    for s in repository.retrievable_code_symbols(SOURCE_LANGUAGES, RETRIEVABLE_KINDS):
        symbols[s.id] = RetrievedSymbol(
            s.id, s.fqn, s.name, s.kind, s.path, s.start_line, s.end_line, s.signature
        )
        if s.path not in files:
            files[s.path] = _FileText(
                len(files) + 1, _index_text(s.path), path_filter.is_test_path(s.path)
            )
        file = files[s.path]
        if file.in_tests:
            tests.add(s.id)
        by_name.setdefault(s.name.lower(), []).append(s.id)
        name_words, docstring_words = _index_text(s.name), _index_text(s.docstring)
        file.add(s.id, name_words, docstring_words)
        symbol_rows.append(
            (s.id, name_words, _index_text(s.signature), file.path_words, docstring_words)
        )

    def listing_order(symbol_id: int) -> tuple[int, str, int]:
        symbol = symbols[symbol_id]
        return _kind_order(symbol.kind), symbol.path, symbol_id

    corpus = _Corpus(
        fingerprint,
        symbols,
        frozenset(tests),
        {name: sorted(ids, key=listing_order) for name, ids in by_name.items()},
        sorted(by_name),
        {file.row: file.ids for file in files.values()},
        _text_tables(settings, symbol_rows, [file.table_row() for file in files.values()]),
    )
    _logger.debug(
        "Retrieval corpus built: %d symbols in %d files (%d symbols in test files) in %.0f ms",
        len(symbols),
        len(files),
        len(tests),
        (time.perf_counter() - start) * 1000,
    )
    return corpus


# --- The retriever -----------------------------------------------------------------------------


def engine_query_embedder(engine: Any) -> Callable[[str], QueryVector]:
    def embed(text: str) -> QueryVector:
        backend = engine.wait_ready(0)
        return QueryVector(backend.embed([text])[0], backend.name)

    return embed


class HybridRetriever:
    def __init__(
        self,
        repository: Any,
        *,
        embedder: Callable[[str], Any] | None = None,
        settings: RetrievalSettings | None = None,
        decisions: Any = None,
    ) -> None:
        self._repository = repository
        self._embedder = embedder
        self._decisions = decisions
        self._settings = RetrievalSettings() if settings is None else settings
        self._corpus_cache: _Corpus | None = None

    def retrieve(
        self,
        query: str,
        *,
        limit: int = 10,
        scope: str | None = None,
        include_tests: bool | None = None,
        rerank: bool = False,
    ) -> RetrievalResult:
        if limit < 1:
            raise ValueError(f"limit must be at least 1, not {limit}")
        terms = query_terms(query)
        tests_allowed = is_test_query(terms) if include_tests is None else include_tests
        corpus = self._corpus()
        admit = self._admission(corpus, tests_allowed, _normalize_scope(scope))
        depth = max(self._settings.depth, limit)
        exact_ids, pinned = self._exact(corpus, query, admit, depth)
        channels = {EXACT: _Channel(ranks_in_order(exact_ids))}
        channels[LEXICAL] = self._lexical(corpus, terms, admit, depth)
        channels[FILE] = self._files(corpus, terms, admit)
        channels[SEMANTIC] = self._semantic(query, admit, depth)
        fused = reciprocal_rank_fusion(
            {name: channel.ranks for name, channel in channels.items()}, self._settings.rrf_k
        )
        ordered = [triple for triple in fused if triple[0] in pinned]
        ordered += [triple for triple in fused if triple[0] not in pinned]
        reranking = rerank and self._reranking()
        taken = ordered[: limit + RERANK_DEPTH if reranking else limit]
        hits = [Hit(corpus.symbols[i], score, ranks) for i, score, ranks in taken]
        notes = [_note(channels)]
        if reranking:
            hits, rerank_note = self._reranked(query, hits, pinned)
            notes.append(rerank_note)
        statuses = {name: channel.status for name, channel in channels.items()}
        return RetrievalResult(hits[:limit], statuses, " ".join(filter(None, notes)) or None)

    def _corpus(self) -> _Corpus:
        fingerprint = self._repository.retrieval_fingerprint()
        corpus = self._corpus_cache
        if corpus is None or corpus.fingerprint != fingerprint:
            corpus = _build_corpus(self._repository, fingerprint, self._settings)
            self._corpus_cache = corpus
        return corpus

    @staticmethod
    def _admission(corpus: _Corpus, tests_allowed: bool, scope: str | None) -> Admit:
        def admit(symbol_id: int) -> bool:
            if symbol_id not in corpus.symbols:
                return False
            if not tests_allowed and symbol_id in corpus.tests:
                return False
            return _in_scope(corpus.symbols[symbol_id].path, scope)

        return admit

    @staticmethod
    def _exact(corpus: _Corpus, query: str, admit: Admit, depth: int) -> tuple[list[int], set[int]]:
        words = query_names(query)
        looked_up = [word for word in words if len(words) == 1 or reads_as_code(word)]
        exact: list[int] = []
        pinned: set[int] = set()
        for word in words:
            ids = [i for i in corpus.by_name.get(word.lower(), []) if admit(i)]
            exact += ids
            if word in looked_up:
                pinned.update(ids)
        prefixed: list[int] = []
        for word in looked_up:
            if len(word) < _MIN_PREFIX:
                continue
            for name in sorted(corpus.names_starting_with(word.lower()), key=len):
                prefixed += [i for i in corpus.by_name[name] if admit(i)]
                if len(prefixed) >= depth:
                    break
        return list(dict.fromkeys(exact + prefixed))[:depth], pinned

    @staticmethod
    def _lexical(corpus: _Corpus, terms: Sequence[str], admit: Admit, depth: int) -> _Channel:
        if corpus.fts is None:
            return _Channel({}, UNAVAILABLE, _NO_FTS5)
        ids: list[int] = []
        if terms:
            with contextlib.closing(_matching(corpus.fts, "lexical", terms)) as matching:
                for symbol_id in matching:
                    if admit(symbol_id):
                        ids.append(symbol_id)
                        if len(ids) == depth:
                            break
        return _Channel(ranks_in_order(ids))

    def _files(self, corpus: _Corpus, terms: Sequence[str], admit: Admit) -> _Channel:
        if corpus.fts is None:
            return _Channel({}, UNAVAILABLE, _NO_FTS5)
        ranks: Ranks = {}
        if terms:
            rank = 0
            with contextlib.closing(_matching(corpus.fts, "files", terms)) as matching:
                for row in matching:
                    selected = [i for i in corpus.files[row] if admit(i)]
                    if not selected:
                        continue
                    rank += 1
                    ranks.update(dict.fromkeys(selected, rank))
                    if rank == self._settings.best_files:
                        break
        return _Channel(ranks)

    def _semantic(self, query: str, admit: Admit, depth: int) -> _Channel:
        if self._embedder is None:
            return _Channel({}, UNAVAILABLE, "no embedding model is configured")
        try:
            vector = self._embedder(query)
        except TryAgainLaterError as error:
            return _Channel({}, UNAVAILABLE, _sentence_start(str(error)))
        except Exception:
            _logger.warning("Embedding the query failed; ranking without meaning", exc_info=True)
            return _Channel({}, FAILED, "embedding the query failed (see the log)")
        try:
            return self._nearest(vector, admit, depth)
        except Exception:
            _logger.warning("The embedding search failed; ranking without meaning", exc_info=True)
            return _Channel({}, FAILED, "the embedding search failed (see the log)")

    def _nearest(self, vector: QueryVector, admit: Admit, depth: int) -> _Channel:
        searched = max(self._settings.semantic_shortlist, depth)
        ceiling = max(self._settings.semantic_max_neighbours, searched)
        while True:
            nearest = self._repository.nearest_symbol_ids(
                vector.values, vector.model, top_k=searched
            )
            if not nearest:
                problem = f"the index has no symbol embeddings of {vector.model}"
                return _Channel({}, UNAVAILABLE, problem)
            admitted = [entry[0] for entry in nearest if admit(entry[0])]
            if len(admitted) >= depth or len(nearest) < searched:
                break
            if searched >= ceiling:
                problem = (
                    f"meaning searched only the {searched} nearest embeddings, "
                    f"{len(admitted)} of them in scope"
                )
                return _Channel(ranks_in_order(admitted), PARTIAL, problem)
            searched = min(searched * _WIDENING, ceiling)
        if not admitted:
            problem = f"no symbol in scope has an embedding of {vector.model}"
            return _Channel({}, UNAVAILABLE, problem)
        return _Channel(ranks_in_order(admitted[:depth]))

    def _reranking(self) -> bool:
        return self._decisions is not None and self._decisions.feature_enabled(RERANK_FEATURE)

    def _reranked(
        self, query: str, hits: list[Hit], pinned: set[int]
    ) -> tuple[list[Hit], str | None]:
        kept = [hit for hit in hits if hit.symbol.id in pinned]
        movable = [hit for hit in hits if hit.symbol.id not in pinned]
        head, tail = movable[:RERANK_DEPTH], movable[RERANK_DEPTH:]
        if len(head) < 2:
            return hits, None
        try:
            lines = self._rerank_lines(head)
            state, questions = decision.rerank_request(query, lines)
            answer = self._decisions.decide(
                state, questions, question_version=decision.RERANK_QUESTION_VERSION
            )
            order = decision.rerank_order(answer, len(head))
        except decision.DecisionError as error:
            _logger.warning("The rerank of %r kept the retriever's order: %s", query, error)
            return hits, _RERANK_FAILED
        except Exception:
            _logger.warning("The rerank of %r failed", query, exc_info=True)
            return hits, _RERANK_FAILED
        return kept + [head[position] for position in order] + tail, None

    def _rerank_lines(self, hits: Sequence[Hit]) -> list[str]:
        consent = self._decisions is not None and decision_text.source_consented(self._decisions)
        found = self._repository.get_symbols_by_ids([hit.symbol.id for hit in hits])
        lines = []
        for hit in hits:
            symbol = hit.symbol
            stored = found.get(symbol.id)
            docstring = None if stored is None else stored.docstring
            lines.append(
                decision_text.candidate_line(
                    symbol.fqn, symbol.kind, docstring, symbol.signature, consent, path=symbol.path
                )
            )
        return lines
