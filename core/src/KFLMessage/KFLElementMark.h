// SPDX-License-Identifier: Apache-2.0
// What one element was like, so that what is written into it can be undone without taking memory. Made and understood
// by the tree; KFLWriteGuard keeps one.
#ifndef KFLMESSAGE_KFLELEMENTMARK_H
#define KFLMESSAGE_KFLELEMENTMARK_H

#include <cstdint>

namespace KFL {

// Numbers of nodes, names and types in one tree; 0 is none.
struct KFLElementMark {
  std::uint32_t element = 0;
  std::uint32_t last = 0;    // its last child
  std::uint32_t before = 0;  // where children are inserted, and what stood before it
  std::uint32_t beforePrev = 0;
  std::uint32_t ownText = 0;  // nodes apart that keep the texts of the element and of its last child
  std::uint32_t lastText = 0;
  std::uint32_t name = 0;
  std::uint32_t ns = 0;
  std::uint32_t type = 0;
  bool hasAttributes = false;
  bool isRootOpen = false;
};

}  // namespace KFL

#endif
