"""Scores e-mail messages against heuristic rules."""

import os
from typing import Optional, Sequence, Tuple, Union

_Path = Union[str, bytes, "os.PathLike[str]"]

class LoadError(ValueError):
    """Rules cannot be loaded: says which file or directory, why, and what to do about it."""

def engine() -> str:
    """Which build gives the verdicts: the version, and a digest of what it was built from."""

class Rule:
    name: str
    kind: str
    languages: Tuple[str, ...]
    score: float
    active: bool
    description: str
    file: str
    line: int

class Hit:
    """A rule that tripped."""

    name: str
    kind: str
    score: float
    description: str
    file: str
    line: int

class Verdict:
    score: float
    over: bool
    stopped: bool
    language: str
    hits: Tuple[Hit, ...]
    limits: Tuple[str, ...]
    step_limited: int

class ExplainedText:
    source: str
    number: int
    piece: int
    header: str
    form: str
    uri_source: str
    offset: int
    text: bytes
    range: Optional[Tuple[int, int]]

class NearestTry:
    text: ExplainedText
    pattern: bytes
    item: int
    item_length: int
    is_complete: bool

class MetaStep:
    depth: int
    operation: str
    operand: str
    value: float

class RuleExplanation:
    name: str
    reason: str
    detail: str
    rule: Optional[Rule]
    where: Optional[ExplainedText]
    nearest: Optional[NearestTry]
    steps: Tuple[MetaStep, ...]
    total: float

class Explanation:
    verdict: Verdict
    language_reason: str
    tripped: Tuple[RuleExplanation, ...]
    untripped: Tuple[RuleExplanation, ...]

class RuleSet:
    """The rules of one directory, or of several. Any number of threads may use one at once."""

    def __init__(self, path: Union[_Path, Sequence[_Path]]) -> None: ...
    @property
    def generation(self) -> str: ...
    @property
    def version(self) -> str: ...
    @property
    def rules(self) -> Tuple[Rule, ...]: ...
    @property
    def problems(self) -> Tuple[str, ...]: ...
    def __len__(self) -> int: ...
    def scan(
        self,
        message: bytes,
        *,
        threshold: float = 5.0,
        stop: bool = False,
        percent: int = 0,
        sender: Optional[str] = None,
        budget: float = 0.0,
    ) -> Verdict:
        """Scores a raw message. budget: processor time in seconds; 0 is no bound."""
    def explain(
        self,
        message: bytes,
        names: Sequence[str] = (),
        *,
        threshold: float = 5.0,
        stop: bool = False,
        percent: int = 0,
        sender: Optional[str] = None,
        budget: float = 0.0,
    ) -> Explanation:
        """Scores a message and says where rules tripped, and why those of the names did not."""
