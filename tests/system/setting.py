"""What the tests are run with; run.py sets it."""

import os
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
build = ROOT / "build" / "release"
# Whether there is time for thousands of messages.
full = False
# Below it are messages.
mail = ROOT / "tests" / "data"
EXAMPLE_RULES = ROOT / "rules" / "examples"
EXAMPLE_MAIL = EXAMPLE_RULES / "messages"


def rules():
    """The rule set that real messages are tried with."""
    return pathlib.Path(os.environ.get("CORVANE_RULES_DIR") or EXAMPLE_RULES)
