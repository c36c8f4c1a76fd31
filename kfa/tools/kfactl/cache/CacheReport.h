// SPDX-License-Identifier: Apache-2.0
// What a cache file looks like inside: its faults, the map of its heap, its figures. Nothing here changes the file.
#ifndef KFACTL_CACHEREPORT_H
#define KFACTL_CACHEREPORT_H

namespace kfactl {

class Session;

// kfactl cache verify: status 1 when the file has a fault.
int verifyCache(Session& session);
// kfactl cache stats: a faulty file is a Trouble.
int printCacheStats(Session& session);

}  // namespace kfactl

#endif
