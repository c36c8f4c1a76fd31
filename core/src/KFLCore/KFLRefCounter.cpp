// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLRefCounter.h>

#include <KFLCommon/KFLCheck.h>
#include <KFLCore/KFLFork.h>

namespace KFL {

KFLRefCounter::~KFLRefCounter() = default;

void KFLRefCounter::release() const noexcept {
  // What every former holder did with the object happens before its end.
  const long former = references_.fetch_sub(1, std::memory_order_acq_rel);
  KFL_CHECK(former > 0, "KFLCore", "KFLRefCounter");
  if (former == 1) delete this;
}

KFLForkableRefCounter::KFLForkableRefCounter() : owner_(getForkGeneration()) {}

bool KFLForkableRefCounter::isForked() const {
  return owner_.load(std::memory_order_relaxed) != getForkGeneration();
}

void KFLForkableRefCounter::belongHere() {
  owner_.store(getForkGeneration(), std::memory_order_relaxed);
}

}  // namespace KFL
