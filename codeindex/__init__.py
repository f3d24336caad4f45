"""Hybrid code retrieval over one repository: by name, by words, by file and by meaning, offline."""

__version__ = "0.1.0"
