"""What several tests of the host share."""

import pytest

from codeindex.engines.embedding import EmbeddingEngine


@pytest.fixture(scope="session")
def engine() -> EmbeddingEngine:
    engine = EmbeddingEngine()
    engine.wait_ready(60)
    return engine
