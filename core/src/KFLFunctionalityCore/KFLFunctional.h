// SPDX-License-Identifier: Apache-2.0
// The base of every manager: a functional is one service of an agent behind an abstract interface, held by
// boost::shared_ptr and obtained through a KFLFunctionalMultiplexer.
#ifndef KFLFUNCTIONALITYCORE_KFLFUNCTIONAL_H
#define KFLFUNCTIONALITYCORE_KFLFUNCTIONAL_H

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

class KFLFunctional {
 public:
  virtual ~KFLFunctional();

 protected:
  KFLFunctional() = default;
  KFLFunctional(const KFLFunctional&) = default;
  KFLFunctional& operator=(const KFLFunctional&) = default;
};

}  // namespace KFL

#endif
