// SPDX-License-Identifier: Apache-2.0
// Bytes as text: base64 with the standard alphabet and padding, on one line. No state; any thread.
#ifndef KFLCOMMON_KFLBASE64_H
#define KFLCOMMON_KFLBASE64_H

#include <string>
#include <string_view>

namespace KFL {

std::string toBase64(std::string_view bytes);

// Takes exactly the texts that toBase64 gives: no white space, no missing padding, no bits that are dropped. 0, or -1
// with an error text that names the place, and `bytes` as it was.
int fromBase64(std::string_view text, std::string& bytes);

}  // namespace KFL

#endif
