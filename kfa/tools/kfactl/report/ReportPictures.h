// SPDX-License-Identifier: Apache-2.0
// The pictures of the page. Each has a title and a description in words; none says anything by its colours alone.
#ifndef KFACTL_REPORTPICTURES_H
#define KFACTL_REPORTPICTURES_H

#include <string>

#include <KFAFunctionality/node/KFANodeReport.h>

#include "report/Markup.h"

namespace kfactl {

// How a person calls an environment: "101 shop".
std::string callNameOf(const KFA::KFANodeReport::Environment& environment);
// The number of an environment, or else its file.
std::string numberOf(const KFA::KFANodeReport::Environment& environment);
// "1 error", "2 errors".
std::string countText(std::size_t count, const char* word);

// A bar of what environments take of something, each with its part, against what the node has.
void drawSum(Markup& page, const KFA::KFANodeReport& report, const KFA::KFANodeReport::Sum& sum);
// A bar of a value against its bound.
void drawShare(Markup& page, double share);
// Who is in a network: a line with a box for each member.
void drawNetwork(Markup& page, const KFA::KFANodeReport& report, const KFA::KFANodeReport::Network& network);
// What a network is called.
std::string nameOf(const KFA::KFANodeReport::Network& network);

}  // namespace kfactl

#endif
