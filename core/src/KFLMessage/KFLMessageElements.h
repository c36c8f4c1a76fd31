// SPDX-License-Identifier: Apache-2.0
// Not installed: all elements of a subtree in document order, as a flat list.
//
// The texts are the message's own: it must stay as it is.
#ifndef KFLMESSAGE_KFLMESSAGEELEMENTS_H
#define KFLMESSAGE_KFLMESSAGEELEMENTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <KFLMessage/KFLMessageIterator.h>

#pragma GCC visibility push(hidden)

namespace KFL {

inline constexpr std::size_t kNoElement = static_cast<std::size_t>(-1);

struct KFLMessageElement {
  std::string_view name;
  std::string_view text;
  std::string_view type;  // the type tag without its namespace
  std::string attributes;
  std::size_t parent = kNoElement;
  std::size_t firstChild = kNoElement;
  std::size_t nextSibling = kNoElement;
  std::size_t position = 1;  // among the siblings of its name
  bool isOneOfMany = false;  // whether there are others of its name
  std::uint64_t hash = 0;    // of name, text, attributes and all below; the order of children counts
  KFLMessageIterator cursor;
};

class KFLMessageElements {
 public:
  explicit KFLMessageElements(const KFLMessageIterator& it);

  std::size_t size() const { return elements_.size(); }
  const KFLMessageElement& operator[](std::size_t index) const { return elements_[index]; }
  std::string path(std::size_t index) const;
  // How many elements stand below.
  std::size_t countBelow(std::size_t index) const;

 private:
  void add(const KFLMessageIterator& it, std::size_t parent, std::size_t previous);
  void hashAll();
  void numberChildren(std::size_t parent);

  std::string top_;  // the path of the first
  std::vector<KFLMessageElement> elements_;
};

}  // namespace KFL

#pragma GCC visibility pop

#endif
