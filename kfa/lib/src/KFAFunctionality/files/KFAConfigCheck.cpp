// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAConfigCheck.h>

#include <algorithm>
#include <map>
#include <span>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFAGlobalConfigRules.h>

#include "KFABashLines.h"

namespace KFA {

namespace {

using Severity = KFAConfigFinding::Severity;
using Kind = KFL::KFLBashLine::Kind;

// The value that the current line, an assignment, gives its key. Between double quotes most stand as they are.
std::string valueOf(BashLines& lines, std::string_view written) {
  if (written.size() >= 2 && written.front() == '"' && written.back() == '"') {
    const std::string_view inside = written.substr(1, written.size() - 2);
    if (inside.find_first_of("\"\\$`") == std::string_view::npos) return std::string(inside);
  }
  std::string copy(lines.getText());
  char* name = nullptr;
  char* value = nullptr;
  return KFL::parseBashStr(copy.data(), &name, &value, nullptr, nullptr) == KFL::kBashAssignment ? value : "";
}

// Whether a line with this value leaves what another line of the key says.
bool passesOver(const KFAConfigRules& rules, const std::string& key, const std::string& value) {
  if (const auto* environment = dynamic_cast<const KFAEnvConfigRules*>(&rules))
    return environment->passesOver(key, value);
  const auto* global = dynamic_cast<const KFAGlobalConfigRules*>(&rules);
  return global != nullptr && global->passesOver(key, value);
}

class Checker {
 public:
  Checker(const KFAConfigRules& rules, std::string_view text) : rules_(rules), text_(text), lines_(text) {}

  std::vector<KFAConfigFinding> run() {
    while (lines_.next())
      checkLine();
    checkTogether();
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const auto& a, const auto& b) { return a.line < b.line; });
    return std::move(findings_);
  }

 private:
  // The line of a key that counts.
  struct Counted {
    std::size_t number;
    std::size_t column;  // of the value
    std::string value;
    bool isTaken;
    bool isIdle;  // gives nothing
  };

  void add(Severity severity, const char* rule, std::size_t column, const std::string& text) {
    findings_.push_back({severity, lines_.getNumber(), column, text, std::string(lines_.view()), rule});
  }

  void checkLine();
  void checkAssignment(const KFL::KFLBashLine& line);
  bool checkValue(const std::string& key, const std::string& value, std::size_t column);
  void checkSafe(const std::string& key, std::string_view value, std::size_t column, bool hasReturn);
  std::string lineOf(std::size_t number) const;
  void checkTogether();
  void findOverruled(const std::string& text, std::span<const KFAConfigChanges::value_type> changes);

  const KFAConfigRules& rules_;
  std::string_view text_;
  BashLines lines_;
  bool isMalformed_ = false;
  std::map<std::string, Counted> counted_;
  std::vector<KFAConfigFinding> findings_;
};

void Checker::checkLine() {
  const KFL::KFLBashLine line = lines_.examine();
  if (line.kind == Kind::Malformed) {
    isMalformed_ = true;
    return add(Severity::Error, "malformed-line", line.column, describeFault(line));
  }
  if (line.kind == Kind::Assignment) {
    checkAssignment(line);
  } else if (line.reason != KFL::KFLBashLine::Reason::None) {
    add(Severity::Warning, "not-an-assignment", line.column,
        describeFault(line) + "; nothing is read from this line");
  }
  const std::size_t size = lines_.view().size();
  if (line.continues) {
    add(Severity::Warning, "open-line", size,
        "the next line belongs to this one, but is read as a line of its own");
  }
  const std::size_t nul = lines_.view().find('\0');
  if (nul != std::string_view::npos) {
    add(Severity::Warning, "nul", nul + 1, "a NUL, which a shell drops; here it ends the line");
  }
}

void Checker::checkAssignment(const KFL::KFLBashLine& line) {
  const auto nameColumn = static_cast<std::size_t>(line.name.data() - lines_.getText()) + 1;
  const auto valueColumn = static_cast<std::size_t>(line.value.data() - lines_.getText()) + 1;
  const std::string key = KFL::toLower(std::string(line.name));
  const auto earlier = counted_.find(key);
  Counted counted = {lines_.getNumber(), valueColumn, valueOf(lines_, line.value), false, false};
  counted.isIdle = rules_.isKey(key) && passesOver(rules_, key, counted.value);
  const bool isFirst = earlier == counted_.end();
  const bool firstCounts = !isFirst && rules_.firstLineCounts(key);
  const bool earlierCounts = firstCounts || (!isFirst && counted.isIdle && !earlier->second.isIdle);
  if (!isFirst) {
    add(Severity::Warning, "repeated-key", nameColumn,
        KFL::toUpper(key) + " repeats line " + std::to_string(earlier->second.number) + "; the " +
            (earlierCounts ? "first" : "last") + " one counts" +
            (earlierCounts && !firstCounts ? ", since this one gives nothing" : ""));
  }
  if (!rules_.isKey(key)) {
    add(Severity::Note, "foreign-key", nameColumn, KFL::toUpper(key) + " is not a key of this file");
  } else {
    counted.isTaken = checkValue(key, counted.value, valueColumn);
    checkSafe(key, counted.value, valueColumn, line.endsWithCarriageReturn);
  }
  if (!earlierCounts) counted_.insert_or_assign(key, std::move(counted));
  if (line.endsWithCarriageReturn) {
    add(Severity::Warning, "carriage-return", valueColumn + line.value.size() - 1,
        "a carriage return, which belongs to the value; lines that end with a newline alone are wanted");
  }
}

// Whether the key takes the value.
bool Checker::checkValue(const std::string& key, const std::string& value, std::size_t column) {
  const bool isTaken = rules_.accept(key, value) == 0;
  if (!isTaken) add(Severity::Error, "value", column, KFL::getErrorMessage());
  return isTaken;
}

// Whether the value can be written back; a carriage return behind it has a warning of its own.
void Checker::checkSafe(const std::string& key, std::string_view value, std::size_t column, bool hasReturn) {
  if (hasReturn) value.remove_suffix(1);
  std::string reason;
  if (KFL::isBashSafe(value, &reason)) return;
  add(Severity::Warning, "unsafe-value", column,
      KFL::toUpper(key) + " cannot be written back between double quotes: " + reason);
}

std::string Checker::lineOf(std::size_t number) const {
  BashLines lines(text_);
  while (lines.next() && lines.getNumber() < number) {
  }
  return std::string(lines.view());
}

// A value that is sound alone may be overruled by that of another key.
void Checker::checkTogether() {
  if (isMalformed_) return;
  KFAConfigChanges all;
  for (auto& [key, counted] : counted_) {
    if (counted.isTaken) all.emplace_back(key, std::move(counted.value));
  }
  findOverruled(std::string(text_), all);
}

// Of many values that are read few are overruled: halves are tried, so that the text is read a few times for each of these.
void Checker::findOverruled(const std::string& text, std::span<const KFAConfigChanges::value_type> changes) {
  if (changes.empty() || rules_.readsBack(text, {changes.begin(), changes.end()}) == 0) return;
  if (const std::size_t half = changes.size() / 2; half > 0) {
    findOverruled(text, changes.first(half));
    findOverruled(text, changes.subspan(half));
    return;
  }
  const Counted& counted = counted_.at(changes.front().first);
  findings_.push_back({Severity::Warning, counted.number, counted.column, KFL::getErrorMessage(),
                       lineOf(counted.number), "overruled-value"});
}

}  // namespace

const char* toString(KFAConfigFinding::Severity severity) {
  constexpr const char* kNames[] = {"error", "warning", "note"};
  return kNames[static_cast<int>(severity)];
}

std::vector<KFAConfigFinding> checkConfig(const KFAConfigRules& rules, std::string_view text) {
  return Checker(rules, text).run();
}

}  // namespace KFA
