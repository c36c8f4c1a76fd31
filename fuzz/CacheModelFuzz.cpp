// SPDX-License-Identifier: Apache-2.0
// A cache under a sequence of operations by two users against a map: each reads what the map says, a snapshot that is
// held stays as it was, a change that is refused changes nothing, nobody finds anything at fault, and after each step the
// file proves sound.
#include <array>
#include <map>
#include <span>
#include <string>
#include <utility>

#include <boost/intrusive_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLCacheSnapshot.h>

#include "Fuzzing.h"

namespace {

using kfl_fuzz::Choices;
using kfl_fuzz::require;
using Contents = std::map<std::string, std::string>;

constexpr std::size_t kLongestKey = 255;

Contents contentsOf(const KFL::KFLCacheSnapshot& snapshot) {
  Contents all;
  for (std::uint32_t i = 0; i < snapshot.size(); ++i) {
    all.emplace(snapshot.getKey(i), snapshot.getText(i));
    require(snapshot.find(snapshot.getKey(i)) == i, "a key is found where it stands");
  }
  require(all.size() == snapshot.size() && snapshot.find("no such key") == KFL::KFLCacheSnapshot::kNone,
          "each key stands once, and no other is found");
  return all;
}

class Run {
 public:
  explicit Run(Choices choices) : choices_(choices) {
    folder().fill({});
    for (User& user : users_)
      user.open(path_);
  }

  void go() {
    for (int steps = 0; steps < 64 && !choices_.isAtEnd(); ++steps) {
      KFL::setErrorMessage("%s", "");
      step(users_[choices_.below(users_.size())]);
      require(KFL::getErrorMessage().empty(), "nothing is found at fault", KFL::getErrorMessage());
      requireSound();
    }
    for (User& user : users_)
      read(user);
  }

 private:
  struct User {
    boost::intrusive_ptr<KFL::KFLCacheFile> cache;
    KFL::KFLCacheSnapshot snapshot;
    Contents seen;  // what the snapshot holds

    void open(const std::string& path) {
      snapshot.release();
      cache.reset(new KFL::KFLCacheFile(path, {8192, 16, 0, 1U << 18U}));
      require(cache->initialize(true, false) == 0, "a sound file opens");
    }
  };

  static const kfl_fuzz::Folder& folder() {
    static const kfl_fuzz::Folder made;
    return made;
  }

  std::string key() {
    switch (choices_.below(8)) {
      case 0:
        return "";
      case 1:
        return std::string(kLongestKey, 'k');
      case 2:
        return std::string(choices_.below(kLongestKey + 2), 'm');
      default:
        return std::string(1 + choices_.below(2), static_cast<char>('a' + choices_.below(6)));
    }
  }
  std::string text() {
    const std::size_t size = choices_.oneIn(16) ? choices_.below(1U << 16U) : choices_.below(256);
    return std::string(size, static_cast<char>('A' + choices_.below(26)));
  }

  void change(User& user) {
    KFL::KFLCacheChanges changes;
    Contents after = model_;
    bool isKeyTooLong = false;
    for (std::size_t more = choices_.below(6) + 1; more > 0; --more) {
      const std::string name = key();
      isKeyTooLong |= name.size() > kLongestKey;
      if (choices_.oneIn(3)) {
        changes.remove(name);
        after.erase(name);
      } else {
        const std::string value = text();
        changes.put(name, value);
        after[name] = value;
      }
    }
    const int result = user.cache->apply(changes);
    if (isKeyTooLong) {
      require(result == KFL::kCacheBadKey || result == KFL::kCacheFull, "a key that is too long is refused");
    } else {
      require(result == 0 || result == KFL::kCacheFull, "a change is made, or there is no room");
      if (result == 0) model_ = std::move(after);
    }
    if (result != 0) KFL::setErrorMessage("%s", "");
  }

  void read(User& user) {
    require(contentsOf(user.snapshot) == user.seen, "a snapshot that is held stays as it was");
    require(user.cache->hold(user.snapshot) == 0, "the current snapshot is held");
    user.seen = contentsOf(user.snapshot);
    require(user.seen == model_, "a snapshot holds what the model does");
  }

  void step(User& user) {
    bool alone = false;
    switch (choices_.below(8)) {
      case 0:
        read(user);
        break;
      case 1:
        require(contentsOf(user.snapshot) == user.seen, "a snapshot that is held stays as it was");
        user.snapshot.release();
        user.seen.clear();
        break;
      case 2:
        user.seen.clear();
        user.open(path_);
        break;
      case 3:
        require(user.cache->repair(alone) == 0, "a sound file is repaired");
        break;
      default:
        change(user);
    }
  }

  void requireSound() const {
    const std::string bytes = kfl_fuzz::contentOf(path_);
    KFL::KFLCacheProof proof;
    const int code = proof.check(std::as_bytes(std::span(bytes)));
    require(code == 0, "the file is sound", code == 0 ? "" : proof.faults().front().text);
    require(proof.recordCount() == model_.size(), "the file has as many records as the model");
    requireFreeBlocks(proof);
  }
  // Free space is in one piece where it can be, and no piece of it is too small for anything.
  static void requireFreeBlocks(const KFL::KFLCacheProof& proof) {
    bool wasFree = false;
    proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
      const bool isFree = block.use == KFL::KFLBlockUse::Free;
      require(!isFree || (!wasFree && block.bytes > KFL::kHeapUnit), "free blocks lie apart, and have room");
      wasFree = isFree;
    });
  }

  Choices choices_;
  const std::string path_ = folder().path() / "cache";
  Contents model_;
  std::array<User, 2> users_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KFL::setLogLevel(KFL::kLogFatal);
  Run(Choices(kfl_fuzz::viewOf(data, size))).go();
  return 0;
}
