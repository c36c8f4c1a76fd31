# SPDX-License-Identifier: Apache-2.0
"""Mappings: the resource parameters of a configuration, and the template cache."""

import dataclasses
import ipaddress
import os
import uuid
from typing import Any, Dict, ItemsView, Iterator, Mapping, MutableMapping, Optional, Tuple, Union, ValuesView

from . import _kfa
from .values import Resource, TemplateObject


def plain(value: Any) -> Any:
    """A value of a property as bools, numbers, texts, lists and dictionaries without what is not specified."""
    if isinstance(value, Mapping):
        return {key: plain(item) for key, item in value.items()}
    if isinstance(value, list):
        return [plain(item) for item in value]
    if dataclasses.is_dataclass(value):
        fields = ((field.name, getattr(value, field.name)) for field in dataclasses.fields(value))
        return {name: plain(item) for name, item in fields if item is not None}
    if isinstance(value, (ipaddress.IPv4Address, ipaddress.IPv6Address, uuid.UUID)):
        return str(value)
    return value


_Numbers = Union[Resource, int, Tuple[Optional[int], int]]


def _resource_of(id: str, value: _Numbers) -> Resource:
    """A parameter of that id; an int stands for a limit, a pair for barrier and limit."""
    if isinstance(value, Resource):
        value = (value.soft, value.hard)
    if isinstance(value, tuple) and len(value) != 2:
        raise ValueError(f"resources: {id}: a pair of barrier and limit is wanted, not {len(value)} values")
    soft, hard = value if isinstance(value, tuple) else (None, value)
    if not id:
        raise ValueError("resources: the id of a parameter is wanted, not an empty text")
    return Resource(id, hard, soft)


class Resources(MutableMapping[str, Resource]):
    """The resource parameters of a configuration by their ids, in any case of letters.

    A view: what is set here is set there. An int stands for a limit, a pair for barrier and limit.
    """

    def __init__(self, config: "_kfa.Configuration") -> None:
        self._config = config

    def __getitem__(self, id: str) -> Resource:
        found = self._config._resource(id)
        if found is None:
            raise KeyError(id)
        return found

    def __setitem__(self, id: str, value: _Numbers) -> None:
        self._config._set_resource(_resource_of(id, value))

    def __delitem__(self, id: str) -> None:
        self[id]
        self._config._remove_resource(id)

    def __iter__(self) -> Iterator[str]:
        return iter(self._config._resource_ids())

    def __len__(self) -> int:
        return len(self._config._resource_ids())

    def replace(self, values: Mapping[str, _Numbers]) -> None:
        """Makes these the only parameters; where one is refused, all stays as it was."""
        if not isinstance(values, Mapping):
            raise TypeError(f"resources: a mapping is wanted, not this {type(values).__name__}")
        self._config._replace_resources([_resource_of(id, value) for id, value in values.items()])

    def __repr__(self) -> str:
        return repr(dict(self))


class _Items(ItemsView[str, TemplateObject]):
    """The items of a cache, all of one moment."""

    def __init__(self, cache: "Cache", file: "_kfa.CacheFile") -> None:
        super().__init__(cache)
        self._file = file

    def __iter__(self) -> Iterator[Tuple[str, TemplateObject]]:
        return iter(self._file.items())


class _Values(ValuesView[TemplateObject]):
    """The templates of a cache, all of one moment."""

    def __init__(self, cache: "Cache", file: "_kfa.CacheFile") -> None:
        super().__init__(cache)
        self._file = file

    def __iter__(self) -> Iterator[TemplateObject]:
        return iter([template for _, template in self._file.items()])


class Cache(MutableMapping[str, TemplateObject]):
    """The template cache that the processes of a node share: a mapping from keys to templates.

    Without a path it is the node's own. A file that is missing is made, unless `create` is False. `timeout` is how many
    seconds to wait for a process that holds its lock. Any thread may use it, and so may a forked child.
    """

    def __init__(self, path: Union[str, "os.PathLike[str]", None] = None, *, create: bool = True,
                 timeout: float = 10.0) -> None:
        if not isinstance(timeout, (int, float)):
            raise TypeError(f"timeout: a number of seconds is wanted, not this {type(timeout).__name__}")
        if not 0 <= timeout <= 86400:
            raise ValueError("timeout: a number of seconds from 0 to 86400 is wanted")
        self._file = _kfa.CacheFile(path, create, timeout)

    @property
    def path(self) -> str:
        """The file's path."""
        return self._file.path

    def __getitem__(self, key: str) -> TemplateObject:
        found = self._file.get(key)
        if found is None:
            raise KeyError(key)
        return found

    def __setitem__(self, key: str, template: TemplateObject) -> None:
        if template is None:
            raise TypeError("template: a TemplateObject is wanted, not None")
        self._file.apply({key: template})

    def __delitem__(self, key: str) -> None:
        self[key]
        self._file.apply({key: None})

    def __iter__(self) -> Iterator[str]:
        return iter(self._file.keys())

    def __len__(self) -> int:
        return self._file.size()

    def __repr__(self) -> str:
        return f"<kfa.Cache {self.path!r}>"

    def items(self) -> ItemsView[str, TemplateObject]:
        """The items, all of one moment."""
        return _Items(self, self._file)

    def values(self) -> ValuesView[TemplateObject]:
        """The templates, all of one moment."""
        return _Values(self, self._file)

    def put(self, *templates: TemplateObject) -> None:
        """Puts templates under their own keys, all together."""
        self.change({_kfa.template_id(template): template for template in templates})

    def change(self, items: Mapping[str, Optional[TemplateObject]]) -> None:
        """Puts these items and removes those that are None. Other processes see all of it or nothing."""
        changes: Dict[str, Optional[TemplateObject]] = dict(items)
        self._file.apply(changes)

    def clear(self) -> None:
        """Removes all items together."""
        self.change({key: None for key in self})

    def sync(self) -> None:
        """Waits until all changes are on disk; they outlive processes without that, but not the node."""
        self._file.sync()

    def repair(self) -> bool:
        """Gives back what nobody holds, and rebuilds what can be kept. Whether nobody else uses the file."""
        return self._file.repair()
