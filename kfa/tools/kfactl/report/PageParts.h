// SPDX-License-Identifier: Apache-2.0
// The script and the style of the page, page.js and page.css, which the build puts into the program.
#ifndef KFACTL_PAGEPARTS_H
#define KFACTL_PAGEPARTS_H

namespace kfactl {

struct PagePart {
  const char* text;
  const char* hash;  // SHA-256 in hexadecimal digits
};

extern const PagePart kPageScript;
extern const PagePart kPageStyle;

}  // namespace kfactl

#endif
