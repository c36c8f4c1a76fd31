// SPDX-License-Identifier: Apache-2.0
// What is wrong in one environment file, whatever other files say.
//
// Nothing is printed and nothing is read. An object serves one thread; it remembers how common values were judged.
#ifndef KFAFUNCTIONALITY_NODE_KFAFILEJUDGE_H
#define KFAFUNCTIONALITY_NODE_KFAFILEJUDGE_H

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFANodeFinding.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

namespace KFA {

class KFAEnvConfigBashParser;
class KFAEnvironmentKeys;

// What only one environment of a node can have.
struct KFAClaim {
  enum class Kind { Address, Mac, Uuid, Name, HostName, PrivateArea };
  Kind kind;
  const char* key;   // whose line says so
  std::string what;  // the same text for every way to write it
  std::string shown = what;
  std::string network = {};  // of an address, where its device names one
};

// A file, and what a judge says of it.
struct KFAJudgedFile {
  KFAEnvironmentFile file;
  std::string text;
  // Whether it holds lines with keys at all.
  bool isConfiguration = false;
  std::vector<KFANodeFinding> findings;
  // What the file says: the keys that are judged, with those of KFAEnvironmentSummary and every resource parameter among
  // them.
  std::shared_ptr<const KFAEnvironmentKeys> keys;
  std::vector<KFAClaim> claims;
  int repairs = -1;  // the number of the environment that this one repairs
};

class KFAFileJudge {
 public:
  // foreignKeys: keys, in lower case, of other tools, of which nothing is said.
  KFAFileJudge(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
               const std::set<std::string>& foreignKeys);
  KFAFileJudge(const KFAFileJudge&) = delete;
  KFAFileJudge& operator=(const KFAFileJudge&) = delete;
  ~KFAFileJudge();

  KFAJudgedFile judge(const KFAEnvironmentFile& file, const std::string& text);

 private:
  class Work;
  std::unique_ptr<Work> work_;
};

}  // namespace KFA

#endif
