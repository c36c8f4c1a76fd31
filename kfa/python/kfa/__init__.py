# SPDX-License-Identifier: Apache-2.0
"""The configurations of a node's container environments, and its template cache.

    config = kfa.read_config("101.conf")
    config.hostname
    kfa.set_values("101.conf", {"ONBOOT": True})

Whatever the library refuses is a `kfa.Error` that says what, where, and what would be right. Bytes of a file that are not
UTF-8 stand in texts as lone surrogates (the error handler "surrogateescape"), and are written back as they were.
"""

import os
from typing import Any, Iterable, List, Mapping, Optional, Tuple, Union

from . import _kfa
from ._kfa import (Configuration, check_text, compare, evaluate, format_config, formulas, get_values, keys, parse_changes,
                   parse_config, read_config, use_vocabulary, write_config)
from .errors import ChangeError, Error, MissingFileError, error_of, place_of
from .values import (Address, Advice, Capability, Disk, Distribution, EnvironmentFile, EnvironmentType, FileChange,
                     Finding, Fixed, Formula, FormulaResult, IPv4Address, IPv4Interface, IPv6Address, IPv6Interface, Key,
                     KeyChange, LoopbackDisk, LoopImage, Merged, Mount, NetworkDevice, OperatingSystem, Resource,
                     ResourceCheck, Selection, SharedArea, Template, TemplateObject)
from .views import Cache, Resources

__all__ = [
    "Address", "Advice", "Cache", "Capability", "ChangeError", "Configuration", "Disk", "Distribution", "EnvironmentFile",
    "EnvironmentType", "Error", "FileChange", "Finding", "Fixed", "Formula", "FormulaResult", "IPv4Address",
    "IPv4Interface", "IPv6Address", "IPv6Interface", "Key", "KeyChange", "LoopImage", "LoopbackDisk", "Merged",
    "MissingFileError", "Mount", "NetworkDevice", "OperatingSystem", "Resource", "ResourceCheck", "Resources", "Selection",
    "SharedArea", "Template", "TemplateObject", "advise", "check", "check_resources", "check_text", "compare", "evaluate",
    "fix", "format_config", "formulas", "get_values", "keys", "merge", "parse_changes", "parse_config", "read_config",
    "select", "set_values", "use_vocabulary", "write_config",
]

Path = Union[str, "os.PathLike[str]"]
Files = Union[Path, Iterable[Path]]
Value = Union[str, int, bool, None]
Changes = Union[Mapping[str, Value], Iterable[KeyChange]]


def _listed(files: Files) -> Tuple[List[Path], bool]:
    """The files, and whether one was named by itself."""
    if isinstance(files, (str, bytes, os.PathLike)):
        return [files], True
    if not isinstance(files, Iterable):
        raise TypeError(f"files: a path or an iterable of paths is wanted, not this {type(files).__name__}")
    return list(files), False


def _pairs(changes: Changes) -> List[Tuple[str, Optional[str]]]:
    """The changes as texts; True and False are yes and no."""
    if not isinstance(changes, Mapping):
        listed: List[Any] = list(changes) if isinstance(changes, Iterable) else [changes]
        for change in listed:
            if not isinstance(change, KeyChange):
                raise TypeError(f"changes: a mapping, or what compare() gave, is wanted, not this {type(change).__name__}")
        return [(change.key, change.value) for change in listed]
    pairs = []
    for key, value in changes.items():
        if isinstance(value, bool):
            value = "yes" if value else "no"
        elif isinstance(value, int):
            value = str(value)
        pairs.append((key, value))
    return pairs


def set_values(files: Files, changes: Changes, *, dry_run: bool = False, keep_going: bool = False,
               create: bool = False, allow_unsafe: bool = False, force: bool = False, backup: str = "",
               hard_links: bool = False) -> List[FileChange]:
    """Gives keys of environment files new values, with every other byte kept: of all files or of none.

    `changes` maps keys, in any case, to values in the form in which files have them, None to take a key out; or it is what
    `compare` gave. Each file is replaced in one step, and takes turns with other writers. `dry_run` replaces nothing,
    `keep_going` changes what can be changed, `create` makes new files; `allow_unsafe` takes values that a shell would not
    read back as they stand, `force` rewrites files in which a line is left open, `backup` keeps the old files under their
    names with this suffix, `hard_links` replaces files with several names. What is refused raises Error, or
    ChangeError for several files.
    """
    paths, is_single = _listed(files)
    result = _kfa.change_files(paths, _pairs(changes), dry_run, keep_going, create, allow_unsafe, force, backup,
                               hard_links)
    failed = [file for file in result if file.error]
    if failed and not keep_going:
        first = failed[0]
        if is_single:
            raise error_of(first.error, -1, first.path)
        raise ChangeError(first.error, -1, first.path, *place_of(first.error, first.path), files=result)
    return result


def select(*words: Path, node: Optional[Path] = None) -> Selection:
    """The environments of a node that words stand for: numbers, ranges, patterns, conditions such as "onboot=yes", folders
    and files. All without a word. The node's folder is `node`, or that of KFA_NODE, or /etc/kfa/conf."""
    files, others, troubles = _kfa.select(words, node)
    return Selection([EnvironmentFile(path, veid) for path, veid in files], others, troubles)


def check(files: Files, *, node: Optional[Path] = None, foreign_keys: Optional[Iterable[str]] = None,
          templates: Optional[Iterable[str]] = None, memory: Optional[int] = None, disk: Optional[int] = None,
          cpus: Optional[int] = None) -> List[Finding]:
    """What is wrong in files, between them, and with what the node has; of several files the worst comes first.

    Of keys of other tools nothing is said; they are `foreign_keys`, or in the list of that name in the node's folder. The
    `templates` that there are, as NAME or NAME/VERSION, are not judged when left out. `memory` and `disk` are in bytes; this
    machine's when left out, and not judged when 0. A file of several that cannot be read is a finding "unreadable".
    """
    folder = os.fsdecode(node) if node is not None else _kfa.default_node()
    if foreign_keys is None:
        listed = os.path.join(folder, "foreign-keys")
        foreign_keys = _kfa.read_foreign_keys(listed) if os.path.exists(listed) else ()
    paths, is_single = _listed(files)
    return _kfa.check_files(paths, is_single, folder, foreign_keys, templates, memory, disk, cpus)


def fix(text: Union[str, bytes]) -> Fixed:
    """A text of an environment file with the edits that cure findings which have one right answer."""
    return Fixed(*_kfa.fix_text(text))


def merge(base: Union[str, bytes], ours: Union[str, bytes], theirs: Union[str, bytes]) -> Merged:
    """Two changed copies of a text made one, key by key; conflicts stand between marks, as git writes them."""
    return Merged(*_kfa.merge_texts(base, ours, theirs))


def check_resources(config: Configuration) -> ResourceCheck:
    """The resource parameters of a configuration held against every formula of the vocabulary."""
    return ResourceCheck(*_kfa.check_resources(config))


def advise(config: Configuration) -> Advice:
    """The smallest changes of resource parameters that make every violated formula hold."""
    return Advice(*_kfa.advise(config))
