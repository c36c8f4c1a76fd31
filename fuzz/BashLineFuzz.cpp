// SPDX-License-Identifier: Apache-2.0
// Holds each line against the bash of the machine: result, stretch and value are what bash says they are, and a safe value
// put in the place of the stretch reads back. Nothing is run; see README.md.
//
// KFA_FUZZ_DIFFERENCES=FILE appends the differences, each made as short as it gets, and goes on instead of aborting.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include "BashLines.h"
#include "BashOracle.h"
#include "BashReading.h"

namespace {

using kfl_fuzz::BashLines;
using kfl_fuzz::BashOracle;
using kfl_fuzz::printable;
using kfl_fuzz::Reading;
using kfl_fuzz::Verdict;

// Random lines that join those of an input.
constexpr std::size_t kLinesOfAnInput = 256;

std::uint32_t bitOf(int result) {
  switch (result) {
    case KFL::kBashAssignment:
      return Verdict::kAssigns;
    case KFL::kBashNothing:
      return Verdict::kNothing;
    default:
      return Verdict::kMalformed;
  }
}

// Where the judge found no end of the value.
constexpr std::uint32_t kUnknown = UINT32_MAX;

// What a difference is, without its particulars; empty when there is none.
struct Difference {
  std::string kind, particulars;
};

// Whether bash would put something in the place of the dollar sign; $VEID and ${VEID} are welcome.
bool isExpanded(std::string_view rest) {
  const bool isWelcome =
      rest.starts_with("${VEID}") ||
      (rest.starts_with("$VEID") && (rest.size() == 5 || !KFL::isBashName("_" + std::string(1, rest[5]))));
  return !isWelcome && rest.size() > 1 &&
         (KFL::isBashName("_" + std::string(1, rest[1])) ||
          std::string_view("{([@*#?$!-").find(rest[1]) != std::string_view::npos);
}

// A safe value is what bash reads back from between double quotes, and what it reads back and does not expand is safe.
std::string checkSafety(const std::string& written, const std::string& value) {
  if (written.size() < 2 || written.front() != '"' || written.back() != '"') return "";
  const std::string text = written.substr(1, written.size() - 2);
  const bool isSafe = KFL::isBashSafe(text, nullptr);
  if (isSafe && text != value) return "a safe value is read otherwise";
  for (std::size_t at = 0; isSafe && (at = text.find('$', at)) != std::string::npos; ++at) {
    if (isExpanded(std::string_view(text).substr(at))) return "a value is called safe that bash expands";
  }
  const bool isPrintable = std::ranges::none_of(text, [](char c) { return KFL::isControl(c) && c != '\t'; });
  const bool isKept = text == value && isPrintable && text.find_first_of("$`\"") == std::string::npos;
  return isKept && !isSafe ? "a value is called unsafe without need" : "";
}

Difference compare(const std::string& line, const Verdict& verdict) {
  const Reading reading = kfl_fuzz::readLine(line);
  if (!reading.broken.empty()) return {reading.broken, ""};
  if ((verdict.allowed & bitOf(reading.result)) == 0) {
    const std::string told = reading.result == KFL::kBashMalformed ? ": " + KFL::getErrorMessage() : "";
    return {"reads as " + std::to_string(reading.result), told};
  }
  if (reading.result != KFL::kBashAssignment) return {};
  if (reading.first != verdict.first || (verdict.end != kUnknown && reading.end != verdict.end))
    return {"stretch", std::to_string(reading.first) + " to " + std::to_string(reading.end)};
  if (verdict.isValueKnown != 0 && reading.value != verdict.value) return {"value", printable(reading.value)};
  const std::string broken =
      checkSafety(line.substr(reading.first, reading.end - reading.first), reading.value);
  if (!broken.empty()) return {broken, ""};
  return {kfl_fuzz::checkReplacement(line, reading, "it's a 'safe' value; #1"), ""};
}

std::string saying(const Verdict& verdict) {
  std::string text;
  for (const auto& [bit, name] :
       {std::pair{Verdict::kAssigns, "assigns"}, std::pair{Verdict::kNothing, "nothing"},
        std::pair{Verdict::kMalformed, "malformed"}})
    text += (verdict.allowed & bit) != 0 ? (text.empty() ? "" : " or ") + std::string(name) : "";
  if ((verdict.allowed & Verdict::kAssigns) != 0)
    text += " " + printable(verdict.value) + " (" + std::to_string(verdict.first) + " to " +
            std::to_string(verdict.end) + ")";
  return text + (verdict.why.empty() ? "" : "; " + printable(verdict.why));
}

class Proof {
 public:
  ~Proof() {
    std::fprintf(stderr, "%zu lines were held against bash, %zu differ; of %zu it did not tell the value\n",
                 lines_, differences_, unknown_);
  }

  void hold(const std::vector<std::string>& lines) {
    std::vector<Verdict> verdicts = oracle_.ask(lines);
    // Of a line alone a fresh bash must die, too.
    if (verdicts.empty() && lines.size() == 1) verdicts = oracle_.ask(lines);
    lines_ += verdicts.size();
    if (verdicts.empty()) return holdEach(lines);
    for (std::size_t i = 0; i < lines.size(); ++i) {
      unknown_ += verdicts[i].allowed == Verdict::kAssigns && verdicts[i].isValueKnown == 0 ? 1 : 0;
      if (!compare(lines[i], verdicts[i]).kind.empty()) report(lines[i]);
    }
  }

 private:
  // Finds the line of which bash itself dies.
  void holdEach(const std::vector<std::string>& lines) {
    if (lines.size() == 1) {
      std::fprintf(stderr, "bash died of: %s\n", printable(lines[0]).c_str());
      return;
    }
    for (const std::string& line : lines)
      hold({line});
  }

  Difference differenceOf(const std::string& line, Verdict& verdict) {
    const std::vector<Verdict> verdicts = oracle_.ask({line});
    if (verdicts.empty()) return {};
    verdict = verdicts[0];
    return compare(line, verdict);
  }

  // A bash that has seen no other line must say the same.
  void report(std::string line) {
    oracle_.stop();
    Verdict verdict;
    Difference difference = differenceOf(line, verdict);
    if (difference.kind.empty()) {
      std::fprintf(stderr, "bash changed its mind about: %s\n", printable(line).c_str());
      return;
    }
    ++differences_;
    const std::string whole = line;
    for (std::size_t length = line.size() / 2 + 1; length > 0; length /= 2)
      shorten(line, length, difference.kind);
    difference = differenceOf(line, verdict);
    const std::string text = printable(line) + "\n  here: " + difference.kind + " " + difference.particulars +
                             "\n  bash: " + saying(verdict) + "\n";
    const char* const file = std::getenv("KFA_FUZZ_DIFFERENCES");
    if (file == nullptr) {
      std::fprintf(stderr, "%s  from: %s\n", text.c_str(), printable(whole).c_str());
      std::abort();
    }
    if (told_.insert(line).second) tell(file, text);
  }

  void shorten(std::string& line, std::size_t length, const std::string& kind) {
    Verdict verdict;
    for (std::size_t at = 0; at + length <= line.size();) {
      const std::string shorter = line.substr(0, at) + line.substr(at + length);
      if (differenceOf(shorter, verdict).kind == kind)
        line = shorter;
      else
        ++at;
    }
  }

  static void tell(const char* file, const std::string& text) {
    std::FILE* const out = std::fopen(file, "a");
    if (out == nullptr) std::abort();
    std::fputs(text.c_str(), out);
    std::fclose(out);
  }

  BashOracle oracle_;
  std::set<std::string> told_;
  std::size_t lines_ = 0, differences_ = 0, unknown_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Proof proof;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> lines = kfl_fuzz::linesOf(input);
  BashLines more(input);
  for (std::size_t i = 0; i < kLinesOfAnInput; ++i)
    lines.push_back(more.next());
  proof.hold(lines);
  return 0;
}
