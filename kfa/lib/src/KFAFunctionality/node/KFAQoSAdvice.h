// SPDX-License-Identifier: Apache-2.0
// The smallest changes of resource parameters that make every violated formula hold.
//
// Smallest means: few keys, and of these the least change of the values in proportion. For each value of a formula that
// fails, the number nearest to it with which the formula holds is tried, and the search goes on from the most hopeful
// outcome; it ends after a bounded number of steps. No change of the advice can be left out, nor would a smaller one of
// its kind do. Any thread.
#ifndef KFAFUNCTIONALITY_NODE_KFAQOSADVICE_H
#define KFAFUNCTIONALITY_NODE_KFAQOSADVICE_H

#include <set>
#include <string>
#include <vector>

#include <KFLFunctionality/KFLQoS.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/resources/KFAQoSTune.h>

namespace KFA {

class KFAEnvConfigBashParser;

struct KFAQoSAdvice {
  KFAChangeList changes;  // in the form of the file, with what the values were
  // The numbers of the formulas that are violated now, and of those that no change was found for.
  std::vector<int> violated;
  std::vector<int> left;
};

// Advice for the values of a tune that has been initialised; `given` are the parameters that have a value of their own
// (an "avnumproc" that is made from "numproc" follows it, and is not changed).
KFAQoSAdvice adviseQoS(const KFAQVTune& tune, const KFAEnvConfigBashParser& parser,
                       const std::set<KFLQoS>& given);

}  // namespace KFA

#endif
