"""The errors that the host raises for its users: each message is a sentence a person can act on."""


class CodeIndexError(Exception):
    """Anything the host could not do for its user; the message says what and what to do."""


class TryAgainLaterError(CodeIndexError):
    """A resource is not ready yet; the same call may succeed a moment later.

    The message is one English sentence.
    """


class EmbeddingNotReadyError(TryAgainLaterError):
    """The embedding model is still loading."""


class EmbeddingModelError(CodeIndexError):
    """The embedding model cannot be loaded, so nothing can be embedded until that is repaired."""


class ConfigurationError(CodeIndexError):
    """A configuration file or variable says what cannot be followed; the message names it."""


class IndexFileError(CodeIndexError):
    """The index file cannot be opened, is no index of ours, or is damaged."""
