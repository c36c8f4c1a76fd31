// SPDX-License-Identifier: Apache-2.0
// A cache that processes share through one mapped file: KFLCacheFile with types of keys and values.
//
//   using Cache = KFLCacheLogic<limited_length_string<256>, KFLObjectItem<KFATemplateObject>, KFLMappedMemoryManager>;
//   Cache cache("/var/lib/kfa/uploads/template.cache");
//   if (cache.initialize(true, true) != 0) ...
//   cache.put(key, object);
//
//   Cache::Snapshot snapshot;                       // for more than one look: one lock, and nothing changes meanwhile
//   if (cache.hold(snapshot) != 0) ...
//   for (std::uint32_t i = 0; i < snapshot.size(); ++i) Cache::read(snapshot, i, object);
//
// Value has a Type, and write() and read() between that and bytes (KFLObjectItem.h). Threads, forks and codes: as
// KFLCacheFile.
#ifndef KFLCORE_KFLCACHELOGIC_H
#define KFLCORE_KFLCACHELOGIC_H

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLimitedString.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheSnapshot.h>
#include <KFLCore/KFLObjectItem.h>

namespace KFL {

template <class Key, class Value, class Manager = KFLMappedMemoryManager>
class KFLCacheLogic : public KFLCacheFile {
 public:
  static_assert(sizeof(Key) == kCacheKeySize, "a record of the file has 256 bytes for its key");
  static_assert(std::derived_from<Manager, KFLMappedMemoryManager>, "the file's heap has one format");

  using Object = typename Value::Type;
  using Snapshot = KFLCacheSnapshot;
  using Entry = std::pair<Key, Object>;

  using KFLCacheFile::KFLCacheFile;
  // Takes the lock and releases it, so that nothing which another thread does under it is cut short.
  ~KFLCacheLogic() override {
    const bool passed = passLock();
    KFL_CHECK(passed, "KFLCore", "KFLCacheLogic");
  }

  // -1, with an error text, for an object that has no message form; else as apply(), which refuses a key that does not
  // fit. A text of any length may be looked up and removed.
  int put(const Key& key, const Object& object) { return put(key.view(), object); }
  int put(std::string_view key, const Object& object) {
    KFLCacheChanges changes;
    std::string text;
    if (const int result = Value::write(object, text); result != 0) return result;
    changes.put(std::string(key), text);
    return apply(changes);
  }
  // All of them take effect together; of several under one key the last counts.
  int put(const std::vector<Entry>& entries) {
    KFLCacheChanges changes;
    std::string text;
    for (const auto& [key, object] : entries) {
      if (const int result = Value::write(object, text); result != 0) return result;
      changes.put(key.str(), text);
    }
    return apply(changes);
  }
  int remove(const Key& key) { return remove(key.view()); }
  int remove(std::string_view key) {
    KFLCacheChanges changes;
    if (Key::fits(key)) changes.remove(std::string(key));
    return apply(changes);
  }
  int remove(const std::vector<Key>& keys) {
    KFLCacheChanges changes;
    for (const Key& key : keys)
      changes.remove(key.str());
    return apply(changes);
  }

  // The object under the key in the current snapshot. 0; 1 when there is none; or a negative code.
  int find(const Key& key, Object& object) { return find(key.view(), object); }
  int find(std::string_view key, Object& object) {
    Snapshot snapshot;
    if (const int code = hold(snapshot); code != 0) return code;
    return find(snapshot, key, object);
  }
  static int find(const Snapshot& snapshot, const Key& key, Object& object) {
    return find(snapshot, key.view(), object);
  }
  static int find(const Snapshot& snapshot, std::string_view key, Object& object) {
    const std::uint32_t index = snapshot.find(key);
    return index == Snapshot::kNone ? 1 : read(snapshot, index, object);
  }
  // The object of a record. 0, or -1 with an error text when its bytes are none.
  static int read(const Snapshot& snapshot, std::uint32_t index, Object& object) {
    return Value::read(snapshot.getText(index), object);
  }
};

}  // namespace KFL

#endif
