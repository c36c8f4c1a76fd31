// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLMessageCheck.h>

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include "KFLMessageElements.h"
#include "KFLMessageFaults.h"

namespace KFL {

namespace {

// Texts that say the same: numbers and truth values in another spelling.
bool isSameValue(std::string_view a, std::string_view b) {
  if (a == b) return true;
  long long first = 0;
  long long second = 0;
  if (parseInteger(a, first) == 0 && parseInteger(b, second) == 0) return first == second;
  const auto isTrue = [](std::string_view text) { return text == "1" || text == "true"; };
  const auto isFalse = [](std::string_view text) { return text == "0" || text == "false"; };
  return (isTrue(a) && isTrue(b)) || (isFalse(a) && isFalse(b));
}

// As it stands between the tags of a record that has no elements left.
bool isBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// What became of an element, by its number; what is not kept at all is marked.
struct Loss {
  std::string text;
  bool isWhole = false;
};
using Losses = std::multimap<std::size_t, Loss>;

// Compares what was read with what was written. Children are held against children of the same name: first those that
// are equal, wherever they stand, then those that share what no other has, such as the key of an item, then the others in
// their order.
class Comparison {
 public:
  Comparison(const KFLMessageElements& source, const KFLMessageElements& written)
      : source_(source), written_(written) {}

  Losses run() {
    pairs_.emplace_back(0, 0);
    while (!pairs_.empty()) {
      const auto [a, b] = pairs_.back();
      pairs_.pop_back();
      compareValues(a, b);
      pairChildren(a, b);
    }
    return std::move(lost_);
  }

  // The number of elements at fault; one that is not kept counts with all below it. Before run() it is 0.
  std::size_t getLoss() const { return count_; }

 private:
  void add(std::size_t element, std::string text, std::size_t below = 0, bool isWhole = false) {
    lost_.emplace(element, Loss{std::move(text), isWhole});
    count_ += 1 + below;
  }

  void compareValues(std::size_t a, std::size_t b) {
    const KFLMessageElement& from = source_[a];
    const KFLMessageElement& to = written_[b];
    if (!isSameValue(from.text, to.text) && !(to.text.empty() && isBlank(from.text)))
      add(a, "'" + std::string(from.text) + "' is written as '" + std::string(to.text) + "'");
    if (from.attributes != to.attributes) add(a, "not all attributes are kept:" + from.attributes);
    if (!from.type.empty() && from.type != to.type)
      add(a, "type " + std::string(from.type) + " is " +
                 (to.type.empty() ? "not kept" : "written as " + std::string(to.type)));
  }

  void pairChildren(std::size_t a, std::size_t b) {
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> equal;
    for (std::size_t child = written_[b].firstChild; child != kNoElement; child = written_[child].nextSibling)
      equal[written_[child].hash].push_back(child);
    std::vector<std::size_t> unequal;
    for (std::size_t child = source_[a].firstChild; child != kNoElement; child = source_[child].nextSibling) {
      const auto same = equal.find(source_[child].hash);
      if (same != equal.end() && !same->second.empty())
        same->second.pop_back();
      else
        unequal.push_back(child);
    }
    if (!unequal.empty()) pairByName(unequal, equal);
  }

  void pairByName(const std::vector<std::size_t>& unequal,
                  const std::unordered_map<std::uint64_t, std::vector<std::size_t>>& equal) {
    std::vector<std::size_t> rest;
    for (const auto& [hash, children] : equal)
      rest.insert(rest.end(), children.begin(), children.end());
    std::sort(rest.rbegin(), rest.rend());
    std::vector<std::size_t> left;
    std::unordered_set<std::size_t> taken;
    const Holders holders = holdersOf(rest);
    for (const std::size_t child : unequal) {
      const std::size_t twin = findTwin(child, holders, taken);
      if (twin == kNoElement)
        left.push_back(child);
      else
        pairs_.emplace_back(child, twin);
    }
    std::erase_if(rest, [&](std::size_t child) { return taken.contains(child); });
    pairInOrder(left, rest);
  }

  // Which of the elements has a child with that hash; kNoElement where several have.
  using Holders = std::unordered_map<std::uint64_t, std::size_t>;

  Holders holdersOf(const std::vector<std::size_t>& elements) const {
    Holders holders;
    for (const std::size_t element : elements) {
      for (std::size_t child = written_[element].firstChild; child != kNoElement;
           child = written_[child].nextSibling) {
        const auto [holder, isNew] = holders.emplace(written_[child].hash, element);
        if (!isNew && holder->second != element) holder->second = kNoElement;
      }
    }
    return holders;
  }

  // The written element that shares the most with it that no other has, marked as taken; kNoElement when none does.
  std::size_t findTwin(std::size_t element, const Holders& holders,
                       std::unordered_set<std::size_t>& taken) const {
    std::map<std::size_t, std::size_t> shared;
    std::size_t twin = kNoElement, most = 0;
    for (std::size_t child = source_[element].firstChild; child != kNoElement;
         child = source_[child].nextSibling) {
      const auto holder = holders.find(source_[child].hash);
      if (holder == holders.end() || holder->second == kNoElement || taken.contains(holder->second) ||
          written_[holder->second].name != source_[element].name)
        continue;
      const std::size_t count = ++shared[holder->second];
      if (count <= most) continue;
      most = count;
      twin = holder->second;
    }
    if (twin != kNoElement) taken.insert(twin);
    return twin;
  }

  void pairInOrder(const std::vector<std::size_t>& children, const std::vector<std::size_t>& written) {
    std::unordered_map<std::string_view, std::vector<std::size_t>> byName;
    for (const std::size_t child : written)
      byName[written_[child].name].push_back(child);
    for (const std::size_t child : children) {
      std::vector<std::size_t>& candidates = byName[source_[child].name];
      if (candidates.empty()) {
        add(child, "not kept", source_.countBelow(child), true);
      } else {
        pairs_.emplace_back(child, candidates.back());
        candidates.pop_back();
      }
    }
  }

  const KFLMessageElements& source_;
  const KFLMessageElements& written_;
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
  Losses lost_;
  std::size_t count_ = 0;
};

// Says why elements were lost, and finds those that are kept though they cannot be read or are not known: a
// configuration, wherever it stands, keeps them.
class Reasons {
 public:
  Reasons(const KFLMessageElements& source, const KFLRecordType& record, Losses losses)
      : source_(source), losses_(std::move(losses)), faults_(source, record.elements(), KFLFaultScope::Any) {}

  KFLMessageFindings find() {
    for (KFLMessageFinding& fault : faults_.find())
      faultOf_.emplace(fault.element, std::move(fault.text));
    noteStops();
    for (auto& [index, loss] : losses_) {
      const auto fault = faultOf_.find(index);
      if (fault != faultOf_.end())
        loss.text += ": " + fault->second;
      else if (loss.isWhole)
        loss.text += ": " + reasonFor(index);
    }
    for (const auto& [index, text] : faultOf_)
      if (!losses_.contains(index)) losses_.emplace(index, Loss{text});
    addUnknown();
    for (KFLMessageFinding& ignored : faults_.findIgnored())
      if (!isInsideLoss(ignored.element)) losses_.emplace(ignored.element, Loss{std::move(ignored.text)});
    KFLMessageFindings findings;
    for (auto& [index, loss] : losses_)
      findings.push_back({source_.path(index), index, std::move(loss.text)});
    return findings;
  }

 private:
  // The lists of each element that end at an item which cannot be read, and the equal items of each.
  void noteStops() {
    for (const auto& [index, text] : faultOf_) {
      std::size_t item = index;
      while (item != 0 && !faults_.isItem(item))
        item = source_[item].parent;
      if (item != 0) stopped_.emplace(source_[item].parent, source_[item].name);
    }
  }

  // What is not known within what is lost or not known itself has its reason there.
  void addUnknown() {
    for (std::size_t i = 1; i < source_.size(); ++i)
      if (!faults_.hasPlace(i) && !isInsideLoss(i)) losses_.emplace(i, Loss{"not known"});
  }
  bool isInsideLoss(std::size_t index) const {
    while (index != kNoElement && !losses_.contains(index))
      index = source_[index].parent;
    return index != kNoElement;
  }

  // Why an element that could be read is not kept.
  std::string reasonFor(std::size_t index) {
    const KFLMessageElement& element = source_[index];
    const std::string name(element.name);
    if (!faults_.hasPlace(index)) return faults_.ownerOf(index) + " has no such element";
    if (stopped_.contains({element.parent, element.name}))
      return "reading ends at an element " + name + " that cannot be read";
    const auto below = faultOf_.upper_bound(index);
    if (below != faultOf_.end() && below->first <= index + source_.countBelow(index))
      return "something in it cannot be read";
    if (isRepeated(index)) return "an equal one stands before it";
    if (element.position > 1 && !faults_.isItem(index)) return "only the first " + name + " is read";
    if (element.text.empty() && element.firstChild == kNoElement) return "it is empty";
    if (element.position > 1)
      return faults_.ownerOf(index) + " keeps one with its key, which stands before it";
    return faults_.ownerOf(index) + " does not write it";
  }

  // Whether an element before it is equal. Each is asked for once, in document order.
  bool isRepeated(std::size_t index) {
    const std::size_t parent = source_[index].parent;
    auto [at, isNew] = firstOf_.try_emplace(parent);
    if (isNew)
      for (std::size_t i = source_[parent].firstChild; i != kNoElement; i = source_[i].nextSibling)
        at->second.try_emplace(source_[i].hash, i);
    return at->second.at(source_[index].hash) != index;
  }

  using List = std::pair<std::size_t, std::string_view>;
  struct ListHash {
    std::size_t operator()(const List& list) const {
      return std::hash<std::string_view>()(list.second) * 31 + list.first;
    }
  };

  const KFLMessageElements& source_;
  Losses losses_;
  KFLMessageFaults faults_;
  std::map<std::size_t, std::string> faultOf_;
  std::unordered_set<List, ListHash> stopped_;
  std::unordered_map<std::size_t, std::unordered_map<std::uint64_t, std::size_t>> firstOf_;
};

// What stands in the way of reading; the reader's own text where the table allows it all.
KFLMessageFindings findRefusals(const KFLMessageElements& source, const KFLRecordType& record) {
  const std::string text = getErrorMessage();
  KFLMessageFindings faults = KFLMessageFaults(source, record.elements(), KFLFaultScope::Required).find();
  if (!faults.empty()) return faults;
  // The text begins with the path of an element.
  for (std::size_t i = source.size(); i-- > 0;) {
    const std::string path = source.path(i) + ": ";
    if (text.starts_with(path)) return {{source.path(i), i, text.substr(path.size())}};
  }
  return {{source.path(0), 0, std::string("cannot be read as ") + record.name()}};
}

}  // namespace

int checkMessage(const KFLMessageIterator& it, const KFLRecordType& record, KFLMessageFindings& findings,
                 KFLMessageCheckResult* result) {
  findings.clear();
  if (!it.isValid()) return it.fail("there is no message to check");
  const KFLMessageElements source(it);
  const KFLRecordType::Object object = record.create();
  if (record.read(it, object.get()) != 0) {
    KFLMessageFindings refusals = findRefusals(source, record);
    setErrorMessage("%s: %s", refusals.front().path.c_str(), refusals.front().text.c_str());
    findings = std::move(refusals);
    return -1;
  }
  KFLMessage written{std::string(it.getName())};
  KFLMessageIterator target = written.getIterator();
  // A text has no namespace of its own.
  if (*record.namespaceUri() == '\0') target.setName(it.getName(), it.getNamespace());
  if (record.write(target, object.get()) != 0) {
    findings = {
        {source.path(0), 0,
         std::string("was read as ") + record.name() + " but cannot be written: " + getErrorMessage()}};
    return -1;
  }
  const KFLMessageElements copy(target);
  Comparison comparison(source, copy);
  Losses losses = comparison.run();
  findings = Reasons(source, record, std::move(losses)).find();
  if (result == nullptr) return 0;
  result->written = std::move(written);
  result->lost = comparison.getLoss();
  return 0;
}

}  // namespace KFL
