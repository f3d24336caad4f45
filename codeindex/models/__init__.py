"""Plain records and constants that describe what an index holds."""
