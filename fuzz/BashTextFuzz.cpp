// SPDX-License-Identifier: Apache-2.0
// Lines of random tokens and bytes through the reader and the rewriting writer, for a sanitizer to watch: a safe value in the
// place of the stretch reads back, and a rewritten file differs from a plain model in no byte.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <KFAFunctionality/files/KFAMemoryStream.h>
#include <KFAFunctionality/files/KFARawConfigBashParser.h>
#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include "BashLines.h"
#include "BashReading.h"

namespace {

using kfl_fuzz::BashLines;
using kfl_fuzz::Reading;

// Random lines that join those of an input.
constexpr std::size_t kLinesOfAnInput = 1024;

void require(const std::string& broken, const std::string& text) {
  if (broken.empty()) return;
  std::fprintf(stderr, "%s\n  in: %s\n", broken.c_str(), kfl_fuzz::printable(text).c_str());
  std::abort();
}

// A file and what it must be once a key has another value.
struct Model {
  std::string key, value, text, expected;
  bool isWritten = false;

  void add(const std::string& line, const Reading& reading) {
    const bool isAssignment = reading.result == KFL::kBashAssignment;
    if (isAssignment && key.empty()) key = KFL::toLower(reading.name);
    const bool isReplaced = isAssignment && KFL::toLower(reading.name) == key;
    isWritten |= isReplaced;
    text += line + '\n';
    expected += (isReplaced ? replaceValue(line, reading, value) : line) + '\n';
  }
};

void checkWriter(const Model& model) {
  if (!model.isWritten) return;
  KFA::KFAMemoryStream existing(model.text);
  std::ostringstream out;
  const std::map<std::string, std::string> values{{model.key, model.value}};
  const bool isDone =
      KFA::KFARawConfigBashParser::getInstance()->putConfig(values, out, &existing, true) == 0;
  require(isDone && out.str() == model.expected ? "" : "a rewritten file differs from its model", model.text);
}

struct Tally {
  std::size_t lines = 0, assignments = 0;
  ~Tally() { std::fprintf(stderr, "%zu lines were read, %zu assign\n", lines, assignments); }
};

void checkLine(const std::string& line, Model& model) {
  static Tally tally;
  const Reading reading = kfl_fuzz::readLine(line);
  require(reading.broken, line);
  ++tally.lines;
  if (reading.result == KFL::kBashAssignment) {
    ++tally.assignments;
    require(kfl_fuzz::checkReplacement(line, reading, model.value), line);
  }
  model.add(line, reading);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  BashLines more(input);
  Model model;
  model.value = more.safeValue();
  for (const std::string& line : kfl_fuzz::linesOf(input))
    checkLine(line, model);
  for (std::size_t i = 0; i < kLinesOfAnInput; ++i)
    checkLine(more.next(), model);
  checkWriter(model);
  return 0;
}
