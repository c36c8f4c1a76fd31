// SPDX-License-Identifier: Apache-2.0
// The command `kfactl qos advise`.
#ifndef KFACTL_QOSADVISE_H
#define KFACTL_QOSADVISE_H

namespace kfactl {

class Session;

int adviseQos(Session& session);

}  // namespace kfactl

#endif
