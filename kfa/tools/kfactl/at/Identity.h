// SPDX-License-Identifier: Apache-2.0
// The certificate that another node is shown.
#ifndef KFACTL_IDENTITY_H
#define KFACTL_IDENTITY_H

#include <KFARemote/KFARemoteTypes.h>

namespace kfactl {

// From the options, else from KFA_CERTIFICATE, KFA_KEY and KFA_CA, else from the lines CERTIFICATE="..." and so on of the
// file kfa/agent in the user's folder of configurations, where a path may begin in the file's folder. Throws when one of
// the three is nowhere, or they are not in order.
KFA::KFARemoteIdentity findIdentity();

}  // namespace kfactl

#endif
