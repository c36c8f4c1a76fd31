// SPDX-License-Identifier: Apache-2.0
// kfactl: the library on the command line.
#include "terminal/Cli.h"

namespace kfactl {

extern const Group rawGroup, configGroup, globalGroup, netifGroup, messageGroup, qosGroup, cacheGroup,
    typesGroup, checkGroup, reportGroup, watchGroup, manualGroup, completeGroup;

constexpr const Group* kGroups[] = {&rawGroup,   &configGroup, &globalGroup,  &netifGroup, &messageGroup,
                                    &qosGroup,   &cacheGroup,  &typesGroup,   &checkGroup, &reportGroup,
                                    &watchGroup, &manualGroup, &completeGroup};

std::span<const Group* const> listGroups() {
  return kGroups;
}

}  // namespace kfactl

int main(int argc, char** argv) {
  return kfactl::runProgram(kfactl::kGroups, argc, argv);
}
