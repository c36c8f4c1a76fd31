// SPDX-License-Identifier: Apache-2.0
// Not installed: the name of a root element that holds a record without a type tag.
#ifndef KFLMESSAGE_KFLROOTNAME_H
#define KFLMESSAGE_KFLROOTNAME_H

#include <string>
#include <string_view>

#pragma GCC visibility push(hidden)

namespace KFL {

// From the name of the class: "KFAUGIDQuotaInfo" gives "ugid_quota_info".
std::string rootNameOf(std::string_view className);

}  // namespace KFL

#pragma GCC visibility pop

#endif
