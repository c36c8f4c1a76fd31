// SPDX-License-Identifier: Apache-2.0
// A report about a node as one HTML page that needs nothing else: pictures in SVG, a style for light, dark and paper, and
// a script that sorts and filters. The page's own policy lets a browser run that script alone.
#ifndef KFACTL_REPORTPAGE_H
#define KFACTL_REPORTPAGE_H

#include <string>

#include <KFAFunctionality/node/KFANodeReport.h>

namespace kfactl {

// node: the folder that the page is about. made: when, for people.
std::string pageOf(const KFA::KFANodeReport& report, const std::string& node, const std::string& made);

}  // namespace kfactl

#endif
