// SPDX-License-Identifier: Apache-2.0
// A network device of an environment or of the node: the base of every kind of device.
//
// It has nothing but a virtual destructor; its registry maps type tags to derived classes.
#ifndef KFLFUNCTIONALITY_KFLNETDEVICE_H
#define KFLFUNCTIONALITY_KFLNETDEVICE_H

#include <KFLMessage/KFLDerivedParsers.h>

namespace KFL {

class KFLNetDevice {
 public:
  KFLNetDevice() = default;
  KFLNetDevice(const KFLNetDevice&) = default;
  KFLNetDevice(KFLNetDevice&&) = default;
  KFLNetDevice& operator=(const KFLNetDevice&) = default;
  KFLNetDevice& operator=(KFLNetDevice&&) = default;
  virtual ~KFLNetDevice();
};

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLNetDevice)

#endif
