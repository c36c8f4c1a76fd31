# SPDX-License-Identifier: Apache-2.0
"""The Ansible module kfa_facts: what the configuration files of a node's environments say."""

from __future__ import annotations

DOCUMENTATION = r"""
---
module: kfa_facts
short_description: Gather the configurations of container environments
description:
  - Reads the C(VEID.conf) files of a node and returns their properties as the fact C(kfa_environments).
version_added: "4.0"
author: KFA Maintainers (@kfa)
options:
  environments:
    description: The environments that are meant, as in M(kfa_config); all of the node when left out.
    type: list
    elements: str
    default: []
  node:
    description: The folder of the node's files. That of C(KFA_NODE) when left out, else C(/etc/kfa/conf).
    type: path
requirements:
  - python3-kfa on the node
attributes:
  check_mode:
    description: Changes nothing.
    support: full
seealso:
  - module: kfa_config
"""

EXAMPLES = r"""
- name: What the environments say
  kfa_facts:

- name: Those that start with the node
  debug:
    msg: "{{ kfa_environments.values() | selectattr('on_boot', 'defined') | selectattr('on_boot') | map(attribute='hostname') }}"
"""

RETURN = r"""
ansible_facts:
  description: The facts.
  returned: always
  type: dict
  contains:
    kfa_environments:
      description:
        - The properties of each environment that has a number, by that number as a text; and under C(keys) the values of
          the file's keys.
      returned: always
      type: dict
broken:
  description: An error text for each file that cannot be read.
  returned: always
  type: list
  elements: str
"""

from typing import Any

from ansible.module_utils.basic import AnsibleModule, missing_required_lib

try:
    import kfa
except ImportError:
    kfa = None


def gather(words: list[str], node: str | None) -> tuple[dict[str, Any], list[str]]:
    """The facts, and what cannot be read."""
    selection = kfa.select(*words, node=node)
    environments, broken = {}, list(selection.troubles)
    for file in selection.files:
        try:
            config = kfa.read_config(file)
        except kfa.Error as error:
            broken.append(str(error))
            continue
        if config.veid is not None:
            environments[str(config.veid)] = {**config.to_dict(), "keys": config.to_keys()}
    return environments, broken


def main() -> None:
    module = AnsibleModule(
        argument_spec={"environments": {"type": "list", "elements": "str", "default": []}, "node": {"type": "path"}},
        supports_check_mode=True,
    )
    if kfa is None:
        module.fail_json(msg=missing_required_lib("kfa (package python3-kfa)"))
    try:
        environments, broken = gather(module.params["environments"], module.params["node"])
    except kfa.Error as error:
        module.fail_json(msg=str(error))
    module.exit_json(changed=False, ansible_facts={"kfa_environments": environments}, broken=broken)


if __name__ == "__main__":
    main()
