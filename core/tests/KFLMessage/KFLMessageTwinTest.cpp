// SPDX-License-Identifier: Apache-2.0
// Random changes of a tree beside a plain twin of it: nodes, texts, attributes, held elements and free lists must give the
// same document.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

struct Twin {
  std::string name, text;  // a text behind an element has no name
  std::list<Twin> children;
  Twin* parent = nullptr;
  std::string attributes = {};  // each as p="1" behind a blank
};

// All are of one namespace.

std::string print(const Twin& twin) {
  if (twin.name.empty()) return twin.text;
  const std::string head = "<" + twin.name + (twin.parent == nullptr ? " xmlns=\"u\"" : "") + twin.attributes;
  if (twin.text.empty() && twin.children.empty()) return head + "/>";
  std::string out = head + ">" + twin.text;
  for (const Twin& child : twin.children)
    out += print(child);
  return out + "</" + twin.name + ">";
}

class TwinWalk {
 public:
  explicit TwinWalk(unsigned seed) : random_(seed) {
    EXPECT_EQ(message_.parse(print(root_)), 0);
    it_ = message_.getIterator();
  }

  void step() {
    static constexpr const char* names[] = {"veid", "value", "own_name", "x"};
    static constexpr void (TwinWalk::*kSteps[])(const std::string&) = {
        &TwinWalk::add,       &TwinWalk::add,    &TwinWalk::insertBefore,  &TwinWalk::setText,
        &TwinWalk::find,      &TwinWalk::find,   &TwinWalk::removeOrClear, &TwinWalk::leave,
        &TwinWalk::removeAll, &TwinWalk::copy,   &TwinWalk::guarded,       &TwinWalk::find,
        &TwinWalk::rename,    &TwinWalk::addMany};
    (this->*kSteps[pick(std::size(kSteps))])(names[pick(std::size(names))]);
    comparePaths();
  }

  void compare() {
    compareHeld();
    const std::string expected = print(root_);
    ASSERT_EQ(message_.toString(), expected);
    KFLMessage again;
    ASSERT_EQ(again.parse(expected), 0);
    ASSERT_TRUE(again.getIterator().isEqualTree(message_.getIterator()));
    ASSERT_EQ(KFLMessage(message_).toString(), expected);
  }

 private:
  std::size_t pick(std::size_t count) { return random_() % count; }
  static std::string nameOf(const Twin& twin) {
    if (twin.parent == nullptr) return "/" + twin.name;
    std::size_t position = 0, count = 0;
    for (const Twin& sibling : twin.parent->children) {
      if (sibling.name == twin.name) ++count;
      if (&sibling == &twin) position = count;
    }
    return nameOf(*twin.parent) + "/" + twin.name + (count > 1 ? "[" + std::to_string(position) + "]" : "");
  }

  static std::list<Twin>::iterator placeOf(const Twin& twin) {
    return std::ranges::find_if(twin.parent->children, [&](const Twin& other) { return &other == &twin; });
  }
  // One of the children, and its twin; the current element when it has none.
  std::pair<KFLMessageIterator, Twin*> child() {
    KFLMessageIterator it(it_);
    if (it.firstChild() != 0) return {it_, at_};
    std::vector<Twin*> elements;
    for (Twin& child : at_->children)
      if (!child.name.empty()) elements.push_back(&child);
    EXPECT_EQ(it_.countChildren(), elements.size());
    const std::size_t chosen = pick(elements.size());
    for (std::size_t i = 0; i < chosen; ++i)
      it.nextSibling();
    return {it, elements[chosen]};
  }
  void comparePaths() {
    ASSERT_EQ(it_.getPath(), nameOf(*at_));
    const auto [it, twin] = child();
    ASSERT_EQ(it.getPath(), nameOf(*twin));
    ASSERT_EQ(it.isEmptyElement(), twin->text.empty() && twin->children.empty());
  }
  // What is held stands apart as it was.
  void compareHeld() const {
    std::string text;
    if (heldText_.empty()) return;
    ASSERT_EQ(heldAt_.print(text), 0);
    ASSERT_EQ(text, heldText_);
    ASSERT_EQ(heldAt_.getPath().rfind('/'), 0U);
  }

  void add(const std::string& name) {
    it_.addChild(name);
    at_->children.push_back({name, {}, {}, at_});
    at_ = &at_->children.back();
  }
  // Two elements, the second with a child; an insertion point that is gone is none.
  void insertBefore(const std::string& name) {
    auto [sibling, twin] = child();
    if (twin == at_) return;
    it_.setInsertionPoint(sibling);
    auto place = placeOf(*twin);
    if (pick(4) == 0) {
      sibling.removeCurrent();
      at_->children.erase(place);
      joinTexts(*at_);
      place = at_->children.end();
    }
    it_.addEmptyChild(name);
    at_->children.insert(place, {name, {}, {}, at_});
    if (place == at_->children.end()) it_.clearInsertionPoint();
    it_.addChild(name);
    it_.addEmptyChild("x");
    it_.leaveChild();
    const auto second = at_->children.insert(place, {name, {}, {}, at_});
    second->children.push_back({"x", {}, {}, &*second});
    it_.clearInsertionPoint();
  }
  void addMany(const std::string& name) {
    for (std::size_t i = at_->children.size() < 200 ? pick(80) : 0; i-- > 0;) {
      it_.addEmptyChild(name);
      at_->children.push_back({name, {}, {}, at_});
    }
  }
  void rename(const std::string& name) {
    if (at_->parent == nullptr) return;
    it_.setName(name, "u");
    at_->name = name;
  }
  void setText(const std::string&) {
    at_->text = std::string(pick(5) == 0 ? pick(2000) : pick(40), static_cast<char>('a' + pick(26)));
    it_.putValue(at_->text);
  }
  void find(const std::string& name) {
    const auto found = std::ranges::find(at_->children, name, &Twin::name);
    ASSERT_EQ(it_.findChild(name), found == at_->children.end() ? -1 : 0);
    if (found != at_->children.end()) at_ = &*found;
  }
  void leave(const std::string&) {
    it_.leaveChild();
    if (at_->parent != nullptr) at_ = at_->parent;
  }
  void removeOrClear(const std::string&) {
    if (at_->parent == nullptr || pick(8) == 0) return clear("");
    compareHeld();
    const auto [inner, twin] = pick(2) == 0 ? child() : std::pair(it_, at_);
    const KFLElementHold also(inner);
    held_ = KFLElementHold(inner);
    heldAt_ = inner;
    Twin held = *twin;
    held.parent = nullptr;
    heldText_ = guards_ == 0 ? print(held) : "";
    if (pick(2) == 0) held_ = KFLElementHold(), heldText_ = "";
    it_.removeCurrent();
    const auto removed = placeOf(*at_);
    at_ = at_->parent;
    at_->children.erase(removed);
    if (guards_ == 0) joinTexts(*at_);
  }
  void removeAll(const std::string& name) {
    const auto removed = at_->children.remove_if([&](const Twin& child) { return child.name == name; });
    ASSERT_EQ(it_.removeChildren(name), removed);
    if (guards_ == 0) joinTexts(*at_);
  }
  // What another tree holds, or all of this one, behind what the element holds.
  void copy(const std::string& text) {
    KFLMessage other;
    Twin all{"other", text, {}, nullptr, " p=\"0\" r=\"3\""};
    if (pick(2) == 0) all.children.push_back({"x", "y", {}, &all, " q=\"2\""});
    ASSERT_EQ(other.parse("<v xmlns=\"v\">" + print(all) + "</v>"), 0);
    KFLMessageIterator from = other.getIterator();
    from.findChild("other");
    if (pick(2) == 0 && print(root_).size() < 500) all = root_, from = message_.getIterator();
    ASSERT_EQ(it_.copyContent(from), 0);
    if (!all.text.empty()) at_->children.push_back({"", all.text, {}, at_});
    at_->children.splice(at_->children.end(), all.children);
    for (std::size_t i = 0; i < all.attributes.size(); i += 6)
      if (at_->attributes.find(all.attributes.substr(i, 3)) == std::string::npos)
        at_->attributes += all.attributes.substr(i, 6);
    setParents(*at_);
    joinTexts(*at_);
  }
  // Texts that follow one another are one, and the first of all is the element's own.
  static void joinTexts(Twin& twin) {
    Twin* before = &twin;
    for (auto child = twin.children.begin(); child != twin.children.end();) {
      const bool joins = child->name.empty() && (before == &twin || before->name.empty());
      if (joins)
        before->text += child->text;
      else
        before = &*child;
      child = joins ? twin.children.erase(child) : std::next(child);
    }
  }

  // What was removed anywhere below the element, and added to it, while a guard lived is as before where the guard was not
  // kept.
  void guarded(const std::string&) {
    const std::string before = message_.toString();
    const Twin saved = root_;
    const std::vector<std::size_t> path = pathOf(at_);
    std::optional<KFLWriteGuard> guard(std::in_place, it_);
    ++guards_;
    for (std::size_t more = pick(8); more > 0; --more) {
      const KFLMessageIterator it = it_;
      changeUnderGuard(pick(2) == 0 ? "veid" : "x");
      it_ = it;
      at_ = follow(path);
      comparePaths();
    }
    --guards_;
    if (pick(2) == 0) {
      guard->keep();
      guard.reset();
      if (guards_ == 0) joinAll(root_);
      return;
    }
    guard.reset();
    ASSERT_EQ(message_.toString(), before);
    root_ = saved;
    setParents(root_);
    at_ = follow(path);
  }
  void changeUnderGuard(const std::string& name) {
    static constexpr void (TwinWalk::*kSteps[])(const std::string&) = {
        &TwinWalk::removeAll, &TwinWalk::find,  &TwinWalk::find,
        &TwinWalk::guarded,   &TwinWalk::clear, &TwinWalk::add};
    const std::size_t step = pick(guards_ < 4 ? std::size(kSteps) : 3);
    const Twin* const top = at_;
    (this->*kSteps[step])(name);
    if (kSteps[step] == &TwinWalk::add) return setText(name);
    if (at_ == top) return;
    step == 1 ? removeOrClear(name) : removeAll("value");
  }
  void clear(const std::string&) {
    at_->parent == nullptr ? it_.removeCurrent() : it_.clear();
    at_->text.clear();
    at_->children.clear();
    at_->attributes.clear();
  }
  std::vector<std::size_t> pathOf(const Twin* twin) const {
    std::vector<std::size_t> path;
    for (; twin->parent != nullptr; twin = twin->parent) {
      const auto steps = std::distance(twin->parent->children.begin(), placeOf(*twin));
      path.insert(path.begin(), static_cast<std::size_t>(steps));
    }
    return path;
  }
  Twin* follow(const std::vector<std::size_t>& path) {
    Twin* twin = &root_;
    for (const std::size_t step : path)
      twin = &*std::next(twin->children.begin(), static_cast<std::ptrdiff_t>(step));
    return twin;
  }
  static void setParents(Twin& twin) {
    for (Twin& child : twin.children) {
      child.parent = &twin;
      setParents(child);
    }
  }
  static void joinAll(Twin& twin) {
    for (Twin& child : twin.children)
      joinAll(child);
    joinTexts(twin);
  }

  std::mt19937 random_;
  KFLMessage message_;
  KFLMessageIterator it_, heldAt_;
  KFLElementHold held_;
  std::string heldText_;  // what is held apart prints; empty when nothing is
  Twin root_{"root", {}, {}, nullptr, " p=\"1\" q=\"2\""};
  Twin* at_ = &root_;
  int guards_ = 0;
};

TEST(KFLMessageTwin, RandomChangesGiveTheSameDocument) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    TwinWalk walk(seed);
    for (int i = 0; i < 2000; ++i) {
      walk.step();
      if (i % 50 == 0) walk.compare();
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

}  // namespace
}  // namespace KFL
