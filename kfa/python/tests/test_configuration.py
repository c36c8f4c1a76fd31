# SPDX-License-Identifier: Apache-2.0
"""Properties of every type, set, read, copied, sent as messages and written to files; what is refused."""

import ast
import copy
import ipaddress
import json
import pathlib
import pickle
import random
import re
import uuid

import kfa
import pytest
from conftest import FILES, NODE, run, run_json

STUB = ast.parse(pathlib.Path(kfa.__file__).with_name("_kfa.pyi").read_text())
CLASS = next(node for node in STUB.body if isinstance(node, ast.ClassDef) and node.name == "Configuration")
#: Each property with its type, as the stub file gives it, and those that can be set.
TYPES = {node.name: ast.unparse(node.returns) for node in CLASS.body if isinstance(node, ast.FunctionDef)
         and node.returns and any(ast.unparse(one) == "property" for one in node.decorator_list)}
SETTABLE = {ast.unparse(one).removesuffix(".setter") for node in CLASS.body if isinstance(node, ast.FunctionDef)
            for one in node.decorator_list if ast.unparse(one).endswith(".setter")}
PROPERTIES = sorted(SETTABLE - {"resources"})


def text(draw: random.Random) -> str:
    return "".join(draw.choices("aZ09 -_.äß€\U0001f600", k=draw.randint(1, 12))).strip() or "x"


def address(draw: random.Random) -> kfa.Address:
    bits = ipaddress.ip_address(draw.getrandbits(draw.choice([32, 128])) | 1 << 31)
    return draw.choice([kfa.IPv4Address("10.0.0.5"), kfa.IPv4Interface("10.0.0.5/255.255.255.0"),
                        kfa.IPv6Interface("2001:DB8::5/64"), "dhcp", "10.0.0.256", bits])


def resource(draw: random.Random) -> kfa.Resource:
    return kfa.Resource(text(draw), draw.getrandbits(40), draw.choice([None, draw.getrandbits(40)]))


#: A value of each type.
DRAW = {
    "str": text,
    "int": lambda draw: draw.getrandbits(31),
    "bool": lambda draw: draw.random() < 0.5,
    "Address": address,
    "Template": lambda draw: kfa.Template(text(draw), draw.choice(["", text(draw)])),
    "Distribution": lambda draw: kfa.Distribution(text(draw), text(draw)),
    "OperatingSystem": lambda draw: kfa.OperatingSystem(text(draw), None, text(draw)),
    "Capability": lambda draw: kfa.Capability(text(draw), draw.random() < 0.5),
    "EnvironmentType": lambda draw: kfa.EnvironmentType(draw.randint(1, 9), draw.randint(0, 999)),
    "NetworkDevice": lambda draw: kfa.NetworkDevice(
        text(draw), [address(draw)], "00:11:22:33:44:55", text(draw), kfa.IPv4Address("10.0.0.1"), None, draw.random() < 0.5,
        True, False, [kfa.IPv4Address("10.0.0.3")], ["ns.example.com"]),
    "Disk": lambda draw: kfa.LoopImage(draw.getrandbits(40), draw.random() < 0.5),
}


def value_of(kind: str, draw: random.Random) -> object:
    """A value of a type of the stub file."""
    kind = kind.removesuffix(" | None")
    if not kind.startswith("list["):
        return DRAW[kind](draw)
    items = [DRAW[kind[5:-1]](draw) for _ in range(draw.randint(0, 3))]
    # What the library keeps as a set has an order of its own.
    return sorted(set(items)) if kind == "list[str]" else items[:1] if kind == "list[Capability]" else items


@pytest.mark.parametrize("name", PROPERTIES)
def test_property_of_its_type(name: str) -> None:
    draw = random.Random(name)
    for _ in range(20):
        config = kfa.Configuration()
        assert getattr(config, name) is None
        value = value_of(TYPES[name], draw)
        setattr(config, name, value)
        assert getattr(config, name) == value
        assert str(getattr(config, name)) == str(value) or isinstance(value, list)
        for other in (copy.copy(config), copy.deepcopy(config), pickle.loads(pickle.dumps(config)),
                      kfa.Configuration.from_message(config.to_message())):
            assert other == config and getattr(other, name) == value
            setattr(other, name, None)
            assert other != config and getattr(other, name) is None and getattr(config, name) == value
    # Nothing of another type is taken, and the property keeps what it had.
    was = getattr(config, name)
    for wrong in (object(), b"x", 1.5, {"a": 1}, [object()], 1 << 70, "\udfff" if "str" in TYPES[name] else object()):
        with pytest.raises((TypeError, ValueError)) as refused:
            setattr(config, name, wrong)
        assert name in str(refused.value) or isinstance(refused.value, UnicodeError)
        assert getattr(config, name) == was
    assert getattr(kfa.Configuration, name).__doc__.startswith(TYPES[name] + ": ")


def test_several_properties_and_resources() -> None:
    draw = random.Random(7)
    for _ in range(200):
        config, model = kfa.Configuration(), {}
        resources: dict = {}
        for name in draw.choices(PROPERTIES, k=12):
            value = draw.choice([None, value_of(TYPES[name], draw)])
            setattr(config, name, value)
            model[name] = value
        for _ in range(12):
            one = resource(draw)
            key = next((id for id in resources if id.lower() == one.id.lower()), one.id)
            if draw.random() < 0.3 and resources:
                gone = draw.choice(sorted(resources))
                del config.resources[gone], resources[gone]
            else:
                config.resources[one.id] = draw.choice([one, (one.soft, one.hard)])
                resources.pop(key, None)
                resources[one.id] = one
        for config in (config, kfa.Configuration.from_message(config.to_message())):
            assert {name: getattr(config, name) for name in model} == model
            assert dict(config.resources) == resources and len(config.resources) == len(resources)
            with pytest.raises(TypeError):
                config.resources = {"a": 1, "b": "x"}
            assert dict(config.resources) == resources
        config.resources = {"A": 1, "b": (2, 3), "a": 4}
        assert dict(config.resources) == {"a": kfa.Resource("a", 4), "b": kfa.Resource("b", 3, 2)}
        json.dumps(config.to_dict())


@pytest.mark.parametrize("path", FILES, ids=lambda path: path.name)
def test_examples_as_the_tool_says(path: pathlib.Path) -> None:
    config = kfa.read_config(path)
    assert config.to_message() == run("message", "from-config", path).stdout
    shown = run_json("config", "show", path)
    names = {"address": "addresses", "nameserver": "nameservers", "search_domain": "search_domains", "role": "server_roles",
             "template": "templates", "interface_rate": "rates", "capability": "capabilities",
             "offline_service": "offline_services", "wins_server": "wins_servers"}
    plain = config.to_dict()
    for element, value in shown.items():
        if element == "qos":
            assert {one["id"]: (one.get("soft"), one["hard"]) for one in value} == {
                one.id: (one.soft, one.hard) for one in config.resources.values()}
        elif element == "net_device":
            assert [(one["name"], one.get("ip_address", []), one.get("mac", "")) for one in value] == [
                (one.name, [str(ip) for ip in one.addresses], one.mac) for one in config.net_devices]
        else:
            assert plain[names.get(element, element)] == value


def test_addresses_are_those_of_the_standard_library() -> None:
    config = kfa.read_config(NODE / "104.conf")
    one, *rest = config.addresses
    assert isinstance(one, ipaddress.IPv4Address) and one in ipaddress.ip_network("203.0.113.0/24")
    assert all(isinstance(other, ipaddress.IPv6Address) for other in rest)
    config.addresses = ["10.0.0.5/255.255.255.0", ipaddress.ip_interface("10.0.0.6/8"), "FE80::1", "dhcp", "01.2.3.4"]
    kinds = [type(each).__mro__[2:3] for each in config.addresses]
    assert kinds == [(ipaddress.IPv4Interface,), (ipaddress.IPv4Interface,), (ipaddress.IPv6Address,), (), ()]
    assert [str(each) for each in config.addresses] == ["10.0.0.5/255.255.255.0", "10.0.0.6/8", "FE80::1", "dhcp", "01.2.3.4"]
    assert pickle.loads(pickle.dumps(config.addresses)) == config.addresses
    assert config.addresses[2] == ipaddress.ip_address("fe80::1")
    # What is calculated from one, and its forms, are the standard library's.
    for one in config.addresses[:3]:
        own = ipaddress.ip_interface(str(one)) if "/" in str(one) else ipaddress.ip_address(str(one))
        assert [str(one + 1), str(one - 1), one.compressed] == [str(own + 1), str(own - 1), own.compressed]
    for wrong in ([""], ["10.0.0.1", None]):
        with pytest.raises((TypeError, ValueError), match=r"addresses\[[01]\]"):
            config.addresses = wrong


def test_disks_of_every_kind() -> None:
    guid = uuid.UUID(int=5)
    area = kfa.SharedArea(kfa.Resource("diskspace", 9, 8), kfa.Resource("diskinodes", 7))
    mount = kfa.Mount("/dev/x", "/mnt", "ext4", True, False, 5)
    config = kfa.Configuration()
    for disks in ([area], [kfa.LoopbackDisk(mount)], [kfa.LoopImage(5), kfa.LoopImage(6, False)], []):
        config.disks = disks
        assert config.disks == disks
    config.disks = [area]
    for wrong, kind in (([area, area], TypeError), ([kfa.LoopImage(1), area], TypeError),
                        ([kfa.LoopImage(1), kfa.LoopbackDisk(mount)], TypeError), (5, TypeError)):
        with pytest.raises(kind):
            config.disks = wrong
        assert config.disks == [area]
    for wrong in ("", "\udcff", "x" * 36):
        with pytest.raises(ValueError, match=r"disks\[0\].guid: the text of a UUID"):
            config.disks = [kfa.LoopImage(5, guid=wrong)]
    config.disks = [kfa.LoopImage(5, guid=str(guid))]
    with pytest.raises(kfa.Error):
        config.disks = None
    assert config.disks == [kfa.LoopImage(5, guid=guid)]


@pytest.mark.parametrize("xml, line, column, said", [
    ("<a>\n<b", 2, 1, "is not closed"),
    ("", 1, None, ""),
    ("<venv_config/>", None, None, None),
    ("<other/>", 1, None, "/other: no configuration; an element with the type tag venv_configType is wanted"),
    ("<venv_config>\n<!-- <a> -->\n<name>y</name><veid>x</veid></venv_config>", 3, None, "/venv_config/veid"),
    ("<!DOCTYPE a><a/>", 1, None, ""),
    (b"<venv_config>\xff</venv_config>", 1, None, ""),
])
def test_messages_that_are_refused(xml: object, line: object, column: object, said: object) -> None:
    if said is None:
        assert kfa.Configuration.from_message(xml).veid is None
        return
    with pytest.raises(kfa.Error) as refused:
        kfa.Configuration.from_message(xml, "m.xml")
    error = refused.value
    assert str(error).startswith("m.xml:") and said in str(error)
    assert error.file == "m.xml" and error.line == line and (column is None or error.column == column)
    assert pickle.loads(pickle.dumps(error)).args == error.args


def test_stub_names_every_property() -> None:
    real = {name for name, value in vars(kfa.Configuration).items() if isinstance(value, property)}
    assert real == set(TYPES) and len(real) > 38
    assert re.fullmatch(r"<kfa.Configuration veid=101 hostname='www.example.com'>", repr(kfa.read_config(NODE / "101.conf")))
