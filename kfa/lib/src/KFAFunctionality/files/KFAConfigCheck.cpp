#include <KFAFunctionality/files/KFAConfigCheck.h>

#include <unordered_map>

#include <KFLCommon/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include "KFABashLines.h"

namespace KFA {

namespace {

using Severity = KFAConfigFinding::Severity;
using Kind = KFL::KFLBashLine::Kind;

class Checker {
 public:
  Checker(const KFAConfigRules& rules, std::string_view text) : rules_(rules), lines_(text) {}

  std::vector<KFAConfigFinding> run() {
    while (lines_.next())
      checkLine();
    return std::move(findings_);
  }

 private:
  void add(Severity severity, std::size_t column, const std::string& text) {
    findings_.push_back({severity, lines_.getNumber(), column, text, std::string(lines_.view())});
  }

  void checkLine();
  void checkAssignment(const KFL::KFLBashLine& line);
  void checkValue(const std::string& key, std::size_t column);

  const KFAConfigRules& rules_;
  BashLines lines_;
  std::unordered_map<std::string, std::size_t> lineOfKey_;
  std::vector<KFAConfigFinding> findings_;
};

void Checker::checkLine() {
  const KFL::KFLBashLine line = lines_.examine();
  if (line.kind == Kind::Malformed) return add(Severity::Error, line.column, describeFault(line));
  if (line.kind == Kind::Assignment) {
    checkAssignment(line);
  } else if (line.reason != KFL::KFLBashLine::Reason::None) {
    add(Severity::Warning, line.column, describeFault(line) + "; nothing is read from this line");
  }
  const std::size_t size = lines_.view().size();
  if (line.continues) {
    add(Severity::Warning, size, "the next line belongs to this one, but is read as a line of its own");
  }
  const std::size_t nul = lines_.view().find('\0');
  if (nul != std::string_view::npos) {
    add(Severity::Warning, nul + 1, "a NUL, which a shell drops; here it ends the line");
  }
}

void Checker::checkAssignment(const KFL::KFLBashLine& line) {
  const auto nameColumn = static_cast<std::size_t>(line.name.data() - lines_.getText()) + 1;
  const auto valueColumn = static_cast<std::size_t>(line.value.data() - lines_.getText()) + 1;
  const std::string key = KFL::toLower(std::string(line.name));
  const auto [entry, isNew] = lineOfKey_.emplace(key, lines_.getNumber());
  if (!isNew) {
    add(Severity::Warning, nameColumn,
        KFL::toUpper(key) + " repeats line " + std::to_string(entry->second) + "; the last one counts");
    entry->second = lines_.getNumber();
  }
  if (!rules_.isKey(key)) {
    add(Severity::Note, nameColumn, KFL::toUpper(key) + " is not a key of this file");
  } else {
    checkValue(key, valueColumn);
  }
  if (line.endsWithCarriageReturn) {
    add(Severity::Warning, valueColumn + line.value.size() - 1,
        "a carriage return, which belongs to the value; lines that end with a newline alone are wanted");
  }
}

void Checker::checkValue(const std::string& key, std::size_t column) {
  std::string copy(lines_.getText());
  char* name = nullptr;
  char* value = nullptr;
  if (KFL::parseBashStr(copy.data(), &name, &value, nullptr, nullptr) != KFL::kBashAssignment) return;
  if (rules_.accept(key, value) != 0) add(Severity::Error, column, KFL::getErrorMessage());
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
