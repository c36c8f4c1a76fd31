// SPDX-License-Identifier: Apache-2.0
// The command line: groups of commands, each command a row of a table.
//
// `kfactl [options] GROUP [options] COMMAND [options] ARGUMENTS`: each word is looked up in its table, and only the
// command that was named declares its options, so that a short command starts fast. The global options may stand
// anywhere. A group is one `const Group` in a file of its own, listed in main.cpp.
#ifndef KFACTL_CLI_H
#define KFACTL_CLI_H

#include <functional>
#include <span>

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace kfactl {

// What a command does: its exit status, or a Trouble thrown.
using Action = std::function<int(Session&)>;

// The formats in which a command can print.
inline constexpr unsigned kAllFormats = 7;
inline constexpr unsigned kTableOnly = 1U << static_cast<unsigned>(Format::Table);
inline constexpr unsigned kFindings = kAllFormats | 1U << static_cast<unsigned>(Format::Sarif);

struct Command {
  const char* name;  // null for a group that is a command itself
  const char*
      arguments;        // as in "FILE [KEY...]": "[X]" may be left out, "X..." may be several and comes last
  const char* summary;  // one line
  const char* help;     // what more there is to say; examples, one a line, behind two blanks
  // Declares the command's own options; the action holds what they are bound to.
  Action (*prepare)(CLI::App& app);
  unsigned formats = kAllFormats;
};

struct Group {
  const char* name;
  const char* summary;
  std::span<const Command> commands;
  const char* examples = "";  // as those in a command's help
};

// The Action of a command without options of its own.
template <int (*Run)(Session&)>
Action withoutOptions(CLI::App&) {
  return Run;
}

// What the program is for, in one line, and what its help says behind its options.
inline constexpr const char* kProgramSummary =
    "Read, change, compare, check and convert the configurations of environments";
extern const char* const kProgramHelp;

// Every group, as main.cpp lists them.
std::span<const Group* const> listGroups();

// Declares the options that may stand anywhere; they are bound to the session.
void declareGlobals(CLI::App& app, Session& session);

// Runs the command line: the exit status.
int runProgram(std::span<const Group* const> groups, int argc, char** argv);

}  // namespace kfactl

#endif
