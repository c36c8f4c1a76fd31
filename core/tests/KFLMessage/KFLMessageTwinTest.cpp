// SPDX-License-Identifier: Apache-2.0
// Random changes of a tree beside a plain twin of it: nodes, texts and free lists must give the same document.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <random>
#include <string>
#include <utility>

#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

struct Twin {
  std::string name, text;
  std::list<Twin> children;
  Twin* parent = nullptr;
};

std::string print(const Twin& twin) {
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
        &TwinWalk::add,           &TwinWalk::add,       &TwinWalk::insertBeforeFirst,
        &TwinWalk::setText,       &TwinWalk::find,      &TwinWalk::find,
        &TwinWalk::removeOrClear, &TwinWalk::removeAll, &TwinWalk::find,
        &TwinWalk::leave,         &TwinWalk::rename,    &TwinWalk::addMany};
    (this->*kSteps[pick(std::size(kSteps))])(names[pick(std::size(names))]);
    ASSERT_EQ(it_.getPath(), pathOf(*at_));
    if (at_->children.empty()) return;
    auto child = at_->children.begin();
    const KFLMessageIterator it(it_);
    it.firstChild();
    for (std::size_t i = pick(at_->children.size()); i-- > 0; ++child)
      it.nextSibling();
    ASSERT_EQ(it.getPath(), pathOf(*child));
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
  static std::string pathOf(const Twin& twin) {
    if (twin.parent == nullptr) return "/" + twin.name;
    std::size_t position = 0, count = 0;
    for (const Twin& sibling : twin.parent->children) {
      if (sibling.name == twin.name) ++count;
      if (&sibling == &twin) position = count;
    }
    return pathOf(*twin.parent) + "/" + twin.name + (count > 1 ? "[" + std::to_string(position) + "]" : "");
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
    at_->children.push_front({name, {}, {}, at_});
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
    if (at_->parent == nullptr || pick(8) == 0) {
      it_.clear();
      at_->text.clear();
      return at_->children.clear();
    }
    held_ = pick(2) == 0 ? KFLElementHold(it_) : KFLElementHold();
    it_.removeCurrent();
    Twin* const removed = std::exchange(at_, at_->parent);
    at_->children.remove_if([removed](const Twin& child) { return &child == removed; });
  }
  void removeAll(const std::string& name) {
    const auto removed = at_->children.remove_if([&](const Twin& child) { return child.name == name; });
    ASSERT_EQ(it_.removeChildren(name), removed);
  }

  std::mt19937 random_;
  KFLMessage message_{"root"};
  KFLMessageIterator it_ = message_.getIterator();
  KFLElementHold held_;
  Twin root_{"root", {}, {}};
  Twin* at_ = &root_;
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
