// SPDX-License-Identifier: Apache-2.0
// Changes to a cache that take effect together: items that are put under their keys, and keys that are removed. Of
// several changes to one key the last counts. A plain value.
#ifndef KFLCORE_KFLCACHECHANGES_H
#define KFLCORE_KFLCACHECHANGES_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

struct KFLCacheChange {
  std::string key;
  std::optional<std::string> text;  // none removes the key
};

class KFLCacheChanges {
 public:
  void put(std::string key, std::string text) { changes_.push_back({std::move(key), std::move(text)}); }
  void remove(std::string key) { changes_.push_back({std::move(key), std::nullopt}); }

  bool empty() const { return changes_.empty(); }
  const std::vector<KFLCacheChange>& all() const { return changes_; }
  // The changes that count, in the order of their keys; they are this object's.
  std::vector<const KFLCacheChange*> sorted() const;

 private:
  std::vector<KFLCacheChange> changes_;
};

}  // namespace KFL

#endif
