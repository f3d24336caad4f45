"""The models behind retrieval: embeddings of text, and decisions about candidates."""
