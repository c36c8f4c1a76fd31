// SPDX-License-Identifier: Apache-2.0
// An input stream over a text that stays where it is: no copy is made, and the text must outlive the stream.
#ifndef KFAFUNCTIONALITY_FILES_KFAMEMORYSTREAM_H
#define KFAFUNCTIONALITY_FILES_KFAMEMORYSTREAM_H

#include <istream>
#include <streambuf>
#include <string_view>

#include <KFLCommon/KFLLanguage.h>

namespace KFA {

class KFAMemoryStream : private std::streambuf, public std::istream {
 public:
  explicit KFAMemoryStream(std::string_view text) : std::istream(static_cast<std::streambuf*>(this)) {
    reset(text);
  }

  // Begins anew with another text.
  void reset(std::string_view text) {
    char* const begin = const_cast<char*>(text.data());
    setg(begin, begin, begin + text.size());
    clear();
  }
};

}  // namespace KFA

#endif
