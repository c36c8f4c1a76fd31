// SPDX-License-Identifier: Apache-2.0
// Two changed copies of a file made one, key by key.
//
// The merged text is ours with what theirs did to the base: values, keys that are new or gone, comments. A value that
// both have changed to different ones stands between conflict marks, as git writes them. Comments of both sides stay.
// Lines are compared by what they say: a value that is only quoted in another way is no change. The lines of a key that a copy
// repeats are one conflict where both have changed what they say, or their merge would say something else. Any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFACONFIGMERGE_H
#define KFAFUNCTIONALITY_NODE_KFACONFIGMERGE_H

#include <string>
#include <vector>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

struct KFAConfigMerge {
  std::string text;
  std::vector<std::string> conflicts;  // the keys, in lower case
};

struct KFAMergeLabels {
  std::string ours = "ours";
  std::string theirs = "theirs";
};

KFAConfigMerge mergeConfig(const std::string& base, const std::string& ours, const std::string& theirs,
                           const KFAMergeLabels& labels = {});

}  // namespace KFA

#endif
