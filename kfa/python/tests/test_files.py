# SPDX-License-Identifier: Apache-2.0
"""Files read, changed, compared, checked and written, each held against what kfactl does; many at once, and by many."""

import fcntl
import json
import os
import pathlib
import pickle
import random
import subprocess
import sys
import threading

import kfa
import pytest
from conftest import FILES, NODE, run, run_json


@pytest.mark.parametrize("path", FILES, ids=lambda path: path.name)
def test_keys_findings_and_differences_as_the_tool_says(path: pathlib.Path) -> None:
    values = kfa.get_values(path)
    assert values == {key: value for key, value in run_json("config", "get", path, *kfa.keys()).items() if value is not None}
    assert kfa.get_values(path, ["OnBoot", "uuid"]) == {key: values.get(key) for key in ("onboot", "uuid")}
    found = run_json("--node", NODE, "config", "check", path)
    members = {"severity": "severity", "rule": "rule", "line": "line", "column": "column", "text": "text"}
    assert [{name: getattr(one, own) for name, own in members.items()} for one in kfa.check(path, node=NODE)] == [
        {name: one.get(name) or None if name in ("line", "column") else one[name] for name in members} for one in found]
    for other in FILES[:3]:
        changes = kfa.compare(path, other)
        assert [{"key": one.key, "value": one.value, "before": one.before} for one in changes] == run_json(
            "config", "diff", path, other)
        assert "".join(f"{one}\n" for one in changes) == run("config", "diff", path, other).stdout
        assert kfa.parse_changes("\n".join(map(str, changes))) == changes
    assert kfa.compare(path, path) == []
    fixed = kfa.fix(path.read_bytes())
    assert len(fixed.fixes) > 0 or fixed.text.encode("utf-8", "surrogateescape") == path.read_bytes()


def test_formulas_as_the_tool_says() -> None:
    assert [(one.number, one.expression, one.comment) for one in kfa.formulas()] == [
        tuple(one.values()) for one in run_json("qos", "formulas")]
    for path in FILES:
        told = run("--format", "json", "qos", "check", path)
        if told.returncode == 2:
            continue
        document, config = json.loads(told.stdout), kfa.read_config(path)
        checked = kfa.check_resources(config)
        assert checked.mode == document["memory_mode"]
        assert [(one.number, one.state) for one in checked.formulas] == [
            (one["identifier"], one["state"]) for one in document["formulas"]]
        advice = run_json("qos", "advise", path)[0]["data"]
        own = kfa.advise(config)
        assert [(one.key, one.value) for one in own.changes] == [(one["key"], one["value"]) for one in advice["changes"]]
        assert (own.violated, own.left) == (advice["violated"], advice["left"])
    for formula, values, holds in (("a.soft <= b.hard && c < 2mb", {"a": (1, 2), "b": 5, "c": 100}, True),
                                   ("QOS.soft <= QOS.hard", {"a": (1, 2), "b": (3, 2)}, False),
                                   ("a > b", {"a": 1, "b": 1}, False)):
        assert kfa.evaluate(formula, values) is holds


def test_changes_of_files_as_the_tool_makes_them(node: pathlib.Path, tmp_path: pathlib.Path) -> None:
    """Random changes by the module and by kfactl to copies of one file end in the same bytes, or are refused by both."""
    draw = random.Random(3)
    mine, theirs = tmp_path / "201.conf", tmp_path / "101.conf"
    samples = [(key, one.example) for key, one in sorted(kfa.keys().items())]
    for _ in range(60):
        content = draw.choice(FILES).read_bytes()
        mine.write_bytes(content)
        theirs.write_bytes(content)
        changes = dict(draw.sample(samples, 2), NAME=draw.choice(["x", "a b", 'q"', "$(id)", "ä", "\udcff"]))
        words = [f"{key}={value}" for key, value in changes.items()]
        told = run("config", "set", theirs, *words)
        try:
            (done,) = kfa.set_values([mine], changes)
            assert told.returncode == 0 and (done.state == "replaced") is (theirs.read_bytes() != content)
        except kfa.ChangeError as error:
            assert told.returncode == 2 and "kfactl: " + str(error).replace("201.conf", "101.conf") == told.stderr.rstrip("\n")
        assert mine.read_bytes() == theirs.read_bytes()
    # A list of changes makes the one file of the other.
    kfa.set_values(node / "101.conf", kfa.compare(node / "101.conf", node / "102.conf"))
    assert kfa.compare(node / "101.conf", node / "102.conf") == []


def test_all_files_or_none(node: pathlib.Path) -> None:
    before = {path: path.read_bytes() for path in node.iterdir()}
    chosen = kfa.select("101-104", node=node).files
    assert [one.veid for one in chosen] == [101, 102, 103, 104]
    with pytest.raises(kfa.ChangeError) as refused:
        kfa.set_values([*chosen, node / "999.conf"], {"ONBOOT": True})
    assert [one.state for one in refused.value.files][-1] == "refused" and len(refused.value.files) == 5
    assert refused.value.file == str(node / "999.conf")
    shown = kfa.set_values(chosen, {"description": None, "ONBOOT": False}, dry_run=True)
    assert before == {path: path.read_bytes() for path in node.iterdir()} and any(one.changed for one in shown)
    done = kfa.set_values(chosen, {"description": None, "ONBOOT": False}, backup=".old")
    assert [one.after for one in done] == [one.after for one in shown]
    for one in chosen:
        path = pathlib.Path(one)
        assert kfa.get_values(one, ["onboot", "description"]) == {"onboot": "no", "description": None}
        assert path.with_name(path.name + ".old").read_bytes() == before[path]
    assert kfa.set_values(node / "120.conf", {"ONBOOT": True}, create=True)[0].changed
    assert (node / "120.conf").read_text() == 'ONBOOT="yes"\n'


@pytest.mark.parametrize("path", FILES, ids=lambda path: path.name)
def test_configurations_written(path: pathlib.Path, tmp_path: pathlib.Path) -> None:
    config = kfa.read_config(path)
    (xml := tmp_path / path.with_suffix(".xml").name).write_text(config.to_message())
    told = run("message", "to-config", xml, "--allow-unsafe")
    assert kfa.format_config(config, allow_unsafe=True) == told.stdout
    target = tmp_path / path.name
    target.write_text("# by hand\nFOREIGN=1\n")
    kfa.write_config(target, config, allow_unsafe=True)
    assert target.read_text().startswith("# by hand\nFOREIGN=1\n")
    # 111 has a host-routed device, whose addresses are written as IP_ADDRESS, too; 112 values that a record cannot keep.
    assert kfa.read_config(target) == kfa.parse_config(os.fsencode(told.stdout), path.name)
    assert kfa.read_config(target) == config or path.name in ("111.conf", "112.conf")
    kfa.write_config(target, config, merge=False, allow_unsafe=True)
    assert os.fsdecode(target.read_bytes()) == told.stdout


def test_bytes_that_are_no_text(tmp_path: pathlib.Path) -> None:
    path = tmp_path / os.fsdecode(b"\xff.conf")
    path.write_bytes(b'NAME="\xe4\xff"\nHOSTNAME="x"\n')
    config = kfa.read_config(path)
    assert config.name == "\udce4\udcff"
    config.hostname = "\udcfe"
    kfa.write_config(path, config)
    assert path.read_bytes() == b'NAME="\xe4\xff"\nHOSTNAME="\xfe"\n'
    with pytest.raises(kfa.Error, match="UTF-8"):
        config.to_message()


CASES = [
    (lambda path: kfa.read_config(path / "1.conf"), kfa.MissingFileError, None, "No such file"),
    (lambda path: kfa.check(path / "1.conf"), FileNotFoundError, None, "No such file"),
    (lambda path: kfa.set_values(path / "1.conf", {"ONBOOT": "no"}), FileNotFoundError, None, "No such file"),
    (lambda path: kfa.read_config(path), kfa.Error, None, "folder"),
    (lambda path: kfa.parse_config('A=1\nB="x\n', "b.conf"), kfa.Error, 2, "not closed"),
    (lambda path: kfa.set_values(path / "2.conf", {"ONBOOT": "maybe"}), kfa.Error, None, "yes or no is wanted"),
    (lambda path: kfa.set_values(path / "2.conf", {"NO_KEY": "1"}), kfa.Error, None, "'NO_KEY' is no key"),
    (lambda path: kfa.set_values(path / "2.conf", {"ONBOOT": 1.5}), TypeError, None, "onboot: a str is wanted"),
    (lambda path: kfa.set_values(path / "2.conf", {5: "x"}), TypeError, None, "changes: a str is wanted"),
    (lambda path: kfa.set_values(path / "2.conf", [("ONBOOT", "yes")]), TypeError, None, "changes: a mapping"),
    (lambda path: kfa.set_values(path / "2.conf", {"NAME": "x"}, backup="a\0b"), kfa.Error, None, "a NUL"),
    (lambda path: kfa.set_values([path, 5], {}), TypeError, None, "files[1]: a path is wanted, not this int"),
    (lambda path: kfa.check([5], node=path), TypeError, None, "files[0]: a path"),
    (lambda path: kfa.compare(kfa.Configuration(), None), TypeError, None, "after: a path"),
    (lambda path: kfa.select(5, node=path), TypeError, None, "words[0]: a path"),
    (lambda path: kfa.select(node=path / "none"), kfa.MissingFileError, None, "No such file"),
    (lambda path: kfa.use_vocabulary(path / "none"), kfa.MissingFileError, None, "No such file"),
    (lambda path: kfa.Cache(path / "c", timeout="1"), TypeError, None, "timeout: a number"),
    (lambda path: kfa.Cache(5), TypeError, None, "path: a path is wanted"),
    (lambda path: kfa.Configuration.__new__(kfa.Configuration).veid, TypeError, None, "never called"),
    (lambda path: kfa.Cache.__new__(kfa.Cache).path, AttributeError, None, "_file"),
    (lambda path: kfa.get_values(path / "2.conf", "onboot"), TypeError, None, "keys: a list is wanted"),
    (lambda path: kfa.get_values(path / "2.conf", ["nokey"]), kfa.Error, None, "'NOKEY' is no key"),
    (lambda path: kfa.read_config("a\0b"), ValueError, None, "null byte"),
    (lambda path: kfa.read_config(5), TypeError, None, "PathLike"),
    (lambda path: kfa.read_config(path / "2.conf", veid=-1), ValueError, None, "veid: a number from 0"),
    (lambda path: kfa.select("7-8", node=path), kfa.Error, None, "range"),
    (lambda path: kfa.evaluate("a <= ", {"a": 1}), kfa.Error, 1, "a name or a number"),
    (lambda path: kfa.evaluate("a / b > 1", {"a": 1, "b": 0}), kfa.Error, None, "zero"),
    (lambda path: kfa.evaluate("a", {"a": 1 << 64}), ValueError, None, "a: a number from"),
    (lambda path: kfa.use_vocabulary(path / "2.conf"), kfa.Error, 1, ""),
    (lambda path: kfa.write_config(path / "2.conf", "x"), TypeError, None, "Configuration"),
    (lambda path: kfa.write_config(path / "none" / "2.conf", kfa.Configuration()), FileNotFoundError, None, ""),
]


@pytest.mark.parametrize("call, kind, line, said", CASES)
def test_what_is_refused(call: object, kind: type, line: object, said: str, tmp_path: pathlib.Path) -> None:
    (tmp_path / "2.conf").write_text('ONBOOT="no"\n')
    with pytest.raises(kind) as refused:
        call(tmp_path)
    assert said in str(refused.value)
    assert getattr(refused.value, "line", None) == line
    again = pickle.loads(pickle.dumps(refused.value))
    assert type(again) is type(refused.value) and str(again) == str(refused.value)
    assert (tmp_path / "2.conf").read_text() == 'ONBOOT="no"\n'


def test_other_threads_run_while_one_waits_for_a_file(node: pathlib.Path) -> None:
    path, done = node / "101.conf", []
    with open(path, "rb") as held:
        fcntl.flock(held, fcntl.LOCK_EX)
        waiting = threading.Thread(target=lambda: done.extend(kfa.set_values(path, {"ONBOOT": False})))
        waiting.start()
        waiting.join(0.5)
        assert waiting.is_alive() and kfa.read_config(path).on_boot is True
    waiting.join()
    assert done[0].state == "replaced" and kfa.read_config(path).on_boot is False


def test_daemons_let_the_interpreter_end(node: pathlib.Path) -> None:
    """Threads that are in the library when the interpreter ends do not take the process with them."""
    program = """
import sys, threading, time, kfa
def work():
    while True:
        kfa.set_values(sys.argv[1], {"ONBOOT": True}, dry_run=True)
for _ in range(3):
    threading.Thread(target=work, daemon=True).start()
time.sleep(0.1)
"""
    for _ in range(3):
        done = subprocess.run([sys.executable, "-c", program, node / "101.conf"], capture_output=True, check=False)
        assert (done.returncode, done.stderr) == (0, b"")


def test_threads_and_forks(node: pathlib.Path) -> None:
    """Threads that read and change one file while the process forks, and children that do the same."""
    path, stop, failures = node / "101.conf", threading.Event(), []

    def work(seed: int) -> None:
        draw = random.Random(seed)
        for _ in range(25):
            config = kfa.read_config(path)
            config.resources["numproc"] = (100, 200)
            assert kfa.Configuration.from_message(config.to_message()) == config
            kfa.set_values(path, {draw.choice(["ONBOOT", "OFFLINE_MANAGEMENT"]): draw.random() < 0.5})
            kfa.check_resources(config)

    def serve(seed: int) -> None:
        while not stop.is_set():
            try:
                work(seed)
            except Exception as error:  # pylint: disable=broad-except
                failures.append(error)
                return

    threads = [threading.Thread(target=serve, args=(seed,)) for seed in range(3)]
    for thread in threads:
        thread.start()
    try:
        for seed in range(8):
            child = os.fork()
            if child == 0:
                try:
                    work(seed)
                    os._exit(0)
                finally:
                    os._exit(1)
            assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    finally:
        stop.set()
        for thread in threads:
            thread.join()
    assert not failures and kfa.read_config(path).hostname == "www.example.com"
    assert not list(node.glob(".101*"))
