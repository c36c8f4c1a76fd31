// SPDX-License-Identifier: Apache-2.0
// What is wrong with the environments of a node: file by file, between files, and against what the node has.
//
//   KFANodeCheck check(parser, {});
//   for (file) check.add(file, text);
//   for (const KFANodeFinding& finding : check.finish()) ...
//
// Nothing is printed, nothing is read but the files that repair types and samples name. One object serves one thread and
// one check; it keeps the texts that it was given. What is judged of a file by itself is most of the work: who has several
// threads gives each a KFAFileJudge, and add() what they say.
#ifndef KFAFUNCTIONALITY_NODE_KFANODECHECK_H
#define KFAFUNCTIONALITY_NODE_KFANODECHECK_H

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFAFileJudge.h>
#include <KFAFunctionality/node/KFANodeFiles.h>
#include <KFAFunctionality/node/KFANodeFinding.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

namespace KFA {

class KFAEnvConfigBashParser;
class KFAEnvironmentKeys;

struct KFANodeCheckOptions {
  // Keys, in lower case, of other tools, of which nothing is said.
  std::set<std::string> foreignKeys = {};
  // The templates that there are, as NAME or NAME/VERSION; not judged without.
  std::optional<std::set<std::string>> templates = {};
  // What the node has; a member that is 0 is not judged.
  KFANodeResources node = {};
};

class KFANodeCheck {
 public:
  // Environments and samples that others name are looked for in `where`, which must outlive this.
  KFANodeCheck(const boost::shared_ptr<const KFAEnvConfigBashParser>& parser, KFANodeCheckOptions options,
               KFANodeFiles& where = KFANodeFiles::local());
  KFANodeCheck(const KFANodeCheck&) = delete;
  KFANodeCheck& operator=(const KFANodeCheck&) = delete;
  ~KFANodeCheck();

  // Judges the text of one file, and keeps what it says for finish(): what is found in it and beside the files before it,
  // by line. Valid until the next call.
  std::span<const KFANodeFinding> add(const KFAEnvironmentFile& file, const std::string& text);
  // The same for a file that a KFAFileJudge with this parser and these foreign keys has judged.
  std::span<const KFANodeFinding> add(KFAJudgedFile judged);
  // What the file added last says.
  const KFAEnvironmentKeys& getKeys() const;
  // All findings, file by file in the order of adding and by line; then those about the node.
  std::vector<KFANodeFinding> finish();

  // What all environments that start on boot are guaranteed together, and how many they are.
  const KFANodeResources& getGuaranteed() const;
  std::size_t getStartedOnBoot() const;

 private:
  class Judge;
  std::unique_ptr<Judge> judge_;
};

// Reads a list of keys of other tools: names separated by blanks, "#" begins a comment. In lower case.
std::set<std::string> parseForeignKeys(const std::string& text);
// The name of that list in a node's folder.
inline constexpr const char* kForeignKeysFile = "foreign-keys";

}  // namespace KFA

#endif
