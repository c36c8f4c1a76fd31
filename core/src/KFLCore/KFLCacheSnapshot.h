// SPDX-License-Identifier: Apache-2.0
// A snapshot of a cache that is held: it does not change, and may be read without a lock, until it is released.
//
// Movable; released by its destructor. It owns what it needs, so the cache that it was taken from may be opened anew or be
// gone. Any number of threads may read one at the same time. In a forked child, a snapshot that the parent held is empty.
#ifndef KFLCORE_KFLCACHESNAPSHOT_H
#define KFLCORE_KFLCACHESNAPSHOT_H

#include <cstdint>
#include <string_view>

#include <KFLCore/KFLCacheFile.h>

namespace KFL {

class KFLCacheSnapshot {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  KFLCacheSnapshot();
  KFLCacheSnapshot(KFLCacheSnapshot&& other) noexcept;
  KFLCacheSnapshot& operator=(KFLCacheSnapshot&& other) noexcept;
  ~KFLCacheSnapshot();

  void release();

  // The records in the order of their keys, by their numbers from 0 on.
  std::uint32_t size() const { return isHere() ? view_.size() : 0; }
  std::string_view getKey(std::uint32_t index) const {
    return index < size() ? view_.getKey(index) : std::string_view();
  }
  // The item's bytes, in the mapping; none when there is no such record, or the file was damaged meanwhile.
  std::string_view getText(std::uint32_t index) const {
    return index < size() ? view_.getText(index) : std::string_view();
  }
  // The number of the record with this key; kNone when there is none.
  std::uint32_t find(std::string_view key) const;

 private:
  friend class KFLCacheFile;

  bool isHere() const { return view_.isSound() && generation_ == getForkGeneration(); }
  void use(const boost::intrusive_ptr<KFLCacheHold>& hold);

  boost::intrusive_ptr<KFLCacheHold> hold_;
  KFLSnapshotView view_;
  std::uint64_t generation_ = 0;
};

}  // namespace KFL

#endif
