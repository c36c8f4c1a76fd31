// SPDX-License-Identifier: Apache-2.0
// Libraries that bring records and derived types of their own (--load).
#ifndef KFACTL_LIBRARIES_H
#define KFACTL_LIBRARIES_H

#include <string>
#include <vector>

namespace kfactl {

// Loads them in this order, for the life of the process; the registries hold what they bring from then on. Throws a Trouble
// for a file that others could have changed, for what is no library or ends while it is loaded, and for one that
// registers nothing here. The program that holds the libraries' objects itself loads none and says so: a library would
// register with a core of its own.
void loadLibraries(const std::vector<std::string>& paths);

}  // namespace kfactl

#endif
