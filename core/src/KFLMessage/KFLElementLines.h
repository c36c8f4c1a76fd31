// SPDX-License-Identifier: Apache-2.0
// Where the elements of a message stand in the XML text that it was read from. Immutable; any threads.
#ifndef KFLMESSAGE_KFLELEMENTLINES_H
#define KFLMESSAGE_KFLELEMENTLINES_H

#include <cstddef>
#include <string_view>
#include <vector>

namespace KFL {

class KFLElementLines {
 public:
  // The text must be one that was parsed.
  explicit KFLElementLines(std::string_view xml);
  // The line, from 1, on which the element with this number in document order begins; 1 for one that there is not.
  std::size_t operator[](std::size_t element) const;

 private:
  std::vector<std::size_t> lines_;
};

}  // namespace KFL

#endif
