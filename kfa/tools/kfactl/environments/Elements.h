// SPDX-License-Identifier: Apache-2.0
// All elements of a message in document order, as a flat list: for what needs their paths, lines, or all of them.
#ifndef KFACTL_ELEMENTS_H
#define KFACTL_ELEMENTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <KFLMessage/KFLMessage.h>

namespace kfactl {

inline constexpr std::size_t kNoElement = static_cast<std::size_t>(-1);

struct Element {
  std::string_view name;
  std::string_view text;
  std::string_view type;  // the type tag without its namespace
  std::string attributes;
  std::size_t parent = kNoElement;
  std::size_t firstChild = kNoElement;
  std::size_t nextSibling = kNoElement;
  std::uint64_t hash = 0;  // of name, text, attributes and all below; the order of children counts
  KFL::KFLMessageIterator cursor;
};

// The texts are the message's own: it must stay as it is.
class Elements {
 public:
  explicit Elements(const KFL::KFLMessageIterator& it);

  std::size_t size() const { return elements_.size(); }
  const Element& operator[](std::size_t index) const { return elements_[index]; }
  // As in /venv_config/net_device/mac.
  std::string path(std::size_t index) const;

 private:
  void add(const KFL::KFLMessageIterator& it, std::size_t parent, std::size_t previous);
  void hashAll();

  std::vector<Element> elements_;
};

// The line on which the element with this index in document order begins, in the XML text that it was read from.
std::size_t lineOfElement(std::string_view xml, std::size_t index);

}  // namespace kfactl

#endif
