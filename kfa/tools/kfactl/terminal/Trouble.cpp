// SPDX-License-Identifier: Apache-2.0
#include "terminal/Trouble.h"

#include <KFLCommon/KFLError.h>

namespace kfactl {

void throwLibraryError() {
  throw Trouble(KFL::getErrorMessage());
}

void throwLibraryError(const std::string& prefix) {
  throw Trouble(prefix + ": " + KFL::getErrorMessage());
}

void Troubles::finish() const {
  if (count_ == 0) return;
  throw Trouble(count_ == 1 ? first_ : first_ + " (and " + std::to_string(count_ - 1) + " more)");
}

}  // namespace kfactl
