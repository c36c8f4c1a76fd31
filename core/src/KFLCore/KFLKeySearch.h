// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: the search for a key among the records of a snapshot, wherever these are looked at.
#ifndef KFLCORE_KFLKEYSEARCH_H
#define KFLCORE_KFLKEYSEARCH_H

#include <cstring>
#include <string_view>

#include <KFLCore/KFLCacheFormat.h>

namespace KFL {

// A key of at most 255 characters, as records have it.
class KFLSoughtKey {
 public:
  explicit KFLSoughtKey(std::string_view key) : size_(key.size() + 1) {
    key.copy(text_, key.size());
    text_[key.size()] = '\0';
  }

  // How much of another key decides, the NUL at its end included.
  std::size_t size() const { return size_; }
  // How the other key stands to this one: less than 0 when it comes before.
  int orderOf(const char* key) const { return std::memcmp(key, text_, size_); }

 private:
  char text_[kCacheKeySize];
  std::size_t size_;
};

// The first of the records from `low` on and before `high` that does not come before the sought one; `high` when there is
// none. orderAt(record, left) says how one stands to it while so many are left; `found`: whether it is the same.
template <class OrderAt>
inline std::uint32_t firstNotBefore(std::uint32_t low, std::uint32_t high, bool& found, OrderAt orderAt) {
  found = false;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    const int order = orderAt(middle, high - low);
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle;
      found = found || order == 0;
    }
  }
  return low;
}

}  // namespace KFL

#endif
