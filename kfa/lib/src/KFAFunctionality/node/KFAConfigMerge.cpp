// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAConfigMerge.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include <KFLCommon/KFLText.h>

#include "KFAConfigLines.h"

namespace KFA {

namespace {

// A line, and what it is known by: the key that it assigns and how often that was assigned before, or its text and how
// often that stood before. So a line is found again wherever it was moved to.
struct Line {
  std::string text;
  std::string id;
  std::string key;    // of an assignment
  std::string value;  // of an assignment
  bool isAlone = false;
};

using Lines = std::deque<Line>;

struct Side {
  explicit Side(const std::string& text) {
    std::map<std::string, int> counts;
    for (ConfigLines walk(text); walk.next();) {
      const ConfigLine& line = walk.line();
      Line& kept = lines.emplace_back();
      kept.text = walk.text();
      if (line.isAssignment()) {
        kept.key = line.key();
        kept.value = line.value();
        kept.isAlone = line.isAlone();
        byKey[kept.key].push_back(&kept);
      }
      const std::string name = kept.key.empty() ? "#" + kept.text : "=" + kept.key;
      kept.id = name + "#" + std::to_string(counts[name]++);
      byId.emplace(kept.id, &kept);
    }
  }
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

  const Line* find(const std::string& id) const {
    const auto found = byId.find(id);
    return found == byId.end() ? nullptr : found->second;
  }

  Lines lines;
  std::map<std::string, std::vector<const Line*>> byKey;
  std::map<std::string, const Line*> byId;
};

bool saysTheSame(const Line* a, const Line* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return a->text == b->text || (!a->key.empty() && a->isAlone && b->isAlone && a->value == b->value);
}

// What stands behind an assignment.
class Tail {
 public:
  explicit Tail(const std::string& text) : line_(text) {}
  std::string_view rest() const { return line_.isAssignment() ? line_.rest() : std::string_view(); }
  std::string_view comment() const {
    std::string_view comment = rest();
    comment.remove_prefix(std::min(comment.find('#'), comment.size()));
    while (!comment.empty() && KFL::isSpace(comment.back()))
      comment.remove_suffix(1);
    return comment;
  }

 private:
  ConfigLine line_;
};

using Keys = std::set<std::string>;

// What the lines of a key assign one after the other, but for what only says again what the line before it said.
std::vector<std::string> valuesOf(const Side& side, const std::string& key) {
  std::vector<std::string> values;
  const auto found = side.byKey.find(key);
  if (found == side.byKey.end()) return values;
  for (const Line* line : found->second)
    if (values.empty() || values.back() != line->value) values.push_back(line->value);
  return values;
}

class Merger {
 public:
  // The lines of each of the keys in `whole` are one conflict.
  Merger(const Side& base, const Side& ours, const Side& theirs, const KFAMergeLabels& labels, Keys whole)
      : base_(base), ours_(ours), theirs_(theirs), labels_(labels), whole_(std::move(whole)) {}

  KFAConfigMerge run() {
    placeAdditions();
    addBehind({});
    for (const Line& line : ours_.lines) {
      mergeLine(line);
      addBehind(line.id);
    }
    return std::move(merge_);
  }

 private:
  void put(const std::string& line) { merge_.text.append(line).append("\n"); }
  void placeAdditions();
  void addBehind(const std::string& id);
  void mergeLine(const Line& line);
  void mergeComment(const Line* base, const Line& ours, const Line* theirs);
  void conflict(const Line* ours, const Line* theirs);
  bool isOfWhole(const Line& line);
  void putAll(const Side& side, const std::string& key);

  const Side& base_;
  const Side& ours_;
  const Side& theirs_;
  const KFAMergeLabels& labels_;
  const Keys whole_;
  Keys done_;  // of these
  // What theirs has and ours has not, behind the line of ours that precedes it.
  std::map<std::string, std::vector<const Line*>> additions_;
  KFAConfigMerge merge_;
};

void Merger::placeAdditions() {
  std::string anchor;
  for (const Line& line : theirs_.lines) {
    if (ours_.find(line.id) != nullptr)
      anchor = line.id;
    else
      additions_[anchor].push_back(&line);
  }
}

void Merger::conflict(const Line* ours, const Line* theirs) {
  put("<<<<<<< " + labels_.ours);
  if (ours != nullptr) put(ours->text);
  put("=======");
  if (theirs != nullptr) put(theirs->text);
  put(">>>>>>> " + labels_.theirs);
  merge_.conflicts.push_back(ours != nullptr ? ours->key : theirs->key);
}

void Merger::putAll(const Side& side, const std::string& key) {
  const auto found = side.byKey.find(key);
  if (found == side.byKey.end()) return;
  for (const Line* line : found->second)
    put(line->text);
}

// Whether the line is one of several that are a conflict together, which stands where the first of them was.
bool Merger::isOfWhole(const Line& line) {
  if (whole_.count(line.key) == 0) return false;
  if (!done_.insert(line.key).second) return true;
  put("<<<<<<< " + labels_.ours);
  putAll(ours_, line.key);
  put("=======");
  putAll(theirs_, line.key);
  put(">>>>>>> " + labels_.theirs);
  merge_.conflicts.push_back(line.key);
  return true;
}

// Lines of theirs that ours lacks: new ones come in, those that ours took out stay out.
void Merger::addBehind(const std::string& id) {
  const auto found = additions_.find(id);
  if (found == additions_.end()) return;
  for (const Line* line : found->second) {
    if (isOfWhole(*line)) continue;
    const Line* const former = base_.find(line->id);
    if (former == nullptr)
      put(line->text);
    else if (!saysTheSame(former, line))
      conflict(nullptr, line);
  }
}

// Of lines that say the same: the comment that only one side has changed counts, and theirs stands above where both have.
void Merger::mergeComment(const Line* base, const Line& ours, const Line* theirs) {
  if (theirs == nullptr || theirs->text == ours.text) return put(ours.text);
  if (base != nullptr && base->text == ours.text) return put(theirs->text);
  const Tail former(base != nullptr ? base->text : std::string()), one(ours.text), two(theirs->text);
  if (one.comment() == two.comment() || two.comment() == former.comment()) return put(ours.text);
  if (one.comment() == former.comment())
    return put(ours.text.substr(0, ours.text.size() - one.rest().size()) + std::string(two.rest()));
  if (!two.comment().empty()) put(std::string(two.comment()));
  put(ours.text);
}

void Merger::mergeLine(const Line& ours) {
  if (isOfWhole(ours)) return;
  const Line* const base = base_.find(ours.id);
  const Line* const theirs = theirs_.find(ours.id);
  if (saysTheSame(&ours, theirs)) return mergeComment(base, ours, theirs);
  if (saysTheSame(base, theirs)) return put(ours.text);  // only ours has changed it, or made it
  if (!saysTheSame(base, &ours) && (theirs != nullptr || base != nullptr)) return conflict(&ours, theirs);
  if (theirs != nullptr) put(theirs->text);  // only theirs has changed it; without, theirs took it out
}

// The keys that a copy repeats, where the merge of their lines, each for itself, does not say what the copy says that
// changed them; or where both did, and differently.
Keys findUnclear(const Side& base, const Side& ours, const Side& theirs, const KFAConfigMerge& merge) {
  Keys repeated;
  for (const Side* side : {&base, &ours, &theirs})
    for (const auto& [key, lines] : side->byKey)
      if (lines.size() > 1) repeated.insert(key);
  if (repeated.empty()) return repeated;
  const Side merged(merge.text);
  const Keys conflicting(merge.conflicts.begin(), merge.conflicts.end());
  std::erase_if(repeated, [&](const std::string& key) {
    const auto was = valuesOf(base, key), one = valuesOf(ours, key), two = valuesOf(theirs, key);
    const bool isClear = (one == two || one == was || two == was) && conflicting.count(key) == 0;
    return isClear && valuesOf(merged, key) == (one == was ? two : one);
  });
  return repeated;
}

}  // namespace

KFAConfigMerge mergeConfig(const std::string& base, const std::string& ours, const std::string& theirs,
                           const KFAMergeLabels& labels) {
  const Side baseSide(base);
  const Side oursSide(ours);
  const Side theirsSide(theirs);
  KFAConfigMerge merge = Merger(baseSide, oursSide, theirsSide, labels, {}).run();
  Keys unclear = findUnclear(baseSide, oursSide, theirsSide, merge);
  if (unclear.empty()) return merge;
  return Merger(baseSide, oursSide, theirsSide, labels, std::move(unclear)).run();
}

}  // namespace KFA
