// SPDX-License-Identifier: Apache-2.0
// The node that the command of a thread is about: this machine, or another one behind its agent. A thread runs one command
// at a time, and each thread has its own of all this.
#ifndef KFACTL_NODE_H
#define KFACTL_NODE_H

#include <functional>
#include <string>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/node/KFANodeFiles.h>

#include "terminal/Input.h"

namespace KFA {
class KFAAgentFiles;
}

namespace kfactl {

class Session;

// The global options that name other nodes, as they were given; to be filled by the command line.
struct AtOptions {
  std::string at;  // the node or, behind an @, the file of nodes; empty for this machine
  // The files of the certificate that other nodes are shown.
  std::string certificate, key, authority;
};
AtOptions& atOptions();

// The files of the node's environments.
KFA::KFANodeFiles& nodeFiles();
// The whole content of one of them; "-" is this machine's standard input.
Input readNodeFile(const std::string& path);
// Says that these will be read.
template <class Files>
void expectFiles(const Files& files) {
  std::vector<std::string> paths;
  for (const auto& file : files)
    paths.push_back(file.path);
  nodeFiles().expect(paths);
}

// The agent of the other node; null for this machine.
const boost::shared_ptr<KFA::KFAAgentFiles>& nodeAgent();
// While it lives, the commands of this thread are about the node of this agent.
class AtNode {
 public:
  explicit AtNode(const boost::shared_ptr<KFA::KFAAgentFiles>& agent);
  AtNode(const AtNode&) = delete;
  AtNode& operator=(const AtNode&) = delete;
  ~AtNode();
};

// What the commands of a thread would print: lines on standard error, the headings and rows of tables, everything else.
struct Kept {
  std::vector<std::string> errors;
  std::vector<std::vector<std::string>> rows;
  std::string text;
};
// While it lives, all of it is kept there instead. Standard input can be read anew.
class Keeping {
 public:
  explicit Keeping(Kept& kept);
  Keeping(const Keeping&) = delete;
  Keeping& operator=(const Keeping&) = delete;
  ~Keeping();
};
// Null when nothing is kept.
Kept* keptByThread();

// Runs a command line: the exit status. What ends it is one line on standard error.
using RunWords = std::function<int(Session& session, const std::vector<std::string>& words)>;
// Runs a command line whose --at names other nodes: the exit status. kfactl leaves that to kfactl-at, which is linked to
// what reaches them, so that a command of this machine need not load it.
int runElsewhere(Session& session, const std::vector<std::string>& words, const RunWords& run);

}  // namespace kfactl

#endif
