// SPDX-License-Identifier: Apache-2.0
// Sections of the documents as text of manual pages, so that a format is described once.
#ifndef KFACTL_MANUAL_MARKDOWN_H
#define KFACTL_MANUAL_MARKDOWN_H

#include <string_view>

#include "manual/Roff.h"

namespace kfactl {

// docs/formats.md, as it was when the program was built.
std::string_view formatsDocument();

// The lines below a heading of the document, without it, up to the next one that is not below it; empty when there is no
// such heading. The heading is given whole, as in "## 5. The vocabulary".
std::string_view sectionOf(std::string_view document, std::string_view heading);

// Adds headings, paragraphs, lists, tables and blocks of code. A table becomes a list of its rows, each under its first
// cell; a link becomes its text.
void addMarkdown(Roff& page, std::string_view text);

}  // namespace kfactl

#endif
