// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLRefCounter.h>

#include <KFLCommon/KFLCheck.h>

namespace KFL {

KFLRefCounter::~KFLRefCounter() = default;

void KFLRefCounter::release() const noexcept {
  // What every former holder did with the object happens before its end.
  const long former = references_.fetch_sub(1, std::memory_order_acq_rel);
  KFL_CHECK(former > 0, "KFLCore", "KFLRefCounter");
  if (former == 1) delete this;
}

}  // namespace KFL
