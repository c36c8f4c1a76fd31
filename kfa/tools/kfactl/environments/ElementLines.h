// SPDX-License-Identifier: Apache-2.0
// Where the elements of a message stand in the XML text that it was read from.
#ifndef KFACTL_ELEMENTLINES_H
#define KFACTL_ELEMENTLINES_H

#include <cstddef>
#include <string_view>
#include <vector>

namespace kfactl {

class ElementLines {
 public:
  // The text must be one that was parsed.
  explicit ElementLines(std::string_view xml);
  // The line on which the element with this number in document order begins.
  std::size_t operator[](std::size_t element) const;

 private:
  std::vector<std::size_t> lines_;
};

}  // namespace kfactl

#endif
