# SPDX-License-Identifier: Apache-2.0
"""The Ansible modules, run by the packaged ansible-core against local connections, each to a node of its own."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
from typing import Any, Dict, List

import kfa
import pytest
from conftest import NODE

MODULES = pathlib.Path("kfa/python/ansible").resolve()


class Hosts:
    """Several hosts that are this machine, each with a copy of the example node."""

    def __init__(self, folder: pathlib.Path) -> None:
        self.folder = folder
        self.nodes = {name: pathlib.Path(shutil.copytree(NODE, folder / name)) for name in ("one", "two")}
        lines = [f"{name} ansible_connection=local ansible_python_interpreter={sys.executable} node={path}"
                 for name, path in self.nodes.items()]
        (folder / "hosts").write_text("\n".join(lines) + "\n")
        self.environment = {**os.environ, "ANSIBLE_LIBRARY": str(MODULES), "ANSIBLE_LOCAL_TEMP": str(folder / "tmp"), "HOME": str(folder), "ANSIBLE_REMOTE_TEMP": str(folder / "remote"),
                            "ANSIBLE_NOCOLOR": "1", "LC_ALL": "C.UTF-8"}

    def play(self, *tasks: Dict[str, Any], check: bool = False) -> List[Dict[str, Any]]:
        """What each task gives, by host."""
        steps: List[Dict[str, Any]] = []
        for number, task in enumerate(tasks):
            steps.append({**task, "ignore_errors": True, "register": f"told{number}"})
        all_told = "{{ [" + ", ".join(f"told{number}" for number in range(len(tasks))) + "] | to_json }}"
        steps.append({"copy": {"content": all_told, "dest": f"{self.folder}/{{{{ inventory_hostname }}}}.told"}, "check_mode": False})
        (self.folder / "play.yml").write_text(json.dumps([{"hosts": "all", "gather_facts": False, "tasks": steps}]))
        words = ["/usr/bin/ansible-playbook", "-i", self.folder / "hosts", "--diff", self.folder / "play.yml"]
        done = subprocess.run([*words, *(["--check"] if check else [])], env=self.environment, capture_output=True, text=True,
                              check=False)
        assert done.returncode == 0, done.stdout + done.stderr
        told = {name: json.loads((self.folder / f"{name}.told").read_text()) for name in self.nodes}
        return [{name: told[name][number] for name in told} for number in range(len(tasks))]


@pytest.fixture
def hosts(tmp_path: pathlib.Path) -> Hosts:
    return Hosts(tmp_path)


def config(**parameters: Any) -> Dict[str, Any]:
    """A task; its node is that of the host."""
    return {"kfa_config": {"node": "{{ node }}", **parameters}}


def test_present_and_absent(hosts: Hosts) -> None:
    values = {"NAMESERVER": ["192.0.2.53", "192.0.2.54"], "ONBOOT": True, "numproc": 80}
    task = config(environments=["101", "103"], values=values)
    before = {path: path.read_bytes() for node in hosts.nodes.values() for path in node.iterdir()}
    (judged,) = hosts.play(task, check=True)
    for name, told in judged.items():
        assert told["changed"] and [one["veid"] for one in told["environments"]] == [101, 103]
        diff = {one["before_header"]: (one["before"].encode(), one["after"]) for one in told["diff"]}
        path = hosts.nodes[name] / "101.conf"
        assert diff[str(path)][0] == path.read_bytes() and 'NAMESERVER="192.0.2.53 192.0.2.54"' in diff[str(path)][1]
    assert before == {path: path.read_bytes() for path in before}
    # Made once more, nothing changes; and it is so for what is taken out.
    gone = config(environments=["*"], keys=["nameserver"], state="absent")
    made = hosts.play(task, task, gone, gone)
    assert [[one["changed"] for one in told.values()] for told in made] == [[True] * 2, [False] * 2] * 2
    for node in hosts.nodes.values():
        assert kfa.get_values(node / "103.conf", ["nameserver", "onboot", "numproc"]) == {
            "nameserver": None, "onboot": "yes", "numproc": "80"}


def test_new_files_facts_and_refusals(hosts: Hosts) -> None:
    new = config(environments=["120"], create=True, values={"HOSTNAME": "web20.example.com"})
    refused = {"yes or no is wanted": {"values": {"ONBOOT": "maybe"}}, "'NO_KEY' is no key": {"values": {"NO_KEY": 1}},
               "number in this range": {"environments": ["900-910"]}, "state=absent": {"keys": ["NAME"]},
               "a list of these is wanted": {"values": {"NAME": {"a": 1}}}}
    (hosts.nodes["two"] / "130.conf").write_text('A="open\n')
    before = (hosts.nodes["one"] / "101.conf").read_bytes()
    first, second, told, *failed = hosts.play(
        new, new, {"kfa_facts": {"node": "{{ node }}"}},
        *[config(**{"environments": ["101"], **parameters}) for parameters in refused.values()])
    assert [one["changed"] for one in [*first.values(), *second.values()]] == [True, True, False, False]
    facts = told["one"]["ansible_facts"]["kfa_environments"]
    assert facts["120"]["hostname"] == "web20.example.com" and facts["101"]["keys"]["onboot"] == "yes"
    assert facts["104"]["addresses"] == ["203.0.113.4", "2001:db8:4::53", "2001:db8:4::54"] and len(facts) == 15
    assert told["one"]["broken"] == [] and len(told["two"]["broken"]) == 1 and "130.conf:1" in told["two"]["broken"][0]
    for said, one in zip(refused, failed):
        assert one["one"]["failed"] and said in one["one"]["msg"], one
    assert (hosts.nodes["one"] / "101.conf").read_bytes() == before


@pytest.mark.parametrize("name", ["kfa_config", "kfa_facts"])
def test_documentation_renders(hosts: Hosts, name: str) -> None:
    done = subprocess.run(["/usr/bin/ansible-doc", "-t", "module", "-j", name], env=hosts.environment, capture_output=True, text=True,
                          check=False)
    assert done.returncode == 0, done.stderr
    document = json.loads(done.stdout)[name]
    described = set(document["doc"]["options"])
    source = (MODULES / f"{name}.py").read_text()
    assert described == {option for option in described if f'"{option}": {{"type"' in source} and document["examples"]
