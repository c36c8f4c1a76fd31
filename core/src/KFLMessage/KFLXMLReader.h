// SPDX-License-Identifier: Apache-2.0
// Not installed: from XML text to a tree.
#ifndef KFLMESSAGE_KFLXMLREADER_H
#define KFLMESSAGE_KFLXMLREADER_H

#include <string_view>

#include <KFLMessage/KFLMessageTree.h>

#pragma GCC visibility push(hidden)

namespace KFL {

inline constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";
inline constexpr std::string_view kXmlnsNamespace = "http://www.w3.org/2000/xmlns/";
inline constexpr std::string_view kXsiNamespace = "http://www.w3.org/2001/XMLSchema-instance";

// Elements may be nested this deep in a text.
inline constexpr std::size_t kDeepestElement = 256;

// Reads a document into a new, empty tree: 0, or -1 with an error text "line L, column C: what; what would be right".
int readXml(std::string_view xml, KFLMessageTree& tree);

// Whether there is nothing but white space in it, which between elements means nothing.
bool isBlankText(std::string_view text);

// Whether a text can be the local name of an element, by the rule of the reader.
bool isXmlName(std::string_view text);

}  // namespace KFL

#pragma GCC visibility pop

#endif
