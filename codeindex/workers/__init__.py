"""Libraries that do the heavy work of the index."""
