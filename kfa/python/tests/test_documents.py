# SPDX-License-Identifier: Apache-2.0
"""The examples of docs/python.md, each with what it prints, in a copy of the example node."""

import doctest
import pathlib

import pytest


def test_examples_of_the_page(node: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    page = pathlib.Path("docs/python.md").resolve()
    monkeypatch.chdir(node)
    # A prompt at the end of a block is cut off by the line that closes it.
    failed, tried = doctest.testfile(str(page), module_relative=False, optionflags=doctest.NORMALIZE_WHITESPACE)
    assert failed == 0 and tried > 40
