// SPDX-License-Identifier: Apache-2.0
// The manager of environments: their life from creation to removal, their configurations, and what the node can do
// for them. Results and threads: KFAManagerResult.h.
#ifndef KFAFUNCTIONALITY_ACCESS_KFAENVM_H
#define KFAFUNCTIONALITY_ACCESS_KFAENVM_H

#include <vector>

#include <boost/function.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLFunctionality/KFLEID.h>
#include <KFLFunctionalityCore/KFLFunctional.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/access/KFAManagerResult.h>

namespace KFA {

class KFAEnv;
class KFAEnvConfig;
class KFAMigratorCloneOptions;
class KFAVtInfo;
class KFAVtSettings;

class KFAEnvM : public KFLFunctional {
 public:
  using EnvSP = boost::shared_ptr<KFAEnv>;

  // The environments of the node, by sort key; each with its configurations.
  virtual int list(std::vector<EnvSP>& envs) = 0;
  // The same one by one, so that not all of them have to be in memory at once. A taker that gives anything but 0 wants no
  // more, which is done, too. What was taken before a failure stays taken.
  using Take = boost::function<int(const EnvSP& env)>;
  virtual int each(const Take& take) {
    std::vector<EnvSP> envs;
    const int code = list(envs);
    for (auto env = envs.begin(); code == KFAManagerDone && env != envs.end() && take(*env) == 0; ++env)
      continue;
    return code;
  }
  virtual int get(const KFLEID& eid, EnvSP& env) = 0;

  // Makes a stopped environment. A VEID of the configuration that is in use is refused; without one the node
  // chooses a free one.
  virtual int create(const KFAEnvConfig& config, KFLEID& eid) = 0;
  // Makes a stopped copy of an environment.
  virtual int clone(const KFLEID& source, const KFAMigratorCloneOptions& options, KFLEID& eid) = 0;
  // Ends an environment for good, with its disks. A running one is refused.
  virtual int remove(const KFLEID& eid) = 0;

  // The virtual configuration of an environment.
  virtual int getConfig(const KFLEID& eid, KFAEnvConfig& config) = 0;
  // Changes the properties that are specified in `changes` and no others. What cannot take effect while the
  // environment runs does so when it is started next.
  virtual int setConfig(const KFLEID& eid, const KFAEnvConfig& changes) = 0;

  // Both wait for the end of the work. An environment that is running already is started, one that is not
  // running is stopped: nothing to do is done.
  virtual int start(const KFLEID& eid) = 0;
  virtual int stop(const KFLEID& eid) = 0;

  // What the node's technology can do, and its settings for all environments.
  virtual int getInfo(KFAVtInfo& info) = 0;
  virtual int getSettings(KFAVtSettings& settings) = 0;
  virtual int setSettings(const KFAVtSettings& settings) = 0;
};

}  // namespace KFA

#endif
