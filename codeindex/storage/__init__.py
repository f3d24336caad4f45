"""The index of one repository, kept in one SQLite file."""
