// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheReport.h"

#include <algorithm>
#include <array>
#include <set>

#include <nlohmann/json.hpp>

#include "cache/CacheImage.h"
#include "cache/CacheTemplate.h"
#include "terminal/Document.h"
#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFL::KFLBlockUse;
using KFL::KFLCacheFault;
using KFL::KFLProvedBlock;

// --- faults

constexpr std::size_t kMaxFaults = 1000;

// Whoever held the lock is gone, since this program could take it.
void addDeadHolder(const CacheImage& image, std::vector<KFLCacheFault>& faults) {
  const std::uint32_t holder = image.header().lockWord;
  if (holder == 0) return;
  faults.push_back({offsetof(KFL::KFLCacheHeader, lockWord), KFL::kCacheUnsound,
                    "process " + std::to_string(holder) +
                        " ended while it held the lock; the next to use the file puts right what it left"});
}

// Each item must read as what was put.
void addBadItems(CacheImage& image, std::vector<KFLCacheFault>& faults) {
  std::set<std::uint64_t> known;
  for (const KFLCacheFault& fault : faults)
    known.insert(fault.offset);
  if (image.proof().snapshot() == 0) return;
  const KFL::KFLSnapshotView snapshot = image.snapshot();
  for (std::uint32_t index = 0; index < snapshot.size() && faults.size() < kMaxFaults; ++index) {
    const std::uint64_t record = snapshot.getOffset() + KFL::snapshotBytes(index);
    const std::uint64_t pointer = record + offsetof(KFL::KFLCacheRecord, item);
    const std::int64_t item = KFL::targetOf(pointer, snapshot.records()[index].item);
    if (known.count(pointer) != 0 ||
        known.count(static_cast<std::uint64_t>(item) + offsetof(KFL::KFLItemHead, size)) != 0)
      continue;
    const std::string reason =
        templateFault({"record " + std::to_string(index), std::string(snapshot.getText(index))});
    if (!reason.empty())
      faults.push_back({static_cast<std::uint64_t>(item) + sizeof(KFL::KFLItemHead), KFL::kCacheUnsound,
                        reason + "; a template object is wanted"});
  }
}

std::vector<KFLCacheFault> findFaults(CacheImage& image) {
  std::vector<KFLCacheFault> faults = image.proof().faults();
  addDeadHolder(image, faults);
  addBadItems(image, faults);
  std::stable_sort(faults.begin(), faults.end(),
                   [](const KFLCacheFault& a, const KFLCacheFault& b) { return a.offset < b.offset; });
  return faults;
}

// --- the map of the heap

// Indexed by KFLBlockUse; the last is what lies behind a block at fault.
constexpr const char* kUseNames[] = {"kept", "free", "item", "snapshot", "unknown"};
constexpr char kUseLetters[] = "k.iS?";
constexpr std::size_t kUnknown = 4;

struct Stretch {
  std::uint64_t offset;
  std::uint64_t bytes;
  std::size_t use;
};

// Neighbours of one use are one stretch.
std::vector<Stretch> stretchesOf(const CacheImage& image) {
  std::vector<Stretch> stretches;
  const auto add = [&](std::uint64_t offset, std::uint64_t bytes, std::size_t use) {
    if (bytes == 0) return;
    if (stretches.empty() || stretches.back().use != use)
      stretches.push_back({offset, bytes, use});
    else
      stretches.back().bytes += bytes;
  };
  image.proof().forEachBlock([&](const KFLProvedBlock& block) {
    add(block.offset, block.bytes, static_cast<std::size_t>(block.use));
  });
  const std::uint64_t end = image.proof().provedEnd();
  if (end != 0)
    add(end, std::min<std::uint64_t>(image.header().totalSize, image.bytes().size()) - end, kUnknown);
  return stretches;
}

constexpr std::uint64_t kMapWidth = 64;
constexpr std::uint64_t kMapRows = 8;

// One letter for each equal part of the heap: the use that most of its bytes have.
std::string drawMap(const std::vector<Stretch>& stretches, std::uint64_t start, std::uint64_t cellBytes) {
  using Cell = std::array<std::uint64_t, std::size(kUseNames)>;
  std::vector<Cell> cells;
  for (const Stretch& stretch : stretches) {
    const std::uint64_t end = stretch.offset + stretch.bytes;
    for (std::uint64_t at = stretch.offset; at < end;) {
      const std::uint64_t cell = (at - start) / cellBytes;
      const std::uint64_t cellEnd = std::min(end, start + (cell + 1) * cellBytes);
      cells.resize(std::max<std::size_t>(cells.size(), cell + 1));
      cells[cell][stretch.use] += cellEnd - at;
      at = cellEnd;
    }
  }
  std::string map;
  for (const Cell& cell : cells)
    map += kUseLetters[std::max_element(cell.begin(), cell.end()) - cell.begin()];
  return map;
}

void printMap(Output& out, const std::vector<Stretch>& stretches) {
  if (stretches.empty()) return;
  const std::uint64_t start = stretches.front().offset;
  const std::uint64_t bytes = stretches.back().offset + stretches.back().bytes - start;
  const std::uint64_t cells = kMapWidth * kMapRows;
  const std::uint64_t cellBytes =
      (bytes + cells * KFL::kHeapUnit - 1) / (cells * KFL::kHeapUnit) * KFL::kHeapUnit;
  const std::string map = drawMap(stretches, start, cellBytes);
  for (std::uint64_t row = 0; row * kMapWidth < map.size(); ++row) {
    const std::string offset = std::to_string(start + row * kMapWidth * cellBytes);
    out.add(std::string(10 - std::min<std::size_t>(offset.size(), 10), ' ') + offset + "  ");
    out.addLine(map.substr(row * kMapWidth, kMapWidth));
  }
  std::string legend = std::string(12, ' ') + std::to_string(cellBytes) + " bytes a letter:";
  for (std::size_t use = 0; use < std::size(kUseNames); ++use)
    if (map.find(kUseLetters[use]) != std::string::npos)
      legend.append(" ").append(1, kUseLetters[use]).append(" ").append(kUseNames[use]).append(",");
  legend.pop_back();
  out.addLine(legend);
}

// --- verify

std::string counted(std::size_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

void printVerdict(Session& session, const CacheImage& image, const std::vector<KFLCacheFault>& faults,
                  const std::vector<Stretch>& stretches) {
  Output& out = session.out();
  for (const KFLCacheFault& fault : faults) {
    out.add(Colour::Bold, printable(image.path()) + ":" + std::to_string(fault.offset) + ": ");
    out.add(Colour::Red, "error: ").addLine(printable(fault.text) + " (" + std::to_string(fault.code) + ")");
  }
  printMap(out, stretches);
  if (faults.empty())
    out.addLine(counted(image.proof().recordCount(), "item") + ", sound");
  else if (faults.size() < kMaxFaults)
    out.addLine(counted(faults.size(), "fault"));
  else
    out.addLine("these are the first " + std::to_string(kMaxFaults) + " faults; there may be more");
}

Document describeVerdict(const CacheImage& image, const std::vector<KFLCacheFault>& faults,
                         const std::vector<Stretch>& stretches) {
  Document document = {{"file", image.path()},
                       {"sound", faults.empty()},
                       {"items", image.proof().recordCount()},
                       {"faults", Document::array()},
                       {"heap", Document::array()}};
  for (const KFLCacheFault& fault : faults)
    document["faults"].push_back({{"offset", fault.offset}, {"code", fault.code}, {"text", fault.text}});
  for (const Stretch& stretch : stretches)
    document["heap"].push_back(
        {{"offset", stretch.offset}, {"bytes", stretch.bytes}, {"use", kUseNames[stretch.use]}});
  return document;
}

// --- stats

struct Stats {
  std::array<std::uint64_t, std::size(kUseNames)> blocks{};
  std::array<std::uint64_t, std::size(kUseNames)> bytes{};
  std::uint64_t largestFree = 0;
};

Stats measure(const KFL::KFLCacheProof& proof) {
  Stats stats;
  proof.forEachBlock([&](const KFLProvedBlock& block) {
    const auto use = static_cast<std::size_t>(block.use);
    ++stats.blocks[use];
    stats.bytes[use] += block.bytes;
    if (block.use == KFLBlockUse::Free) stats.largestFree = std::max(stats.largestFree, block.bytes);
  });
  return stats;
}

// As a whole number of hundredths; 0 of 0 is 0.
std::uint64_t percentage(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0 : (part * 100 + whole / 2) / whole;
}

Document describeStats(CacheImage& image) {
  const Stats stats = measure(image.proof());
  const auto of = [](const auto& values, KFLBlockUse use) { return values[static_cast<std::size_t>(use)]; };
  const KFL::KFLCacheHeader& header = image.header();
  const KFL::KFLSnapshotHead& head = image.snapshot().head();
  const std::uint64_t free = of(stats.bytes, KFLBlockUse::Free);
  return {
      {"file_bytes", image.fileSize()},
      {"heap_bytes", header.totalSize - header.heapStart},
      {"used_bytes", header.bytesInUse - header.heapStart},
      {"free_bytes", free},
      {"fill_percent", percentage(header.bytesInUse - header.heapStart, header.totalSize - header.heapStart)},
      {"free_blocks", of(stats.blocks, KFLBlockUse::Free)},
      {"largest_free_bytes", stats.largestFree},
      {"fragmentation_percent", percentage(free - stats.largestFree, free)},
      {"items", head.count},
      {"item_bytes", of(stats.bytes, KFLBlockUse::Item)},
      {"snapshot_records", head.capacity},
      {"snapshot_bytes", of(stats.bytes, KFLBlockUse::Snapshot)},
      {"snapshot_holders", head.references - 1},
      {"kept_blocks", of(stats.blocks, KFLBlockUse::Other)},
      {"kept_bytes", of(stats.bytes, KFLBlockUse::Other)}};
}

}  // namespace

int verifyCache(Session& session) {
  CacheImage image(session.argument(0), {KFL::KFLProofScope::Whole, kMaxFaults});
  const std::vector<KFLCacheFault> faults = findFaults(image);
  const std::vector<Stretch> stretches = stretchesOf(image);
  if (session.format() == Format::Table)
    printVerdict(session, image, faults, stretches);
  else
    printDocument(session, describeVerdict(image, faults, stretches), "cache");
  return faults.empty() ? kFine : kFinding;
}

int printCacheStats(Session& session) {
  CacheImage image(session.argument(0), {});
  image.mustBeSound();
  const Document document = describeStats(image);
  if (session.format() != Format::Table) {
    printDocument(session, document, "stats");
    return kFine;
  }
  Table table({"FIGURE", "VALUE"});
  for (const auto& [name, value] : document.items())
    table.add({name, value.dump()});
  table.print(session.out());
  return kFine;
}

}  // namespace kfactl
