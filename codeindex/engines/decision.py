"""The decision model: the client that asks it, and the request and answer of a rerank."""

import math
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any

RERANK_QUESTION_VERSION = "rerank-1"
"""Changes whenever `rerank_request` asks differently, so that answers are not mixed up."""


class DecisionError(Exception):
    """The decision model gave no usable answer; the message is a sentence a person understands."""


@dataclass(frozen=True, slots=True)
class DecisionResult:
    """The answer of the decision model.

    `probabilities` pairs the key of each question with the probability, from 0 to 1, that it is
    answered with yes, in the order the model gave them.
    """

    probabilities: tuple[tuple[str, float], ...]


class DecisionClient:
    """Asks the decision model. Without a model, which is the default, every switch is off.

    Safe to use from any thread.
    """

    source_consented: bool = False
    """Whether the user agreed that the model is shown source text."""

    def feature_enabled(self, name: str) -> bool:
        """Return whether the client is usable and its switch `name` is on."""
        return False

    def decide(
        self, state: Any, questions: Mapping[str, Any], *, question_version: str
    ) -> DecisionResult:
        """Ask the model `questions` about `state`; raises DecisionError on every failure."""
        raise DecisionError("No decision model is configured.")


def rerank_request(query: str, lines: Sequence[str]) -> tuple[dict[str, str], dict[str, str]]:
    """Return the state and the questions that rank candidates against a user's question.

    `lines` describes one candidate each. The key of a question is its candidate's position,
    counted from 0.
    """
    state = {
        "task": "A person asks where something is done in a code base. For each symbol below, "
        "give the probability that it answers the question.",
        "question": query,
    }
    return state, {str(position): line for position, line in enumerate(lines)}


def rerank_order(answer: DecisionResult, n: int) -> list[int]:
    """Return the positions 0 to n - 1, each once, the most probable candidate first.

    Equally probable candidates keep their order. Raises DecisionError when the answer lacks a
    candidate, names one twice or one that was not asked, or gives a probability that is no
    number from 0 to 1.
    """
    asked = {str(position): position for position in range(n)}
    probability_at: dict[int, float] = {}
    for key, probability in answer.probabilities:
        position = asked.get(key)
        if position is None:
            raise DecisionError(f"The decision model rated candidate {key!r}, which is none.")
        if position in probability_at:
            raise DecisionError(f"The decision model rated candidate {key} twice.")
        if (
            isinstance(probability, bool)
            or not isinstance(probability, int | float)
            or not math.isfinite(probability)
            or not 0 <= probability <= 1
        ):
            raise DecisionError(
                f"The decision model gave candidate {key} the probability {probability!r}, "
                "which is no number from 0 to 1."
            )
        probability_at[position] = probability
    if len(probability_at) < n:
        missing = min(set(range(n)) - probability_at.keys())
        raise DecisionError(f"The decision model left out candidate {missing}.")
    return sorted(range(n), key=lambda position: -probability_at[position])
