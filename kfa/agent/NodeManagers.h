// SPDX-License-Identifier: Apache-2.0
// The managers that work on a node's files alone: environments, samples, templates, network and updates. What needs the
// container technology itself is refused as not offered. Any thread.
#ifndef KFAD_NODEMANAGERS_H
#define KFAD_NODEMANAGERS_H

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/access/KFAEnvM.h>
#include <KFAFunctionality/access/KFAFilesM.h>
#include <KFAFunctionality/access/KFALibFunctionality.h>
#include <KFAFunctionality/access/KFANetworkM.h>
#include <KFAFunctionality/access/KFASampleM.h>
#include <KFAFunctionality/access/KFATEM.h>
#include <KFAFunctionality/access/KFAUp2date.h>

#include "NodeFiles.h"

namespace kfad {

using NodeFilesSP = boost::shared_ptr<NodeFiles>;

boost::shared_ptr<KFA::KFAEnvM> makeEnvironments(const NodeFilesSP& files);
boost::shared_ptr<KFA::KFASampleM> makeSamples(const NodeFilesSP& files);
boost::shared_ptr<KFA::KFATEM> makeTemplates(const NodeFilesSP& files);
boost::shared_ptr<KFA::KFANetworkM> makeNetwork(const NodeFilesSP& files);
boost::shared_ptr<KFA::KFAUp2date> makeUpdates(const NodeFilesSP& files);

// The configuration files themselves, with the templates that the cache knows when there is one.
boost::shared_ptr<KFA::KFAFilesM> makeFiles(const NodePaths& paths);

// Registers them under the name of the technology, except those that something else was registered for before.
void registerNodeManagers(KFA::KFALibFunctionality& managers, const NodeFilesSP& files);

// Leaves the text that says so, and gives KFAManagerFailed.
int notOffered(const char* operation);

}  // namespace kfad

#endif
