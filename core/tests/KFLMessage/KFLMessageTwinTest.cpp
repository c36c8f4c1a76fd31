// SPDX-License-Identifier: Apache-2.0
// Random changes of a tree beside a plain twin of it: nodes, texts and free lists must give the same document.
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
};

std::string print(const Twin& twin) {
  if (twin.name.empty()) return twin.text;
  if (twin.text.empty() && twin.children.empty()) return "<" + twin.name + "/>";
  std::string out = "<" + twin.name + ">" + twin.text;
  for (const Twin& child : twin.children)
    out += print(child);
  return out + "</" + twin.name + ">";
}

class TwinWalk {
 public:
  explicit TwinWalk(unsigned seed) : random_(seed) {}

  void step() {
    static constexpr const char* names[] = {"veid", "value", "own_name", "x"};
    static constexpr void (TwinWalk::*kSteps[])(const std::string&) = {
        &TwinWalk::add,       &TwinWalk::add,     &TwinWalk::insertBeforeFirst, &TwinWalk::setText,
        &TwinWalk::find,      &TwinWalk::find,    &TwinWalk::removeOrClear,     &TwinWalk::leave,
        &TwinWalk::removeAll, &TwinWalk::addText, &TwinWalk::guarded,           &TwinWalk::find,
        &TwinWalk::rename,    &TwinWalk::addMany};
    (this->*kSteps[pick(std::size(kSteps))])(names[pick(std::size(names))]);
    comparePaths();
  }

  void compare() {
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

  // Those of the current element and of one of its children.
  void comparePaths() {
    ASSERT_EQ(it_.getPath(), nameOf(*at_));
    const auto isElement = [](const Twin& child) { return !child.name.empty(); };
    const auto count = static_cast<std::size_t>(std::ranges::count_if(at_->children, isElement));
    if (count == 0) return;
    auto child = std::ranges::find_if(at_->children, isElement);
    const KFLMessageIterator it(it_);
    it.firstChild();
    for (std::size_t i = pick(count); i-- > 0; it.nextSibling())
      child = std::find_if(std::next(child), at_->children.end(), isElement);
    ASSERT_EQ(it.getPath(), nameOf(*child));
  }

  void add(const std::string& name) {
    it_.addChild(name);
    at_->children.push_back({name, {}, {}, at_});
    at_ = &at_->children.back();
  }
  void insertBeforeFirst(const std::string& name) {
    const KFLMessageIterator sibling = it_;
    if (sibling.firstChild() != 0) return;
    it_.setInsertionPoint(sibling);
    it_.addEmptyChild(name);
    it_.clearInsertionPoint();
    const auto first =
        std::ranges::find_if(at_->children, [](const Twin& child) { return !child.name.empty(); });
    at_->children.insert(first, {name, {}, {}, at_});
  }
  void addMany(const std::string& name) {
    for (std::size_t i = at_->children.size() < 200 ? pick(80) : 0; i-- > 0;) {
      it_.addEmptyChild(name);
      at_->children.push_back({name, {}, {}, at_});
    }
  }
  void rename(const std::string& name) {
    if (at_->parent == nullptr) return;
    it_.setName(name, {});
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
    held_ = pick(2) == 0 ? KFLElementHold(it_) : KFLElementHold();
    it_.removeCurrent();
    Twin* const removed = std::exchange(at_, at_->parent);
    at_->children.remove_if([removed](const Twin& child) { return &child == removed; });
    if (guards_ == 0) joinTexts(*at_);
  }
  void removeAll(const std::string& name) {
    const auto removed = at_->children.remove_if([&](const Twin& child) { return child.name == name; });
    ASSERT_EQ(it_.removeChildren(name), removed);
    if (guards_ == 0) joinTexts(*at_);
  }
  // Behind what the element holds.
  void addText(const std::string& text) {
    KFLMessage more("text");
    more.getIterator().putValue(text);
    ASSERT_EQ(it_.copyContent(more.getIterator()), 0);
    at_->children.push_back({"", text, {}, at_});
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
    it_.clear();
    at_->text.clear();
    at_->children.clear();
  }
  std::vector<std::size_t> pathOf(const Twin* twin) const {
    std::vector<std::size_t> path;
    for (; twin->parent != nullptr; twin = twin->parent) {
      const auto& siblings = twin->parent->children;
      const auto found = std::ranges::find_if(siblings, [twin](const Twin& other) { return &other == twin; });
      path.insert(path.begin(), static_cast<std::size_t>(std::distance(siblings.begin(), found)));
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
  KFLMessage message_{"root"};
  KFLMessageIterator it_ = message_.getIterator();
  KFLElementHold held_;
  Twin root_{"root", {}, {}};
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
