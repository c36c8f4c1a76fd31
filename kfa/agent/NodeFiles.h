// SPDX-License-Identifier: Apache-2.0
// A node as its files tell of it: where they are, which environments there are, and what each is called.
//
// An environment's id is the UUID in its configuration, when that is one and no environment with a lower VEID has it;
// else it is made of the node's id and the VEID, so that it stays the same. Any thread.
#ifndef KFAD_NODEFILES_H
#define KFAD_NODEFILES_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/access/KFAManagerResult.h>
#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFAConfigRules.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>
#include <KFLCommon/KFLLock.h>

namespace kfad {

using KFA::KFAConfigChanges;
using KFA::KFAEnvConfig;
using KFL::KFLEID;

// Where a node keeps what; an empty path is something that this node does not have.
struct NodePaths {
  std::string environments;  // the folder of VEID.conf files
  std::string global;        // the settings of all environments
  std::string samples;       // the folder of NAME.sample files
  std::string shaping;       // a message: the shaping of the network
  std::string updates;       // a message: the configuration of updates
};

class NodeFiles {
 public:
  using ParserSP = boost::shared_ptr<const KFA::KFAEnvConfigBashParser>;
  using VocabularySP = boost::shared_ptr<KFL::KFLVocMap>;
  struct Entry {
    KFLEID eid;
    KFAEnvConfig config;
  };

  NodeFiles(const NodePaths& paths, const KFLEID& node, const VocabularySP& vocabulary,
            const ParserSP& parser);

  const NodePaths& paths() const { return paths_; }
  const VocabularySP& vocabulary() const { return vocabulary_; }
  const KFA::KFAConfigRules& rules() const { return rules_; }
  std::string pathOf(int veid) const;

  // The environments by VEID, one by one; a visitor that gives anything but 0 ends the walk. One whose file cannot be
  // read is left out, and logged. A code of the managers.
  int each(const std::function<int(int veid, Entry& entry)>& visit) const;
  // The environment with this id: done, or not found, or failed where its file cannot be read.
  int find(const KFLEID& eid, int& veid, KFAEnvConfig& config) KFL_EXCLUDES(lock_);

  // The text of a configuration file as a record: 0, or -1 with an error text that names the line.
  int parse(const std::string& text, const std::string& name, KFAEnvConfig& config) const;
  // Gives a file's text the properties that the changes have: 0, or -1 with an error text, also where the file would
  // not give all of them back.
  int apply(const KFAEnvConfig& changes, const std::string& text, const std::string& name,
            std::string& result) const;

 private:
  int read(int veid, KFAEnvConfig& config) const;
  KFLEID madeId(int veid) const;
  KFAConfigChanges keysOf(const KFAEnvConfig& config) const;

  const NodePaths paths_;
  const KFLEID node_;
  const VocabularySP vocabulary_;
  const ParserSP parser_;
  const KFA::KFAEnvConfigRules rules_;
  KFL::KFLLock lock_;
  std::map<KFLEID, int> veids_ KFL_GUARDED_BY(lock_);  // as they were when one was looked for
};

}  // namespace kfad

#endif
