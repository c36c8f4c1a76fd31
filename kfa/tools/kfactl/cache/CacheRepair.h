// SPDX-License-Identifier: Apache-2.0
// kfactl cache repair: a sound file gives back what nobody holds; of another, what can be read goes into a new one.
#ifndef KFACTL_CACHEREPAIR_H
#define KFACTL_CACHEREPAIR_H

namespace kfactl {

class Session;

int repairCache(Session& session);

}  // namespace kfactl

#endif
