// SPDX-License-Identifier: Apache-2.0
// Not installed: a parser of Expat's in namespace mode, for one text.
//
// Making one takes longer than reading a short message, so a few that are done wait for the next text, whichever thread
// has it.
#ifndef KFLMESSAGE_KFLXMLPARSER_H
#define KFLMESSAGE_KFLXMLPARSER_H

#include <expat.h>

#include <memory>

#pragma GCC visibility push(hidden)

namespace KFL {

class KFLXMLParser {
 public:
  static constexpr char kSeparator = '\x01';  // stands between namespace and name

  KFLXMLParser();

  XML_Parser get() const { return parser_.get(); }
  // Lets it read another text; for one that has got through its own, which was not long. get() gives null from here on.
  void keep();

 private:
  struct Free {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
  };
  std::unique_ptr<XML_ParserStruct, Free> parser_;
};

}  // namespace KFL

#pragma GCC visibility pop

#endif
