// SPDX-License-Identifier: Apache-2.0
#include "KFLSystem.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace KFL {

#define KFL_SYSTEM_OWN(result, name, parameters, arguments) \
  .name = [] parameters -> result { return ::name arguments; },  // NOLINT(bugprone-macro-parentheses)

constinit KFLSystem::Calls KFLSystem::calls = {KFL_SYSTEM_CALLS(KFL_SYSTEM_OWN)};

#undef KFL_SYSTEM_OWN

}  // namespace KFL
