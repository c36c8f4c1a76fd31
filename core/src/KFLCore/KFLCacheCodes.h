// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: no exception leaves the cache, and whatever was taken is given back.
#ifndef KFLCORE_KFLCACHECODES_H
#define KFLCORE_KFLCACHECODES_H

#include <exception>

#include <KFLCommon/KFLError.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLTurn.h>

namespace KFL {

// Whether the code means that what stands in the file is at fault, and not the means to read it.
constexpr bool isFault(int code) {
  return code == kCacheUnsound || (code <= kCacheNotRemapped && code >= kCacheBadLayout);
}

// The result of the work; kCacheNoMemory when it threw.
template <class Work>
int withCode(Work work) noexcept {
  try {
    return work();
  } catch (const std::exception&) {
    try {
      setErrorMessage("there is not enough memory for this");
    } catch (const std::exception&) {
      return kCacheNoMemory;  // the code says the same
    }
    return kCacheNoMemory;
  }
}

// Ends a turn that was taken.
class KFL_SCOPED_CAPABILITY KFLTurnEnd {
 public:
  explicit KFLTurnEnd(KFLTurn& turn) KFL_REQUIRES(turn) : turn_(&turn) {}
  ~KFLTurnEnd() KFL_NO_THREAD_SAFETY_ANALYSIS {
    if (turn_ != nullptr) turn_->unlock();
  }
  KFLTurnEnd(const KFLTurnEnd&) = delete;
  KFLTurnEnd& operator=(const KFLTurnEnd&) = delete;

  // Leaves it taken.
  void keep() { turn_ = nullptr; }

 private:
  KFLTurn* turn_;
};

}  // namespace KFL

#endif
