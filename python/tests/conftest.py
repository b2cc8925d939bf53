import os
from pathlib import Path

import pytest

CORPUS = Path(os.environ.get("PSDKIT_CORPUS", Path(__file__).resolve().parents[3] / "shared" / "corpus"))


@pytest.fixture(scope="session")
def corpus() -> Path:
    if not CORPUS.is_dir():
        pytest.skip(f"no corpus at {CORPUS}")
    return CORPUS
