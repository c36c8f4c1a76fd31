// SPDX-License-Identifier: Apache-2.0
// Not installed: from a tree to XML text.
#ifndef KFLMESSAGE_KFLXMLWRITER_H
#define KFLMESSAGE_KFLXMLWRITER_H

#include <string>
#include <string_view>

#include <KFLMessage/KFLMessageTree.h>

#pragma GCC visibility push(hidden)

namespace KFL {

enum class KFLXMLLayout {
  Compact,   // no white space but what the tree holds
  Indented,  // elements that hold elements only are broken into lines, two spaces a level
};

// Replaces `out` by the text of the element with all below it: 0, or -1 with an error text that names the element, and
// `out` empty.
int writeXml(const KFLMessageTree& tree, KFLNodeIndex element, KFLXMLLayout layout, std::string& out);

// What keeps a text from standing in XML, as the end of a sentence about it; null when nothing does.
const char* faultOfXmlText(std::string_view text);

}  // namespace KFL

#pragma GCC visibility pop

#endif
