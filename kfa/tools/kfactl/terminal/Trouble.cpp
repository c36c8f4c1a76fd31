// SPDX-License-Identifier: Apache-2.0
#include "terminal/Trouble.h"

#include <KFLCommon/KFLError.h>

#include "terminal/Output.h"
#include "terminal/Session.h"

namespace kfactl {

void throwLibraryError() {
  throw Trouble(KFL::getErrorMessage());
}

void throwLibraryError(const std::string& prefix) {
  throw Trouble(prefix + ": " + KFL::getErrorMessage());
}

void Troubles::add(const std::string& text) {
  any_ = true;
  printError(text);
}

int Troubles::status(int otherwise) const {
  return any_ ? kTrouble : otherwise;
}

}  // namespace kfactl
