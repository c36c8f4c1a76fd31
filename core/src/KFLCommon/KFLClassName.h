// SPDX-License-Identifier: Apache-2.0
// Names of classes, as texts for people speak of them. Any thread.
#ifndef KFLCOMMON_KFLCLASSNAME_H
#define KFLCOMMON_KFLCLASSNAME_H

#include <string>
#include <typeinfo>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

// A class as it stands in a program: "KFL::KFLPackage".
std::string classNameOf(const std::type_info& type);

// The same without the namespaces of the core and the library, also within: "HardDisk::List::Images<HardDisk::Zloop>".
std::string shortClassNameOf(const std::type_info& type);

}  // namespace KFL

#endif
