"""The retrieval library, converted to Python and nothing more."""

from collections.abc import Iterable, Mapping

import codeindex.workers.retrieval.host
import codeindex.workers.retrieval.records


EXACT: str = 'exact'

LEXICAL: str = 'lexical'

FILE: str = 'file'

SEMANTIC: str = 'semantic'

OK: str = 'ok'

PARTIAL: str = 'partial'

UNAVAILABLE: str = 'unavailable'

FAILED: str = 'failed'

RERANK_FEATURE: str = 'explore_rerank_results'

RERANK_DEPTH: int = 12

CHANNELS: tuple[str, str, str, str]

STOP_WORDS: frozenset[str]

TEST_QUERY_WORDS: frozenset[str]

def split_identifier(text: str) -> list[str]:
    """
    The lower-case words of the text, in order, repeats kept: getHTTPResponse_v2 gives get, http, response, v, 2.
    """

def query_terms(text: str) -> list[str]:
    """
    The search terms of a question: its words without stop words, each once, in order.
    """

def is_test_query(terms: Iterable[str]) -> bool:
    """Whether one of the terms says that a question is about tests."""

def query_names(query: str) -> list[str]:
    """
    The words of the query that could be names in code, whole and as written, each once.
    """

def reads_as_code(word: str) -> bool:
    """
    Whether the word is spelled like a name in code rather than a word of prose.
    """

def ranks_in_order(ids: Iterable[int]) -> dict[int, int]:
    """
    Each distinct id of a best-first list with its 1-based rank, without gaps.
    """

def reciprocal_rank_fusion(rankings: Mapping[str, Mapping[int, int]], k: int = 60) -> list[tuple[int, float, dict[str, int]]]:
    """
    Every ranked id as (id, score, ranks by channel), best first: an id at rank r of a channel earns 1 / (k + r) there. Ties go to the better best rank, then to the lower id.

    Raises ZeroDivisionError when k and a rank add up to 0.
    """

def _bm25(*weights: float) -> str:
    """The FTS5 rank expression for column weights, in column order."""

class HybridRetriever:
    """
    Answers questions about one repository's index.

    Any number of threads may ask one retriever at the same time. It holds its collaborators
    for its whole life and closes none of them; constructing it touches none of them either.
    """

    def __init__(self, repository: codeindex.workers.retrieval.host.Repository, *, embedder: codeindex.workers.retrieval.host.QueryEmbedder | None = None, settings: codeindex.workers.retrieval.records.RetrievalSettings | None = None, decisions: codeindex.workers.retrieval.host.RerankClient | None = None) -> None: ...

    def retrieve(self, query: str, *, limit: int = 10, scope: str | None = None, include_tests: bool | None = None, rerank: bool = False) -> codeindex.workers.retrieval.records.RetrievalResult:
        """
        The symbols that best answer the question, best first, with what each channel did.

        `limit` is how many hits to return at most; `scope` a file or folder relative to the
        repository root (None, "" or "." for all of it); `include_tests` whether symbols in
        test files may answer (None: when the question is about tests); `rerank` asks the
        decision model to reorder the first hits.

        Blocks: it reads the index and may embed the query, with the GIL released in between.
        Raises ValueError for a limit below 1. Failures of the index and of SQLite
        (sqlite3.OperationalError) pass through; those of the embedder and of the decision
        model become a status or a note.
        """
