// SPDX-License-Identifier: Apache-2.0
// The folders of the agents on a node. Any thread.
#ifndef KFLCORE_KFLFOLDERS_H
#define KFLCORE_KFLFOLDERS_H

#include <string>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

inline constexpr const char* kDefaultUploadsFolder = "/var/lib/kfa/uploads";

// Where agents keep what they share about templates: the folder that was set in this process, or else the one that
// KFA_UPLOADS_DIR names, or else the default one. Without a slash at its end. A relative one is one of the folder that was
// the working one when it was set, or first asked for.
std::string getUploadsFolder();
// An empty path undoes the setting.
void setUploadsFolder(const std::string& path);

}  // namespace KFL

#endif
