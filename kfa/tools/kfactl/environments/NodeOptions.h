// SPDX-License-Identifier: Apache-2.0
// What a check of the node knows beside the files: keys of other tools, templates, and what the node has.
#ifndef KFACTL_NODEOPTIONS_H
#define KFACTL_NODEOPTIONS_H

#include <functional>
#include <string>

#include <KFAFunctionality/node/KFANodeCheck.h>

#include "environments/Environments.h"

namespace CLI {
class App;
}

namespace kfactl {

class Session;

struct NodeOptions {
  std::string foreign;
  std::string cache;
  std::string memory;
  std::string disk;
  std::string cpus;

  void declare(CLI::App& app);
  // Reads the files that are named, and asks the machine for what is not given.
  KFA::KFANodeCheckOptions resolve(Session& session) const;
};

// For Environments::eachAtOnce(): judges each file by itself, and hands the outcome to `add` in the order of the files.
std::function<Environments::Make()> judging(Session& session, const KFA::KFANodeCheckOptions& how,
                                            const std::function<void(KFA::KFAJudgedFile judged)>& add);

}  // namespace kfactl

#endif
