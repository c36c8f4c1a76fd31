// SPDX-License-Identifier: Apache-2.0
#include "BashReading.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define KFA_FUZZ_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KFA_FUZZ_SANITIZED
#endif
#endif
#ifdef KFA_FUZZ_SANITIZED
#include <sanitizer/common_interface_defs.h>
#endif

#include <KFLBash/KFLBashJudge.h>
#include <KFLBash/KFLBashPieces.h>
#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>

namespace kfl_fuzz {

namespace {

using Kind = KFL::KFLBashLine::Kind;

// A block of its own shows a sanitizer every step beyond the text.
std::unique_ptr<char[]> blockOf(std::string_view text, std::size_t size) {
  auto block = std::make_unique<char[]>(size);
  if (!text.empty()) std::memcpy(block.get(), text.data(), text.size());
  return block;
}

int resultOf(Kind kind) {
  switch (kind) {
    case Kind::Assignment:
      return KFL::kBashAssignment;
    case Kind::Nothing:
      return KFL::kBashNothing;
    default:
      return KFL::kBashMalformed;
  }
}

// What is being read, for the report of a sanitizer.
const std::string* current = nullptr;

[[maybe_unused]] void tellLine() {
  if (current != nullptr) std::fprintf(stderr, "while reading: %s\n", printable(*current).c_str());
}

std::string checkExamined(const char* line, std::size_t size, const Reading& reading) {
  const KFL::KFLBashLine judged = KFL::examineBashLine(line);
  if (resultOf(judged.kind) != reading.result) return "reading and examining differ";
  if (judged.column > size + 1) return "the column lies behind the line";
  if (reading.result == KFL::kBashMalformed && judged.describe() != KFL::getErrorMessage())
    return "the error text is not the reason";
  if (reading.result != KFL::kBashAssignment) return "";
  const std::string_view before(line, reading.first);
  const std::size_t name = before.find_last_of(" \t", reading.first) + 1;
  if (before.substr(name) != reading.name + "=") return "the name does not stand before the value";
  const bool isSame = judged.name == reading.name && judged.value.data() == line + reading.first &&
                      judged.value.size() == reading.end - reading.first;
  return isSame ? "" : "reading and examining give other stretches";
}

}  // namespace

std::string checkPlain(std::string_view text) {
  KFL::KFLBashPlainLine plain;
  if (!KFL::readPlainBashLine(text, plain)) return "";
  if (plain.length != std::min(text.find('\n'), text.size())) return "a plain line has another end";
  std::vector<char> line(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(plain.length));
  const KFL::KFLBashJudgement judged = KFL::judgeBashLine({line.data(), line.size()});
  if (judged.line.name != plain.name || judged.line.reason != KFL::KFLBashLine::Reason::None ||
      (judged.line.kind == Kind::Assignment) == plain.name.empty() || judged.line.continues)
    return "a plain line is none to the grammar";
  if (plain.name.empty()) return "";
  if (judged.pieces.begin() != plain.first || judged.pieces.end() != plain.end)
    return "the value of a plain line stands elsewhere to the grammar";
  const std::size_t end = KFL::unquoteBashValue(line, judged.pieces);
  const bool isSame = std::string_view(line.data() + plain.first, end - plain.first) == plain.value;
  return isSame ? "" : "the value of a plain line is another to the grammar";
}

Reading readLine(const std::string& line) {
  current = &line;
#ifdef KFA_FUZZ_SANITIZED
  __sanitizer_set_death_callback(tellLine);
#endif
  Reading reading;
  const auto block = blockOf(line, line.size() + 1);
  char* name = nullptr;
  char* value = nullptr;
  unsigned int first = 0, last = 0;
  reading.result = KFL::parseBashStr(block.get(), &name, &value, &first, &last);
  if (reading.result == KFL::kBashAssignment) {
    reading.name = name;
    reading.value = value;
    reading.first = first;
    reading.end = last + 1U;
    if (first > line.size() || reading.end < first || reading.end > line.size()) {
      reading.broken = "the stretch lies outside the line";
      return reading;
    }
  } else if (line != block.get()) {
    reading.broken = "a line that assigns nothing was changed";
    return reading;
  }
  const auto own = blockOf(line, line.size() + 1);
  reading.broken = checkExamined(own.get(), line.size(), reading);
  if (reading.broken.empty()) reading.broken = checkPlain(line);
  return reading;
}

std::string replaceValue(const std::string& line, const Reading& reading, const std::string& value) {
  return line.substr(0, reading.first) + '"' + value + '"' + line.substr(reading.end);
}

std::string checkReplacement(const std::string& line, const Reading& reading, const std::string& value) {
  if (!KFL::isBashSafe(value, nullptr)) return "a safe value is refused: " + printable(value);
  const std::string replaced = replaceValue(line, reading, value);
  const Reading again = readLine(replaced);
  if (!again.broken.empty()) return again.broken;
  if (again.result != KFL::kBashAssignment || again.name != reading.name || again.value != value)
    return "a replaced value does not read back: " + printable(replaced);
  const bool isSamePlace = again.first == reading.first && again.end == reading.first + value.size() + 2;
  return isSamePlace ? "" : "the stretch of a replaced value is another: " + printable(replaced);
}

std::string printable(const std::string& line) {
  std::string text;
  for (const char c : line) {
    if (c >= ' ' && c <= '~') {
      text += c;
      continue;
    }
    char code[8];
    std::snprintf(code, sizeof code, "<%02x>", static_cast<unsigned int>(static_cast<unsigned char>(c)));
    text += code;
  }
  return text;
}

}  // namespace kfl_fuzz
