// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeFinding.h>

#include <algorithm>

namespace KFA {

namespace {

constexpr KFANodeRule kRules[] = {
    {"no-configuration", "The file holds no text of a configuration"},
    {"malformed-line", "A quote or a line is left open, or a shell refuses the line"},
    {"not-an-assignment", "The line looks like an assignment and is none"},
    {"open-line", "The next line belongs to this one"},
    {"nul", "A NUL in a line"},
    {"repeated-key", "Two lines have the same key"},
    {"foreign-key", "The key is none of an environment file"},
    {"carriage-return", "The line ends with a carriage return"},
    {"value", "The key does not take the value"},
    {"unsafe-value", "A shell would not read the value back"},
    {"overruled-value", "Another key overrules the value"},
    {"byte-order-mark", "A byte order mark in front of the first line"},
    {"odd-space", "A blank that a shell does not take for one"},
    {"odd-quote", "A quote of a word processor"},
    {"colon", "KEY: VALUE, where KEY=VALUE is wanted"},
    {"unworkable-value", "The value is kept as it stands, and cannot work"},
    {"duplicate-address", "Two environments have the same address"},
    {"duplicate-mac", "Two environments have the same MAC address"},
    {"duplicate-uuid", "Two environments have the same UUID"},
    {"duplicate-name", "Two environments have the same name"},
    {"duplicate-hostname", "Two environments have the same host name"},
    {"duplicate-private", "Two environments have the same private area"},
    {"missing-environment", "The environment that is to be repaired is not there"},
    {"missing-sample", "The sample that the environment was made from is not there"},
    {"unknown-template", "The cache knows no such template"},
    {"node-memory", "More memory is guaranteed than the node has"},
    {"node-disk", "More disk space is allowed than the node has"},
    {"node-cpu", "More processor time is guaranteed than the node has"},
};

}  // namespace

std::span<const KFANodeRule> nodeRules() {
  return kRules;
}

void sortBySeverity(std::vector<KFANodeFinding>& findings) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const auto& a, const auto& b) { return a.severity < b.severity; });
}

}  // namespace KFA
