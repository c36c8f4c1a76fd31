// SPDX-License-Identifier: Apache-2.0
// kfactl config: the configuration files of environments. Its commands, each of which stands in a file beside this one.
#include "config/Config.h"

namespace kfactl {

namespace {

constexpr Command kCommands[] = {
    {"show", "[FILE...]", "Print configurations as records",
     "Every property that is specified, by element name. JSON: an object of numbers, truth values, texts, "
     "lists and\n"
     "objects. XML: the message.\n\n"
     "Examples:\n"
     "  kfactl config show 101.conf\n"
     "  kfactl --format json config show 101.conf\n"
     "  kfactl config show --veid 101 - < backup.conf",
     prepareShow},
    {"get", "[FILE...] KEY...", "Print the values of keys",
     "Of one environment, a key alone: its value; several: lines KEY=\"value\"; JSON: an object from "
     "lower-case "
     "key to text;\n"
     "status 1 when a key has no value. Of several: lines FILE: KEY=\"value\", or a table with --columns; "
     "JSON: "
     "an array of\n"
     "objects with file, veid, and data or error; status 1 when none has any. Values are in the form in "
     "which "
     "they are\n"
     "written: ARCH=i386 is x86.\n\n"
     "Examples:\n"
     "  kfactl config get 101.conf ONBOOT\n"
     "  kfactl config get 101-110 ONBOOT HOSTNAME\n"
     "  kfactl config get 'ostemplate=debian-11*' NAMESERVER --columns\n"
     "  kfactl --format json config get 101.conf hostname numproc",
     prepareGet},
    {"set", "FILE... [KEY=VALUE...]", "Give keys new values, with every other byte kept",
     "Keys that the file lacks are appended in upper case. A value that the key does not take is refused. Of "
     "many "
     "files, all\n"
     "are changed or none: each is judged before the first is replaced, and a failure puts the others back. "
     "With "
     "--dry-run,\n"
     "status 1 says that something would change. \"-\" in the place of KEY=VALUE reads a list as 'kfactl "
     "config diff' "
     "prints it.\n"
     "Behind the first FILE, a word that begins with KEY= is a change, whatever its value holds. A condition "
     "is "
     "written in\n"
     "small letters.\n\n"
     "Examples:\n"
     "  kfactl config set 101.conf ONBOOT=yes HOSTNAME=web1.example.com\n"
     "  kfactl config set --dry-run 'ostemplate=debian-11*' NAMESERVER=192.0.2.53\n"
     "  kfactl config set --backup .old 101-110 'NAMESERVER=192.0.2.53 192.0.2.54'\n"
     "  kfactl config set 120 --create --from basic HOSTNAME=web20.example.com\n"
     "  kfactl config diff 101.conf 102.conf | kfactl config set 103 -",
     prepareSet},
    {"unset", "FILE... KEY...", "Take keys out, with every other line kept",
     "The lines of these keys go, their comments with them. All files are changed or none, as by set. A line "
     "that a\n"
     "command of several lines may need, such as an if, goes by --force alone. A condition is written in "
     "small "
     "letters.\n\n"
     "Examples:\n"
     "  kfactl config unset 101 DESCRIPTION\n"
     "  kfactl config unset --dry-run '*' SLMMODE SLMMEMORYLIMIT",
     prepareUnset},
    {"diff", "BEFORE AFTER", "Print the keys whose values differ, of two files or two folders",
     "Changed keys with their new values and what they were, then, as \"unset KEY\", those that only the "
     "first has: a "
     "list that\n"
     "'kfactl config set FILE -' takes, and with --reverse takes back. Status 1 when there are any.\n\n"
     "Examples:\n"
     "  kfactl config diff 101 102\n"
     "  kfactl config diff backup/conf /etc/kfa/conf\n"
     "  kfactl --format json config diff 101.conf.old 101.conf",
     prepareDiff},
    {"merge", "BASE OURS THEIRS", "Make one of two changed copies, key by key",
     "Ours with what theirs did to the base, comments of both kept. A key that both changed to different "
     "values "
     "stands\n"
     "between conflict marks, with status 1. As a driver of git: put '*.conf merge=kfa' into .gitattributes, "
     "and\n"
     "  git config merge.kfa.driver 'kfactl config merge --in-place --name %P %O %A %B'\n\n"
     "Examples:\n"
     "  kfactl config merge base.conf ours.conf theirs.conf > merged.conf",
     prepareMerge, kTableOnly},
    {"fix", "[FILE...]", "Show or make the edits that cure findings with one right answer",
     "Line ends of other systems, a byte order mark, blanks round =, KEY: value, quotes of word processors,\n"
     "true for yes, repeated keys; within a command of several lines, and behind one, only line ends.\n"
     "Shown as a difference, with status 1 when there are any; made with --apply, and in what - prints.\n\n"
     "Examples:\n"
     "  kfactl config fix --dry-run\n"
     "  kfactl config fix 113 --apply --backup .old",
     prepareFix},
    {"explain", "FILE KEY", "Tell what a file makes of a key",
     "Which line counts, what a shell would assign, what the record keeps, what the message says, what the "
     "key "
     "takes.\n\n"
     "Examples:\n"
     "  kfactl config explain 101 NETIF",
     prepareExplain},
    {"keys", "[KEY]", "List every key with what it takes, its unit, its default, an example",
     "Resource parameters are those of the vocabulary.\n\n"
     "Examples:\n"
     "  kfactl config keys\n"
     "  kfactl config keys CPULIMIT",
     prepareKeys},
    {"check", "[FILE...]", "Report what is wrong in files, between them, and on the node",
     "Malformed lines, values that do not convert or cannot work, repeated keys, lines that only look like "
     "assignments;\n"
     "addresses, names and areas that two environments have; what is promised to all beside what the node "
     "has. "
     "Of many files\n"
     "the worst comes first, with a summary at the end. Status 1 when there are errors or warnings; a key "
     "that is "
     "not ours is\n"
     "only noted. --format sarif is for editors and code hosts.\n\n"
     "Examples:\n"
     "  kfactl config check\n"
     "  kfactl config check 101-110 --level error\n"
     "  kfactl config check --memory 64G --cpus 16\n"
     "  kfactl --format json config check --strict 101.conf",
     prepareCheck, kFindings},
    {"list", "[FILE...]", "List environments, all of the node when none is named",
     "In the order of their numbers: number, title, type, start on boot, template, addresses.\n\n"
     "Examples:\n"
     "  kfactl config list /etc/kfa/conf\n"
     "  kfactl --format json config list /etc/kfa/conf",
     prepareList},
};

constexpr Command kCheckCommand[] = {
    {nullptr, "[FILE...]", "Report what is wrong on the node; the same as config check",
     "Every environment of the node when none is named. 'kfactl config check --help' says more.\n\n"
     "Examples:\n"
     "  kfactl check\n"
     "  kfactl --node examples/node/conf check --level warning",
     prepareCheck, kFindings},
};

}  // namespace

extern const Group checkGroup;
const Group checkGroup{"check", "What is wrong on the node", kCheckCommand};

extern const Group configGroup;
const Group configGroup{"config", "Configuration files of environments", kCommands,
                        "  kfactl config list /etc/kfa/conf\n"
                        "  kfactl config set 101.conf ONBOOT=yes\n"
                        "  kfactl config check /etc/kfa/conf/*.conf"};

}  // namespace kfactl
