// SPDX-License-Identifier: Apache-2.0
// What is wrong with the environments of a node: file by file, between files, and against what the node has.
//
//   KFANodeCheck check(parser, {});
//   for (file) check.add(file, text);
//   for (const KFANodeFinding& finding : check.finish()) ...
//
// Nothing is printed, nothing is read but the files that repair types and samples name. One object serves one thread and
// one check; it keeps the texts that it was given.
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
#include <KFAFunctionality/files/KFAConfigCheck.h>
#include <KFAFunctionality/node/KFANodeFiles.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

namespace KFA {

class KFAEnvConfigBashParser;
class KFAEnvironmentKeys;

struct KFANodeFinding {
  using Severity = KFAConfigFinding::Severity;

  Severity severity = Severity::Error;
  std::string rule;  // one of nodeRules()
  std::string file;
  int veid = -1;
  // From 1, the column in bytes; 0 for a finding about the whole file, or about the node's folder.
  std::size_t line = 0;
  std::size_t column = 0;
  std::string text;
  std::string lineText;
  // The other place of a finding between two files, "FILE:LINE"; empty for others.
  std::string related = {};
};

// A kind of finding.
struct KFANodeRule {
  const char* name;
  const char* description;
};
std::span<const KFANodeRule> nodeRules();

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
  // What the file added last says: the keys that are judged, with those of KFAEnvironmentSummary and every resource
  // parameter among them.
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

// The findings with the worst first; those of one severity keep their order.
void sortBySeverity(std::vector<KFANodeFinding>& findings);

// Reads a list of keys of other tools: names separated by blanks, "#" begins a comment. In lower case.
std::set<std::string> parseForeignKeys(const std::string& text);
// The name of that list in a node's folder.
inline constexpr const char* kForeignKeysFile = "foreign-keys";

}  // namespace KFA

#endif
