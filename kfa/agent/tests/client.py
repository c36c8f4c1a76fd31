#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A client of an agent that knows nothing but the .proto: client.py PROTO ADDRESS CERTIFICATE KEY CA.

Asks who the agent is, for its health and its services, reads, changes once what it asks for twice, and sends what no agent
should take. Ends with an assertion when an answer is another one than the .proto promises.
"""
import pathlib
import subprocess
import sys
import tempfile
import uuid
import xml.etree.ElementTree as ET

import grpc


def load(proto):
    """The messages of the .proto."""
    folder = tempfile.mkdtemp()
    subprocess.run(["protoc", f"--proto_path={proto.parent}", f"--python_out={folder}", str(proto)], check=True)
    sys.path.insert(0, folder)
    return __import__(proto.stem + "_pb2")


class Client:
    """The calls of one agent."""

    def __init__(self, wire, channel):
        self.wire = wire
        self.describe = channel.unary_unary(
            "/kfa.remote.v4.Agent/Describe",
            request_serializer=wire.DescribeRequest.SerializeToString,
            response_deserializer=wire.Description.FromString,
        )
        self.stream = channel.unary_stream(
            "/kfa.remote.v4.Agent/Call",
            request_serializer=wire.CallRequest.SerializeToString,
            response_deserializer=wire.CallReply.FromString,
        )

    def call(self, name, arguments="<arguments/>", **more):
        """The outcome of a call and the parts of its result."""
        manager, operation = name.split(".")
        request = self.wire.CallRequest(
            manager=manager, operation=operation, implementation="kelvarium", arguments=arguments.encode(), **more
        )
        parts, rest, outcome = [], b"", None
        for reply in self.stream(request, timeout=20):
            pieces = list(reply.pieces)
            for i, piece in enumerate(pieces):
                rest += piece
                if not (reply.goes_on and i + 1 == len(pieces)):
                    parts.append(ET.fromstring(rest))
                    rest = b""
            if reply.HasField("outcome"):
                outcome = reply.outcome
        assert outcome is not None and not rest, name
        return outcome, parts


def check_services(channel):
    """Health and reflection, as every gRPC server has them."""
    check = channel.unary_unary("/grpc.health.v1.Health/Check")
    watch = channel.unary_stream("/grpc.health.v1.Health/Watch")
    agent, nobody = b"\x0a\x13kfa.remote.v4.Agent", b"\x0a\x06nobody"
    serving, unknown = b"\x08\x01", b"\x08\x03"
    assert [check(name, timeout=20) for name in (b"", agent)] == [serving, serving]
    assert [next(watch(name, timeout=20)) for name in (b"", agent, nobody)] == [serving, serving, unknown]
    try:
        raise AssertionError(check(nobody, timeout=20))
    except grpc.RpcError as error:
        assert error.code() == grpc.StatusCode.NOT_FOUND, error
    listing = channel.stream_stream("/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo")
    answer = next(listing(iter([b"\x3a\x00"]), timeout=20))
    assert b"kfa.remote.v4.Agent" in answer and b"grpc.health.v1.Health" in answer, answer


def check_calls(client):
    """What is read, what is changed once, and what is refused."""
    node = client.describe(client.wire.DescribeRequest(), timeout=20)
    assert str(uuid.UUID(node.node)) == node.node and node.version and node.instance, node
    outcome, before = client.call("environments.list")
    assert outcome.code == 0 and len(before) > 10, outcome
    change = {"change_id": str(uuid.uuid4()), "instance": node.instance}
    made = [client.call("environments.create", "<arguments><config/></arguments>", **change) for _ in range(3)]
    assert len({(outcome.code, ET.tostring(parts[0])) for outcome, parts in made}) == 1, made
    assert made[0][0].code == 0, made[0][0]
    assert len(client.call("environments.list")[1]) == len(before) + 1
    eid = ET.tostring(made[0][1][0], method="text").decode().strip()
    refused = {
        "environments.nothing": ({}, "no operation"),
        "nobody.list": ({}, "no operation"),
        "environments.getConfig": ({}, "argument 'eid'"),
        "environments.remove": ({"arguments": f"<arguments><eid>{eid}</eid></arguments>"}, "change id"),
        "environments.list": ({"arguments": "<arguments>"}, "cannot be read"),
        "environments.create": ({"change_id": change["change_id"], "instance": node.instance}, "another change"),
        "environments.setSettings": ({"change_id": str(uuid.uuid4()), "instance": "x"}, "started anew"),
    }
    for name, (how, text) in refused.items():
        outcome, _ = client.call(name, **how)
        assert outcome.code < 0 and text in outcome.text, (name, outcome)


def status_of(call):
    """The gRPC status with which a call ends."""
    try:
        list(call)
    except grpc.RpcError as error:
        return error.code()
    return grpc.StatusCode.OK


def check_limits(client, channel):
    """What is no request, and one of a gigabyte, are refused, and the agent goes on."""
    raw = channel.unary_stream("/kfa.remote.v4.Agent/Call")
    for garbage in (b"\xff" * 100, b"\x0a\xff\xff\xff\xff\x0f", b"\x0a\x02\xff\xfe"):
        assert status_of(raw(garbage, timeout=20)) != grpc.StatusCode.OK, garbage
    assert status_of(raw(bytes(1 << 30), timeout=100)) == grpc.StatusCode.RESOURCE_EXHAUSTED
    deep = "<a>" * 5000 + "</a>" * 5000
    assert "cannot be read" in client.call("environments.list", deep)[0].text
    assert client.call("samples.list")[0].code == 0


def main(proto, address, *files):
    certificate, key, authority = (pathlib.Path(file).read_bytes() for file in files)
    credentials = grpc.ssl_channel_credentials(authority, key, certificate)
    with grpc.secure_channel(address, credentials) as channel:
        check_services(channel)
        client = Client(load(pathlib.Path(proto)), channel)
        check_calls(client)
        check_limits(client, channel)


if __name__ == "__main__":
    main(*sys.argv[1:])
