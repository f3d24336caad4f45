"""Hybrid code retrieval: the symbols of an index that answer a question, best first.

Four channels rank (exact names, text of symbols, text of files, meaning), reciprocal-rank fusion
merges them, and the result says how each channel fared.
"""

from codeindex.workers.retrieval._native import (
    CHANNELS,
    EXACT,
    FAILED,
    FILE,
    LEXICAL,
    OK,
    PARTIAL,
    RERANK_DEPTH,
    RERANK_FEATURE,
    SEMANTIC,
    STOP_WORDS,
    TEST_QUERY_WORDS,
    UNAVAILABLE,
    HybridRetriever,
    is_test_query,
    query_names,
    query_terms,
    ranks_in_order,
    reads_as_code,
    reciprocal_rank_fusion,
    split_identifier,
)
from codeindex.workers.retrieval.host import QueryEmbedder, RerankClient, engine_query_embedder
from codeindex.workers.retrieval.kinds import RETRIEVABLE_KINDS
from codeindex.workers.retrieval.records import (
    FileWeights,
    Hit,
    LexicalWeights,
    QueryVector,
    RetrievalResult,
    RetrievalSettings,
    RetrievedSymbol,
)

__all__ = [
    "CHANNELS",
    "EXACT",
    "FAILED",
    "FILE",
    "LEXICAL",
    "OK",
    "PARTIAL",
    "RERANK_DEPTH",
    "RERANK_FEATURE",
    "RETRIEVABLE_KINDS",
    "SEMANTIC",
    "STOP_WORDS",
    "TEST_QUERY_WORDS",
    "UNAVAILABLE",
    "FileWeights",
    "Hit",
    "HybridRetriever",
    "LexicalWeights",
    "QueryEmbedder",
    "QueryVector",
    "RerankClient",
    "RetrievalResult",
    "RetrievalSettings",
    "RetrievedSymbol",
    "engine_query_embedder",
    "is_test_query",
    "query_names",
    "query_terms",
    "ranks_in_order",
    "reads_as_code",
    "reciprocal_rank_fusion",
    "split_identifier",
]
