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
  std::map<std::string, const Line*> byId;
};

bool saysTheSame(const Line* a, const Line* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return a->text == b->text || (!a->key.empty() && a->isAlone && b->isAlone && a->value == b->value);
}

class Merger {
 public:
  Merger(const Side& base, const Side& ours, const Side& theirs, const KFAMergeLabels& labels)
      : base_(base), ours_(ours), theirs_(theirs), labels_(labels) {}

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
  void conflict(const Line* ours, const Line* theirs);

  const Side& base_;
  const Side& ours_;
  const Side& theirs_;
  const KFAMergeLabels& labels_;
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

// Lines of theirs that ours lacks: new ones come in, those that ours took out stay out.
void Merger::addBehind(const std::string& id) {
  const auto found = additions_.find(id);
  if (found == additions_.end()) return;
  for (const Line* line : found->second) {
    const Line* const former = base_.find(line->id);
    if (former == nullptr)
      put(line->text);
    else if (!saysTheSame(former, line))
      conflict(nullptr, line);
  }
}

void Merger::mergeLine(const Line& ours) {
  const Line* const base = base_.find(ours.id);
  const Line* const theirs = theirs_.find(ours.id);
  if (saysTheSame(&ours, theirs)) {
    // A comment behind the value may be theirs alone.
    const bool onlyTheirs = theirs != nullptr && base != nullptr && base->text == ours.text;
    const bool bothAdded = theirs != nullptr && !onlyTheirs && theirs->text != ours.text &&
                           (base == nullptr || base->text != theirs->text);
    if (bothAdded) {
      const ConfigLine line(theirs->text);
      std::string_view comment = line.rest();
      comment.remove_prefix(std::min(comment.find('#'), comment.size()));
      if (!comment.empty() && ours.text.find(comment) == std::string::npos) put(std::string(comment));
    }
    return put(onlyTheirs ? theirs->text : ours.text);
  }
  if (saysTheSame(base, theirs)) return put(ours.text);  // only ours has changed it, or made it
  if (!saysTheSame(base, &ours) && (theirs != nullptr || base != nullptr)) return conflict(&ours, theirs);
  if (theirs != nullptr) put(theirs->text);  // only theirs has changed it; without, theirs took it out
}

}  // namespace

KFAConfigMerge mergeConfig(const std::string& base, const std::string& ours, const std::string& theirs,
                           const KFAMergeLabels& labels) {
  const Side baseSide(base);
  const Side oursSide(ours);
  const Side theirsSide(theirs);
  return Merger(baseSide, oursSide, theirsSide, labels).run();
}

}  // namespace KFA
