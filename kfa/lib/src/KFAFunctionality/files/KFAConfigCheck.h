// SPDX-License-Identifier: Apache-2.0
// What is wrong with a KEY="value" file, line by line.
//
// Judged by the rules that also judge what is set. Nothing is printed; findings come in the order of the lines.
#ifndef KFAFUNCTIONALITY_FILES_KFACONFIGCHECK_H
#define KFAFUNCTIONALITY_FILES_KFACONFIGCHECK_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAConfigRules.h>

namespace KFA {

struct KFAConfigFinding {
  enum class Severity {
    Error,  // a malformed line, a value that the key does not take
    // A repeated key, a line that looks like an assignment and is none, a carriage return, a value that another key
    // overrules or that cannot be written back between double quotes.
    Warning,
    Note,  // a key that is not one of the file's
  };

  Severity severity;
  std::size_t line;    // from 1
  std::size_t column;  // from 1, in bytes
  std::string text;
  std::string lineText;  // the line without its newline
  // What kind of finding it is, for programs: "malformed-line", "not-an-assignment", "open-line", "nul",
  // "repeated-key", "foreign-key", "carriage-return", "value", "unsafe-value" or "overruled-value".
  std::string rule = {};
};

// "error", "warning" or "note".
const char* toString(KFAConfigFinding::Severity severity);

// All findings of a file's text.
std::vector<KFAConfigFinding> checkConfig(const KFAConfigRules& rules, std::string_view text);

}  // namespace KFA

#endif
