// SPDX-License-Identifier: Apache-2.0
#include "terminal/Node.h"

#include <KFAFunctionality/access/KFAAgentFiles.h>

#include "terminal/Trouble.h"

namespace kfactl {

namespace {

thread_local boost::shared_ptr<KFA::KFAAgentFiles> agent;
thread_local Kept* kept = nullptr;

}  // namespace

AtOptions& atOptions() {
  thread_local AtOptions options;
  return options;
}

KFA::KFANodeFiles& nodeFiles() {
  return agent ? *agent : KFA::KFANodeFiles::local();
}

Input readNodeFile(const std::string& path) {
  if (isStandardStream(path)) return readInput(path);
  Input input{path, {}};
  must(nodeFiles().read(path, input.text));
  return input;
}

const boost::shared_ptr<KFA::KFAAgentFiles>& nodeAgent() {
  return agent;
}

AtNode::AtNode(const boost::shared_ptr<KFA::KFAAgentFiles>& of) {
  agent = of;
}
AtNode::~AtNode() {
  agent.reset();
}

Keeping::Keeping(Kept& in) {
  kept = &in;
}
Keeping::~Keeping() {
  kept = nullptr;
}

Kept* keptByThread() {
  return kept;
}

}  // namespace kfactl
