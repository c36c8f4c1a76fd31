// SPDX-License-Identifier: Apache-2.0
#include "terminal/Libraries.h"
#include "terminal/Trouble.h"

namespace kfactl {

void loadLibraries(const std::vector<std::string>& paths) {
  if (paths.empty()) return;
  throw Trouble(paths.front() +
                ": --load is not for this kfactl, which is one file and shares no core with libraries; "
                "take the packaged one, or build with -DKFACTL_ONE_FILE=OFF");
}

}  // namespace kfactl
