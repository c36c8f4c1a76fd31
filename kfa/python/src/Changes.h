// SPDX-License-Identifier: Apache-2.0
// Changes of keys, as the class KeyChange.
#ifndef KFAPYTHON_CHANGES_H
#define KFAPYTHON_CHANGES_H

#include <KFAFunctionality/node/KFAChangeList.h>

#include "Failure.h"

namespace kfapy {

py::list toList(const KFA::KFAChangeList& changes);
// From pairs of a key and a text, or None for a key that is unset.
KFA::KFAChangeList changesFrom(const py::object& changes);

}  // namespace kfapy

#endif
