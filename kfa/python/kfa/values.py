# SPDX-License-Identifier: Apache-2.0
"""The values of properties: small classes that never change, compared by what they hold."""

import dataclasses
import ipaddress
import uuid
from typing import Dict, List, Literal, Optional, Tuple, Type, Union


class _Written:
    """Keeps the text that an address was made of; one that was calculated has that of the standard library."""

    text: str

    def __init__(self, text: Union[str, int]) -> None:
        super().__init__(text)  # type: ignore[call-arg]
        self.text = text if isinstance(text, str) else self.compressed

    def __str__(self) -> str:
        return self.text

    @property
    def compressed(self) -> str:
        """The address in its shortest form, whatever it was written as."""
        return super().__str__()


class IPv4Address(_Written, ipaddress.IPv4Address):
    """An IPv4 address without a network part; str() is the text as it was written."""


class IPv6Address(_Written, ipaddress.IPv6Address):
    """An IPv6 address without a network part; str() is the text as it was written."""


class IPv4Interface(_Written, ipaddress.IPv4Interface):
    """An IPv4 address with a network part; str() is the text as it was written."""


class IPv6Interface(_Written, ipaddress.IPv6Interface):
    """An IPv6 address with a network part; str() is the text as it was written."""


#: An address as an object of the standard library's `ipaddress`; a str for what is no address, such as "dhcp". An
#: interface is an address, too.
Address = Union[ipaddress.IPv4Address, ipaddress.IPv6Address, str]
ADDRESS_TYPES: Tuple[Type[ipaddress.IPv4Address], Type[ipaddress.IPv6Address]] = (ipaddress.IPv4Address,
                                                                                  ipaddress.IPv6Address)


def address(text: str) -> Address:
    """The address that a text is, or the text."""
    kinds = (IPv4Interface, IPv6Interface) if "/" in text else (IPv4Address, IPv6Address)
    try:
        return kinds[":" in text](text)
    except ValueError:
        return text


@dataclasses.dataclass(frozen=True)
class Resource:
    """A resource parameter: its limit, and its barrier where it has one.

    Fractions are held in hundredths: LOADLIMIT="7.25" is 725.
    """

    id: str
    hard: int
    soft: Optional[int] = None


@dataclasses.dataclass(frozen=True)
class Template:
    """A template's name, and its version or ""."""

    name: str
    version: str = ""


@dataclasses.dataclass(frozen=True)
class Distribution:
    """A distribution's name, and its version or ""."""

    name: str
    version: str = ""


@dataclasses.dataclass(frozen=True)
class OperatingSystem:
    """What is known of an operating system; platform is its kind, such as "linux"."""

    name: Optional[str] = None
    version: Optional[str] = None
    platform: Optional[str] = None
    kernel: Optional[str] = None


@dataclasses.dataclass(frozen=True)
class Capability:
    """Whether processes have a capability."""

    name: str
    value: bool


@dataclasses.dataclass(frozen=True)
class EnvironmentType:
    """What an environment is for: 1 is a regular one, 4 repairs the one with the number `veid`, 5 is being repaired by it,
    6 is temporary."""

    kind: int
    veid: int = 0


@dataclasses.dataclass(frozen=True)
class NetworkDevice:
    """A network device of an environment."""

    name: str
    addresses: List[Address] = dataclasses.field(default_factory=list)
    mac: str = ""
    network: str = ""
    gateway: Optional[Address] = None
    gateway6: Optional[Address] = None
    dhcp: bool = False
    dhcp6: bool = False
    host_routed: bool = False
    wins_servers: List[Address] = dataclasses.field(default_factory=list)
    nameservers: List[Address] = dataclasses.field(default_factory=list)


@dataclasses.dataclass(frozen=True)
class LoopImage:
    """A disk that is an image file. Without a guid it is not bound to one yet."""

    size: int
    expanded: bool = True
    name: str = ""
    guid: Optional[uuid.UUID] = None


@dataclasses.dataclass(frozen=True)
class Mount:
    """A device or image file with the place where it is mounted; its size is in bytes."""

    device: str
    mount_point: str
    file_system: str = "auto"
    read_only: bool = False
    automatic: bool = False
    size: int = 0


@dataclasses.dataclass(frozen=True)
class LoopbackDisk:
    """A disk that is mounted through a loopback device. Without a guid it is not bound to an image yet."""

    mount: Mount
    guid: Optional[uuid.UUID] = None


@dataclasses.dataclass(frozen=True)
class SharedArea:
    """An area of a shared file system with its quotas. Without a name it is not bound to a path yet."""

    space: Resource
    inodes: Resource
    name: str = ""


Disk = Union[LoopImage, LoopbackDisk, SharedArea]


@dataclasses.dataclass(frozen=True)
class TemplateObject:
    """A template as the cache holds it, with the environments that use it."""

    name: str
    kind: str = ""
    architecture: str = ""
    os: Optional[str] = None
    version: Optional[str] = None
    os_template: bool = False
    cached: bool = False
    up_to_date: bool = False
    path: str = ""
    technologies: List[str] = dataclasses.field(default_factory=list)
    environments: List[uuid.UUID] = dataclasses.field(default_factory=list)

    @property
    def key(self) -> str:
        """The key of the template in a cache."""
        from . import _kfa

        return _kfa.template_id(self)

    def to_message(self) -> str:
        """The template as an XML message."""
        from . import _kfa

        return _kfa.template_to_message(self)

    @staticmethod
    def from_message(xml: Union[str, bytes], name: str = "message") -> "TemplateObject":
        """The template that a message holds; `name` stands for the message in errors."""
        from . import _kfa

        return _kfa.template_from_message(xml, name)


@dataclasses.dataclass(frozen=True)
class KeyChange:
    """A key with its new value, None where it is unset, and what it was where that is known.

    str() is a line of the list that `kfactl config set FILE -` takes.
    """

    key: str
    value: Optional[str]
    before: Optional[str] = None
    was_unset: bool = False
    text: str = dataclasses.field(default="", compare=False, repr=False)

    def __str__(self) -> str:
        return self.text


@dataclasses.dataclass(frozen=True)
class FileChange:
    """What became of a file that was to be changed: the text before and after, and the error where there was one."""

    path: str
    state: Literal["unchanged", "changed", "refused", "replaced", "failed", "restored", "not restored"]
    before: str
    after: str
    error: str = ""

    @property
    def changed(self) -> bool:
        """Whether the file is another one now, or, of a dry run, would be."""
        return self.state in ("changed", "replaced", "not restored")

    def __fspath__(self) -> str:
        return self.path


@dataclasses.dataclass(frozen=True)
class EnvironmentFile:
    """The file of an environment, which goes wherever a path does."""

    path: str
    veid: Optional[int] = None

    def __fspath__(self) -> str:
        return self.path


@dataclasses.dataclass(frozen=True)
class Selection:
    """The files that words stand for, names among them that are no environments, and an error text for each file of
    which it cannot be told whether a condition holds."""

    files: List[EnvironmentFile]
    others: List[str]
    troubles: List[str]


@dataclasses.dataclass(frozen=True)
class Finding:
    """Something wrong with a file, or between files; str() is FILE:LINE:COLUMN: SEVERITY: TEXT."""

    severity: Literal["error", "warning", "note"]
    rule: str
    file: str
    veid: Optional[int]
    line: Optional[int]
    column: Optional[int]
    text: str
    line_text: str = ""
    related: str = ""

    def __str__(self) -> str:
        place = "".join(f":{number}" for number in (self.line, self.column) if number is not None)
        return f"{self.file}{place}: {self.severity}: {self.text}"


@dataclasses.dataclass(frozen=True)
class Fixed:
    """A text with the edits that cure findings with one right answer, and the line and the kind of each."""

    text: str
    fixes: List[Tuple[int, str]]


@dataclasses.dataclass(frozen=True)
class Merged:
    """Two changed copies of a text made one, and the keys that both have changed to different values."""

    text: str
    conflicts: List[str]


@dataclasses.dataclass(frozen=True)
class Key:
    """What a key of an environment file takes."""

    key: str
    form: str
    unit: str
    without: str
    example: str
    description: str
    is_resource: bool


@dataclasses.dataclass(frozen=True)
class Formula:
    """A formula of the vocabulary."""

    number: int
    expression: str
    comment: str


@dataclasses.dataclass(frozen=True)
class FormulaResult:
    """What became of a formula; of a violated one, barrier and limit of the parameters that took part."""

    number: int
    expression: str
    comment: str
    state: Literal["holds", "violated", "not_checkable"]
    parameters: Dict[str, Tuple[int, int]]
    reason: str = ""


@dataclasses.dataclass(frozen=True)
class ResourceCheck:
    """What became of each formula. No formula applies in the mode "managed", in which `slmmemorylimit` rules alone, nor
    in "limit_missing", in which it should and has no value."""

    mode: Literal["formulas", "managed", "limit_missing"]
    formulas: List[FormulaResult]

    @property
    def violated(self) -> List[FormulaResult]:
        """The formulas that do not hold."""
        return [formula for formula in self.formulas if formula.state == "violated"]


@dataclasses.dataclass(frozen=True)
class Advice:
    """The smallest changes that make the violated formulas hold; `left` are those that no change was found for."""

    changes: List[KeyChange]
    violated: List[int]
    left: List[int]
