# SPDX-License-Identifier: Apache-2.0
"""What the tests share: the example node, a copy of it to change, and kfactl to be held against."""

import json
import os
import pathlib
import shutil
import subprocess
from typing import Any

import pytest

NODE = pathlib.Path("examples/node/conf")
FILES = sorted(NODE.glob("*.conf"))


def run(*words: Any) -> "subprocess.CompletedProcess[str]":
    """kfactl with these words."""
    done = subprocess.run([os.environ["KFACTL"], *map(os.fspath, map(_word, words))], capture_output=True, check=False)
    return subprocess.CompletedProcess(done.args, done.returncode, *(os.fsdecode(out) for out in (done.stdout, done.stderr)))


def _word(word: Any) -> Any:
    return word if isinstance(word, (str, os.PathLike)) else str(word)


def run_json(*words: Any) -> Any:
    """What kfactl says, as JSON."""
    return json.loads(run("--format", "json", *words).stdout)


@pytest.fixture
def node(tmp_path: pathlib.Path) -> pathlib.Path:
    """A copy of the example node."""
    return pathlib.Path(shutil.copytree(NODE, tmp_path / "conf"))
