"""The Python examples of the project README run as written."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import psdkit

README = Path(__file__).resolve().parents[2] / "README.md"


def python_examples():
    text = README.read_text(encoding="utf-8")
    section = text.split("\n## Python\n", 1)[1].split("\n## ", 1)[0]
    return re.findall(r"```python\n(.*?)```", section, re.S)


def test_readme_has_the_examples():
    assert len(python_examples()) == 3


@pytest.mark.parametrize("index", range(3))
def test_readme_example_runs(corpus, tmp_path, index):
    pytest.importorskip("PIL")
    shutil.copy(corpus / "agpsd-groups.psd", tmp_path / "design.psd")
    (tmp_path / "in").mkdir()
    for name in ("psdtools-1layer.psd", "pillow-rgba.psd"):
        shutil.copy(corpus / name, tmp_path / "in" / name)
    script = tmp_path / "example.py"
    script.write_text(python_examples()[index], encoding="utf-8")
    # The examples import the same psdkit as this test, wherever it comes from.
    env = dict(os.environ, PYTHONPATH=str(Path(psdkit.__file__).resolve().parents[1]))
    subprocess.run([sys.executable, str(script)], cwd=tmp_path, env=env, check=True, timeout=120)
    produced = {0: "design-half.psd", 1: "built.psd", 2: "in/pillow-rgba.png"}[index]
    assert (tmp_path / produced).stat().st_size > 0
