// SPDX-License-Identifier: Apache-2.0
// Cache files of any bytes: the proof ends and tells blocks apart without gaps; what it calls sound can be read, and when
// such a file is opened and changed it is sound afterwards; every other file is refused, by the opening or by the first
// change, and marked invalid by that. The input's bytes also make a sound file, and damage words of it. Of each the proof
// says what a plain reading of the format says.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <boost/intrusive_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLLog.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLCacheSnapshot.h>

#include "Fuzzing.h"

namespace {

using Bytes = std::vector<std::byte>;
using kfl_fuzz::Choices;
using kfl_fuzz::require;

// --- The format, read plainly -----------------------------------------------------------------------------------------

struct Fault {};

void mustBe(bool holds) {
  if (!holds) throw Fault();
}

// Reads a file by its description: every step must hold.
class Reading {
 public:
  Reading(std::span<const std::byte> bytes, bool isWhole) : bytes_(bytes), isWhole_(isWhole) {}

  // Whether every block is free or reached, and every count 1: of a whole file that is sound.
  bool isTidy() { return isSound() && isWhole_ && !isShared_ && used_.size() == blocks_.size(); }
  bool isSound() {
    try {
      readHeader();
      readBlocks();
      if (isWhole_) readFreeList();
      readSnapshot();
      return true;
    } catch (const Fault&) {
      return false;
    }
  }

 private:
  std::int64_t word(std::int64_t at) const {
    mustBe(at >= 0 && at + 4 <= static_cast<std::int64_t>(bytes_.size()));
    std::int64_t value = 0;
    for (int i = 3; i >= 0; --i)
      value = 256 * value + static_cast<std::int64_t>(bytes_[static_cast<std::size_t>(at + i)]);
    return value;
  }
  // What the self-relative pointer means.
  std::int64_t target(std::int64_t at) const {
    const std::int64_t pointer = word(at);
    mustBe(pointer != 1);
    return at + pointer - (pointer >= 0x80000000LL ? 0x100000000LL : 0);
  }

  void readHeader() const {
    const std::map<int, std::int64_t> words = {{4, 1},    {16, 56},     {28, 0xCACEFE03}, {32, 56},
                                               {36, 256}, {40, 0xFF01}, {44, 12},         {52, 1}};
    for (const auto& [at, value] : words)
      mustBe(word(at) == value);
  }
  void readBlocks() {
    const std::int64_t end = word(12);
    mustBe(end >= 56 && end % 8 == 0 && end <= 0x7FFFFFF8 && end <= static_cast<std::int64_t>(bytes_.size()));
    for (std::int64_t at = 56; at < end; at += blocks_[at]) {
      blocks_[at] = 8 * word(at + 4);
      mustBe(blocks_[at] > 0 && at + blocks_[at] <= end);
    }
  }
  void readFreeList() {
    std::int64_t free = 0;
    for (std::int64_t at = 0, next = 0; (next = target(at)) != 0; at = next) {
      mustBe(next > at && blocks_.count(next) != 0);
      used_.insert(next);
      free += blocks_[next];
    }
    mustBe(word(8) == word(12) - free);
  }
  // The data of a block that nothing else uses, and that has room for so much.
  std::int64_t take(std::int64_t pointerAt, std::int64_t least) {
    const std::int64_t data = target(pointerAt);
    mustBe(blocks_.count(data - 8) != 0 && used_.insert(data - 8).second);
    mustBe(blocks_[data - 8] - 8 >= least);
    return data;
  }
  void mustBeCounted(std::int64_t at) {
    isShared_ = isShared_ || word(at) != 1;
    mustBe(!isWhole_ || (word(at) >= 1 && word(at) < 0x80000000LL));
  }
  void readSnapshot() {
    const std::int64_t data = take(20, 12);
    const std::int64_t count = word(data + 4);
    mustBeCounted(data);
    mustBe(count <= word(data + 8) && 12 + 260 * word(data + 8) <= blocks_[data - 8] - 8);
    std::string before;
    for (std::int64_t at = data + 12; at < data + 12 + 260 * count; at += 260) {
      const std::string key(reinterpret_cast<const char*>(bytes_.data()) + at, 256);
      mustBe(key.back() == '\0');
      const std::string name = key.substr(0, key.find('\0'));
      mustBe(at == data + 12 || before < name);
      before = name;
      const std::int64_t item = take(at + 256, 8);
      mustBe(8 + word(item + 4) <= blocks_[item - 8] - 8);
      mustBeCounted(item);
    }
  }

  std::span<const std::byte> bytes_;
  const bool isWhole_;
  std::map<std::int64_t, std::int64_t> blocks_;  // their bytes, by where they begin
  std::set<std::int64_t> used_;
  bool isShared_ = false;
};

// --- A file of its own ------------------------------------------------------------------------------------------------

// Writes a sound file by the format's description, and damages words of it.
class Image {
 public:
  explicit Image(Choices& choices) : choices_(choices), bytes_(56) {
    std::vector<std::string> keys;
    for (std::size_t more = choices_.below(5); more > 0; --more)
      keys.push_back(choices_.wordOf("|a|b|ab|abc|\xff|z") +
                     (choices_.oneIn(8) ? std::string(252, 'k') : ""));
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    keys_ = keys;
    items_.resize(keys_.size());
    writeBlocks();
    writeHeader();
    bytes_.resize(bytes_.size() + 8 * choices_.below(3));
  }

  std::span<const std::byte> bytes() const { return std::as_bytes(std::span(bytes_)); }
  void damage() {
    if (keys_.size() > 1 && choices_.oneIn(4)) return repeatKey();
    const std::size_t at = words_[choices_.below(words_.size())];
    const std::uint32_t values[] = {word(at) + 8,
                                    word(at) - 8,
                                    word(at) + 1,
                                    word(at) - 1,
                                    0,
                                    1,
                                    0xFFFFFFFF,
                                    0x7FFFFFF8,
                                    static_cast<std::uint32_t>(bytes_.size()),
                                    word(words_[choices_.below(words_.size())]),
                                    pointerTo(at)};
    put(at, values[choices_.below(std::size(values))]);
    if (choices_.oneIn(4)) put(at & ~3U, static_cast<std::uint32_t>(choices_.below(65536)));
  }

 private:
  // What means the data of some block from there.
  std::uint32_t pointerTo(std::size_t at) {
    std::vector<std::size_t> data = items_;
    data.push_back(snapshot_);
    for (const std::size_t block : free_)
      data.push_back(block + 8);
    return static_cast<std::uint32_t>(data[choices_.below(data.size())] - at);
  }
  // A key comes to stand beside itself.
  void repeatKey() {
    const std::size_t record = snapshot_ + 12 + 260 * choices_.below(keys_.size() - 1);
    std::copy_n(&bytes_[record], 256, &bytes_[record + 260]);
  }
  std::uint32_t word(std::size_t at) const {
    std::uint32_t value = 0;
    std::memcpy(&value, &bytes_[at], 4);
    return value;
  }
  void put(std::size_t at, std::size_t value) {
    const auto stored = static_cast<std::uint32_t>(value);
    std::memcpy(&bytes_[at], &stored, 4);
  }
  void mark(std::size_t at, std::size_t value) {
    put(at, value);
    words_.push_back(at);
  }
  // A block with room for so much, and perhaps a little more: where its data begin.
  std::size_t addBlock(std::size_t room) {
    const std::size_t at = bytes_.size();
    const std::size_t units = (room + 15) / 8 + choices_.below(2);
    bytes_.resize(at + 8 * units);
    mark(at, 1);
    mark(at + 4, units);
    return at + 8;
  }
  void addOther() {
    const std::size_t data = addBlock(choices_.below(64));
    if (choices_.oneIn(2)) free_.push_back(data - 8);
  }
  void addItem(std::size_t index) {
    const std::string text(choices_.below(40), 'x');
    items_[index] = addBlock(8 + text.size());
    mark(items_[index], 1 + choices_.below(2));
    mark(items_[index] + 4, text.size());
  }
  void addSnapshot() {
    const std::size_t capacity = keys_.size() + choices_.below(3);
    snapshot_ = addBlock(12 + 260 * capacity);
    mark(snapshot_, 1);
    mark(snapshot_ + 4, keys_.size());
    mark(snapshot_ + 8, capacity);
  }
  // In any order, with free and lost ones between them.
  void writeBlocks() {
    const std::size_t place = choices_.below(keys_.size() + 1);
    for (std::size_t i = 0; i <= keys_.size(); ++i) {
      while (choices_.oneIn(3))
        addOther();
      if (i == place) addSnapshot();
      if (i < keys_.size()) addItem(i);
    }
    for (std::size_t i = 0; i < keys_.size(); ++i) {
      const std::size_t record = snapshot_ + 12 + 260 * i;
      keys_[i].copy(reinterpret_cast<char*>(&bytes_[record]), 255);
      mark(record + 256, items_[i] - (record + 256));
      words_.push_back(record + choices_.below(64) * 4);
    }
  }
  void writeHeader() {
    std::size_t at = 0, inUse = bytes_.size();
    for (const std::size_t next : free_) {
      put(at, next - at);
      at = next;
      inUse -= std::size_t{8} * word(next + 4);
    }
    put(at, 0 - at);
    const std::pair<std::size_t, std::size_t> words[] = {{4, 1},
                                                         {8, inUse},
                                                         {12, bytes_.size()},
                                                         {16, 56},
                                                         {20, snapshot_ - 20},
                                                         {24, 0},
                                                         {28, 0xCACEFE03},
                                                         {32, 56},
                                                         {36, 256},
                                                         {40, 0xFF01},
                                                         {44, 12},
                                                         {48, 1},
                                                         {52, 1}};
    words_.push_back(0);
    for (const auto& [offset, value] : words)
      mark(offset, value);
  }

  Choices& choices_;
  std::vector<unsigned char> bytes_;
  std::vector<std::string> keys_;
  std::vector<std::size_t> items_, free_, words_;
  std::size_t snapshot_ = 0;
};

// --- The laws ---------------------------------------------------------------------------------------------------------

void requireBlocks(const KFL::KFLCacheProof& proof) {
  std::uint64_t end = KFL::kCacheHeaderSize;
  proof.forEachBlock([&](const KFL::KFLProvedBlock& block) {
    require(block.offset == end && block.bytes != 0, "blocks follow one another");
    end += block.bytes;
  });
  require(proof.provedEnd() == 0 || end == proof.provedEnd(), "the last block ends where the heap does");
}

void requireReadable(Bytes bytes, const KFL::KFLCacheProof& proof) {
  const KFL::KFLSnapshotView snapshot(bytes, static_cast<std::int64_t>(proof.snapshot()));
  require(snapshot.isSound() && snapshot.size() == proof.recordCount(), "a proved snapshot is sound");
  for (std::uint32_t i = 0; i < snapshot.size(); ++i) {
    require(snapshot.getItem(i) != nullptr, "a proved item lies within the file");
    bool found = false;
    require(snapshot.lowerBound(snapshot.getKey(i), found) == i && found, "a proved key is found");
  }
}

// The file in which the bytes are looked at as a process would.
const std::string& filePath() {
  static const kfl_fuzz::Folder folder;
  static const std::string path = folder.path() / "cache";
  return path;
}

void writeFile(std::span<const std::byte> bytes) {
  ::unlink(filePath().c_str());
  const int file = ::open(filePath().c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  require(::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "writing");
  ::close(file);
}

Bytes readFile() {
  const int file = ::open(filePath().c_str(), O_RDONLY | O_CLOEXEC);
  Bytes bytes(std::filesystem::file_size(filePath()));
  require(::read(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "reading");
  ::close(file);
  return bytes;
}

void requireSoundFile() {
  const Bytes bytes = readFile();
  KFL::KFLCacheProof proof;
  const int code = proof.check(bytes);
  require(code == 0, "a file that was changed is sound", code == 0 ? "" : proof.faults().front().text);
}

void useFile(std::span<const std::byte> bytes) {
  writeFile(bytes);
  const boost::intrusive_ptr<KFL::KFLCacheFile> cache(new KFL::KFLCacheFile(filePath()));
  if (cache->initialize(true, false) != 0) return;
  {
    KFL::KFLCacheSnapshot snapshot;
    require(cache->hold(snapshot) == 0, "a file that opens has a snapshot");
    KFL::KFLCacheChanges changes;
    if (snapshot.size() > 0) changes.remove(std::string(snapshot.getKey(0)));
    changes.put("new", std::string(100, 'x'));
    if (cache->apply(changes) != 0) {
      KFL::KFLCacheHeader header{};
      require(KFL::readAt(std::span<const std::byte>(readFile()), 0, header) && header.valid == 0,
              "a file that opens can be changed, or is marked invalid");
      return;
    }
    for (std::uint32_t i = 0; i < snapshot.size(); ++i)
      require(snapshot.find(snapshot.getKey(i)) == i, "a held snapshot stays as it was");
  }
  requireSoundFile();
}

void check(std::span<const std::byte> bytes) {
  KFL::KFLCacheProof whole;
  const bool isSound = whole.check(bytes) == 0;
  requireBlocks(whole);
  KFL::KFLCacheProof kept;
  const bool isKept = kept.check(bytes, {KFL::KFLProofScope::Kept, 100}) == 0;
  requireBlocks(kept);
  require(isKept || !isSound, "the parts of a sound file are sound");
  if (isKept) requireReadable({bytes.begin(), bytes.end()}, kept);
  require(isSound == Reading(bytes, true).isSound() && isKept == Reading(bytes, false).isSound(),
          "the proof says what the format does", isSound || isKept ? "sound" : whole.faults().front().text);
  require(whole.isTidy() == Reading(bytes, true).isTidy(),
          "the proof says whether anything is to be given back");
  useFile(bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KFL::setLogLevel(KFL::kLogFatal);
  check(std::as_bytes(std::span(data, size)));
  Choices choices(kfl_fuzz::viewOf(data, size));
  Image image(choices);
  require(Reading(image.bytes(), true).isSound(), "a file that is written by the format is sound");
  check(image.bytes());
  if (choices.isAtEnd()) return 0;
  for (std::size_t more = choices.below(2) + 1; more > 0; --more)
    image.damage();
  check(image.bytes());
  return 0;
}
