// SPDX-License-Identifier: Apache-2.0
// What a check of a node's environments finds, and the kinds of it. Any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFANODEFINDING_H
#define KFAFUNCTIONALITY_NODE_KFANODEFINDING_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAConfigCheck.h>

namespace KFA {

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

// The findings with the worst first; those of one severity keep their order.
void sortBySeverity(std::vector<KFANodeFinding>& findings);

}  // namespace KFA

#endif
