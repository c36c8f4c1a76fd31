// SPDX-License-Identifier: Apache-2.0
// A command's result as a document for programs: JSON, or XML made from the same document.
#ifndef KFACTL_DOCUMENT_H
#define KFACTL_DOCUMENT_H

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace kfactl {

class Session;

using Document = nlohmann::ordered_json;

// A text that is not UTF-8 stands in JSON as {"base64": "..."}, an object that holds its bytes.
//
// Prints the document in the format asked for, which is JSON or XML. In XML the root element is named `root`; members
// become child elements, an array one element per item: `item` for the root's own items, the member's name elsewhere.
void printDocument(Session& session, const Document& document, const char* root, const char* item = "item");

}  // namespace kfactl

#endif
