"""What the decision model is shown of a symbol, within what the user consented to."""

from codeindex.utils.text import one_line

_MAX_SIGNATURE = 300
_MAX_DOCSTRING = 400


def source_consented(client: object) -> bool:
    """Return whether the client's user agreed that the model sees source text.

    A client that does not say so has no consent.
    """
    return getattr(client, "source_consented", False) is True


def candidate_line(
    fqn: str,
    kind: str,
    docstring: str | None,
    signature: str | None,
    consent: bool,
    *,
    path: str,
) -> str:
    """Return the one line that shows the model a candidate.

    Names, place and signature are always shown; the docstring, shortened, only with consent.
    """
    line = f"{kind} {fqn} in {path}"
    if signature:
        line += f": {one_line(signature, _MAX_SIGNATURE)}"
    if docstring and consent is True:
        line += f" | {one_line(docstring, _MAX_DOCSTRING)}"
    return one_line(line)
