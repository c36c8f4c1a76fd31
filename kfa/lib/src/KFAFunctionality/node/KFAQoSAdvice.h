// SPDX-License-Identifier: Apache-2.0
// Small changes of resource parameters that make every violated formula hold.
//
// Small means: few keys, and of these little change of the values in proportion. For each value of a formula that fails,
// the number nearest to it with which the formula holds is tried, and the search goes on from the most hopeful outcome;
// it ends after a bounded number of steps, so there may be a way that it does not find. What it advises breaks no other
// formula: one that holds goes on holding, and one that could be checked can still be. At the end no change can be left
// out, and each number has been moved back towards what it was as far as halving the way finds in a few rounds. Every
// value is one that a file can hold. Any thread.
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
  // The numbers of the formulas that are violated now, and of those among them that no change was found for.
  std::vector<int> violated;
  std::vector<int> left;
};

// Advice for the values of a tune that has been initialised; `given` are the parameters that have a value of their own
// (an "avnumproc" that is made from "numproc" follows it, and is not changed).
KFAQoSAdvice adviseQoS(const KFAQVTune& tune, const KFAEnvConfigBashParser& parser,
                       const std::set<KFLQoS>& given);
// The same with a tune that is initialised where it still has to be: 0, or -1 with an error text when it cannot be.
int adviseQoS(KFAQVTune& tune, const KFAEnvConfigBashParser& parser, const std::set<KFLQoS>& given,
              KFAQoSAdvice& advice);

}  // namespace KFA

#endif
