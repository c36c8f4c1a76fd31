# SPDX-License-Identifier: Apache-2.0
"""The cache as a mapping, beside a dict; shared by processes; and files that are none."""

import os
import pathlib
import random
import subprocess
import sys
import threading
import uuid

import kfa
import pytest
from conftest import run, run_json


def template(draw: random.Random) -> kfa.TemplateObject:
    return kfa.TemplateObject(f"t{draw.randint(0, 20)}", "application", "x86_64", draw.choice([None, "debian-12"]),
                              draw.choice([None, "1.0", "ä"]), draw.random() < 0.5, True, False, "/p", ["x"],
                              [uuid.UUID(int=draw.getrandbits(128) | 1)])


def test_cache_beside_a_dict(tmp_path: pathlib.Path) -> None:
    draw, model = random.Random(5), {}
    cache = kfa.Cache(tmp_path / "t.cache")
    for step in range(300):
        one, key = template(draw), f"k{draw.randint(0, 30)}"
        if step % 5 == 0:
            cache.put(one)
            model[one.key] = one
        elif step % 5 == 1:
            gone = [name for name in model if draw.random() < 0.2]
            cache.change({**{name: None for name in gone}, key: one})
            model = {**{name: value for name, value in model.items() if name not in gone}, key: one}
        elif step % 5 == 2 and key in model:
            assert cache.pop(key) == model.pop(key)
        else:
            cache[key] = model[key] = one
        assert kfa.TemplateObject.from_message(one.to_message()) == one and cache.get("none") is None
    assert dict(cache) == model == dict(cache.items()) and len(cache) == len(model)
    assert list(cache) == sorted(model, key=str.encode)
    assert {one["key"] for one in run_json("cache", "list", cache.path)} == set(model)
    assert cache.repair() in (True, False) and run("cache", "verify", cache.path).returncode == 0
    cache.sync()
    other = kfa.Cache(cache.path, create=False)
    left = iter(other.values())
    first = next(left)
    cache.clear()
    assert [first, *left] == [model[key] for key in sorted(model, key=str.encode)]
    assert dict(other) == {}
    for name, error in (("none", KeyError), (5, TypeError), ("x\0y", KeyError)):
        with pytest.raises(error):
            _ = other[name]
    for key, value, error in (("a" * 256, one, kfa.Error), ("x\0y", one, kfa.Error), ("a", None, TypeError),
                              ("a", "x", TypeError)):
        with pytest.raises(error):
            cache[key] = value
    assert len(cache) == 0


def test_cache_shared_by_threads_and_children(tmp_path: pathlib.Path) -> None:
    cache, one, held = kfa.Cache(tmp_path / "t.cache"), template(random.Random(1)), []

    def work(name: str) -> None:
        for number in range(40):
            cache[f"{name}{number}"] = one
            assert cache[f"{name}{number}"] == one

    threads = [threading.Thread(target=work, args=(f"thread{number}.",)) for number in range(3)]
    for thread in threads:
        thread.start()
    for number in range(4):
        child = os.fork()
        if child == 0:
            try:
                work(f"child{number}.")
                os._exit(0)
            finally:
                os._exit(1)
        held.append(child)
    assert [os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) for child in held] == [0] * 4
    for thread in threads:
        thread.join()
    assert len(cache) == 7 * 40 and all(value == one for value in cache.values())


def test_lock_that_somebody_keeps_ends_no_interpreter(tmp_path: pathlib.Path) -> None:
    code = f"""if True:
        import fcntl, struct, kfa
        cache = kfa.Cache({str(tmp_path / "t.cache")!r}, timeout=0.1)
        file = open(cache.path, "r+b")
        fcntl.fcntl(file, fcntl.F_OFD_SETLK, struct.pack("hhqqi0q", fcntl.F_WRLCK, 0, 24, 4, 0))
        del cache
        """
    assert subprocess.run([sys.executable, "-c", code], check=False).returncode == 0


def test_files_that_are_no_cache(tmp_path: pathlib.Path) -> None:
    path, draw = tmp_path / "t.cache", random.Random(2)
    for size in (1, 100, 5000, 9000):
        path.write_bytes(content := draw.randbytes(size))
        with pytest.raises(kfa.Error) as refused:
            kfa.Cache(path)
        assert refused.value.file == str(path) and refused.value.code < -1 and path.stat().st_size == size
        # The word of the lock is all that was written.
        assert path.read_bytes()[28:] == content[28:]
    with pytest.raises(FileNotFoundError):
        kfa.Cache(tmp_path / "none.cache", create=False)
