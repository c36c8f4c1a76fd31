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
  std::string name;
  std::string text;
  std::list<Twin> children;
  Twin* parent = nullptr;
};

void print(const Twin& twin, std::string& out) {
  out += "<" + twin.name;
  if (twin.text.empty() && twin.children.empty()) {
    out += "/>";
    return;
  }
  out += ">" + twin.text;
  for (const Twin& child : twin.children)
    print(child, out);
  out += "</" + twin.name + ">";
}

std::list<Twin>::iterator findIn(Twin& twin, const std::string& name) {
  return std::find_if(twin.children.begin(), twin.children.end(),
                      [&](const Twin& child) { return child.name == name; });
}

class TwinWalk {
 public:
  explicit TwinWalk(unsigned seed) : random_(seed), message_("root"), it_(message_.getIterator()) {
    root_.name = "root";
  }

  void step() {
    const std::string name = names_[pick(std::size(names_))];
    switch (pick(9)) {
      case 0:
      case 1:
        return add(name);
      case 2:
        return insertBeforeFirst(name);
      case 3:
        return setText();
      case 4:
      case 5:
        return find(name);
      case 6:
        return leave();
      case 7:
        return removeOrClear();
      default:
        return removeAll(name);
    }
  }

  void compare() {
    std::string expected;
    print(root_, expected);
    ASSERT_EQ(message_.toString(), expected);
    KFLMessage again;
    ASSERT_EQ(again.parse(expected), 0);
    ASSERT_TRUE(again.getIterator().isEqualTree(message_.getIterator()));
    const KFLMessage copy = message_;
    ASSERT_EQ(copy.toString(), expected);
  }

 private:
  std::size_t pick(std::size_t count) { return random_() % count; }

  void add(const std::string& name) {
    it_.addChild(name);
    at_->children.push_back({name, {}, {}, at_});
    at_ = &at_->children.back();
  }
  void insertBeforeFirst(const std::string& name) {
    if (at_->children.empty()) return;
    const KFLMessageIterator sibling = it_;
    sibling.firstChild();
    it_.setInsertionPoint(sibling);
    it_.addEmptyChild(name);
    it_.clearInsertionPoint();
    at_->children.push_front({name, {}, {}, at_});
  }
  void setText() {
    at_->text = std::string(pick(5) == 0 ? pick(2000) : pick(40), static_cast<char>('a' + pick(26)));
    it_.putValue(at_->text);
  }
  void find(const std::string& name) {
    const auto found = findIn(*at_, name);
    ASSERT_EQ(it_.findChild(name), found == at_->children.end() ? -1 : 0);
    if (found != at_->children.end()) at_ = &*found;
  }
  void leave() {
    it_.leaveChild();
    if (at_->parent != nullptr) at_ = at_->parent;
  }
  void removeOrClear() {
    if (at_->parent == nullptr || pick(8) == 0) {
      it_.clear();
      at_->text.clear();
      at_->children.clear();
      return;
    }
    it_.removeCurrent();
    Twin* const removed = std::exchange(at_, at_->parent);
    at_->children.remove_if([removed](const Twin& child) { return &child == removed; });
  }
  void removeAll(const std::string& name) {
    const std::size_t before = at_->children.size();
    at_->children.remove_if([&](const Twin& child) { return child.name == name; });
    ASSERT_EQ(it_.removeChildren(name), before - at_->children.size());
  }

  static constexpr const char* names_[] = {"veid", "value", "own_name", "x"};
  std::mt19937 random_;
  KFLMessage message_;
  KFLMessageIterator it_;
  Twin root_;
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
