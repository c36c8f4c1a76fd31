// SPDX-License-Identifier: Apache-2.0
// Not installed: the packed form of a tree, which takes a fraction of the time of its XML text. docs/formats.md has its bytes.
#ifndef KFLMESSAGE_KFLPACKEDMESSAGE_H
#define KFLMESSAGE_KFLPACKEDMESSAGE_H

#include <string>
#include <string_view>

#include <KFLMessage/KFLMessageTree.h>

#pragma GCC visibility push(hidden)

namespace KFL {

// The first byte of each packed message, which no text begins with.
inline constexpr char kPackedMark = '\x01';

// Replaces `out` by the packed form of the whole tree: 0, or -1 with an error text that names the element, and `out` empty.
int packTree(const KFLMessageTree& tree, std::string& out);

// Fills a fresh tree: 0, or -1 with an error text that names the byte. What it takes prints as XML, and reads again from
// that to an equal tree.
int unpackTree(std::string_view packed, KFLMessageTree& tree);

}  // namespace KFL

#pragma GCC visibility pop

#endif
