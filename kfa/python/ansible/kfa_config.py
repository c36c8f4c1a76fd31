# SPDX-License-Identifier: Apache-2.0
"""The Ansible module kfa_config: keys of environment files as they shall be."""

from __future__ import annotations

DOCUMENTATION = r"""
---
module: kfa_config
short_description: Set and unset keys in the configuration files of container environments
description:
  - Gives keys of C(VEID.conf) files the values that they shall have, or takes them out, with every other byte kept.
  - Of several files all are changed or none. A value that a key does not take is refused, and nothing is changed.
  - A file is replaced in one step and takes turns with other writers.
version_added: "4.0"
author: KFA Maintainers (@kfa)
options:
  environments:
    description:
      - The environments that are meant, in the words of C(kfactl) - numbers, ranges such as C(101-110), patterns,
        conditions such as C(ostemplate=debian-12*), folders and files.
      - C(*) stands for all of the node.
    type: list
    elements: str
    required: true
  node:
    description: The folder of the node's files. That of C(KFA_NODE) when left out, else C(/etc/kfa/conf).
    type: path
  values:
    description:
      - With I(state=present) the keys, in any case, with their values in the form in which files have them. Truth values
        are C(yes) and C(no), lists are joined by blanks.
    type: dict
    default: {}
  keys:
    description: With I(state=absent) the keys to take out.
    type: list
    elements: str
    default: []
  state:
    description: Whether the keys shall have these values, or none.
    type: str
    choices: [present, absent]
    default: present
  create:
    description: Make the file of an environment that has none. I(environments) then names one.
    type: bool
    default: false
  backup_suffix:
    description: Keep the old file under its name with this suffix.
    type: str
    default: ""
  allow_unsafe:
    description: Take values that a shell would not read back as they stand.
    type: bool
    default: false
requirements:
  - python3-kfa on the node
attributes:
  check_mode:
    description: Says what would change, and changes nothing.
    support: full
  diff_mode:
    description: Shows each file before and after.
    support: full
seealso:
  - module: kfa_facts
"""

EXAMPLES = r"""
- name: Two name servers for every Debian 12
  kfa_config:
    environments: ['ostemplate=debian-12*']
    values:
      NAMESERVER: [192.0.2.53, 192.0.2.54]
      ONBOOT: true

- name: No description
  kfa_config:
    environments: ['101-110']
    keys: [DESCRIPTION]
    state: absent

- name: A new environment
  kfa_config:
    environments: ['120']
    create: true
    values: {OSTEMPLATE: debian-12, HOSTNAME: web20.example.com}
"""

RETURN = r"""
environments:
  description: The files that are meant, with their numbers, and whether each is another one now.
  returned: success
  type: list
  elements: dict
  sample: [{file: /etc/kfa/conf/101.conf, veid: 101, changed: true}]
"""

import os
from typing import Any

from ansible.module_utils.basic import AnsibleModule, missing_required_lib

try:
    import kfa
except ImportError:
    kfa = None


def text_of(key: str, value: Any) -> str:
    """A value of a playbook as a file has it."""
    if isinstance(value, list):
        return " ".join(text_of(key, item) for item in value)
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, (str, int, float)):
        return str(value)
    raise ValueError(f"values: {key}: a text, a number, a truth value or a list of these is wanted; state=absent takes keys out")


def changes_of(parameters: dict[str, Any]) -> dict[str, str | None]:
    """The changes that are asked for."""
    if parameters["state"] == "absent":
        return {key: None for key in [*parameters["keys"], *parameters["values"]]}
    if parameters["keys"]:
        raise ValueError("keys: they are for state=absent; give values")
    return {key: text_of(key, value) for key, value in parameters["values"].items()}


def files_of(parameters: dict[str, Any]) -> list[kfa.EnvironmentFile]:
    """The files that are meant."""
    selection = kfa.select(*parameters["environments"], node=parameters["node"])
    if selection.troubles:
        raise ValueError("; ".join(selection.troubles))
    if not parameters["create"]:
        return selection.files
    if len(selection.files) != 1:
        raise ValueError("environments: create makes one file; name one environment")
    return selection.files


def change(parameters: dict[str, Any], dry_run: bool) -> dict[str, Any]:
    """Makes the change, and tells what Ansible wants to know."""
    files = files_of(parameters)
    is_new = parameters["create"] and not os.path.lexists(files[0])
    done = kfa.set_values(files, changes_of(parameters), dry_run=dry_run, create=is_new,
                          backup=parameters["backup_suffix"], allow_unsafe=parameters["allow_unsafe"])
    changed = [one for one in done if one.changed]
    diff = [{"before_header": one.path, "after_header": one.path, "before": one.before, "after": one.after} for one in changed]
    environments = [{"file": file.path, "veid": file.veid, "changed": one.changed} for file, one in zip(files, done)]
    return {"changed": bool(changed), "environments": environments, "diff": diff}


def main() -> None:
    module = AnsibleModule(
        argument_spec={
            "environments": {"type": "list", "elements": "str", "required": True},
            "node": {"type": "path"},
            "values": {"type": "dict", "default": {}},
            "keys": {"type": "list", "elements": "str", "default": [], "no_log": False},
            "state": {"type": "str", "choices": ["present", "absent"], "default": "present"},
            "create": {"type": "bool", "default": False},
            "backup_suffix": {"type": "str", "default": ""},
            "allow_unsafe": {"type": "bool", "default": False},
        },
        supports_check_mode=True,
    )
    if kfa is None:
        module.fail_json(msg=missing_required_lib("kfa (package python3-kfa)"))
    try:
        result = change(module.params, module.check_mode)
    except (kfa.Error, ValueError, TypeError) as error:
        module.fail_json(msg=str(error))
    if not module._diff:
        del result["diff"]
    module.exit_json(**result)


if __name__ == "__main__":
    main()
