// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAConfigFix.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLText.h>

#include "KFAConfigLines.h"

namespace KFA {

namespace {

struct FixedLine {
  std::size_t number = 0;
  std::string text;
  bool hasNewline = true;
  bool isOpen = false;  // within a command of several lines, or behind one: a shell may not come to it
  bool isGone = false;
};

void replaceAll(std::string& text, std::string_view what, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, what.size(), by);
}

bool hasOddBytes(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c == '\xc2' || c == '\xe2' || c == '\xe3'; });
}

// Ordinary blanks and quotes in the place of those of word processors.
std::string withPlainMarks(std::string text) {
  for (const std::string_view space : {"\xc2\xa0", "\xe2\x80\xaf", "\xe3\x80\x80"})
    replaceAll(text, space, " ");
  for (const std::string_view quote : {"\xe2\x80\x9c", "\xe2\x80\x9d", "\xe2\x80\x9e"})
    replaceAll(text, quote, "\"");
  for (const std::string_view quote : {"\xe2\x80\x98", "\xe2\x80\x99", "\xe2\x80\x9a"})
    replaceAll(text, quote, "'");
  return text;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && KFL::isBlank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && KFL::isBlank(text.back()))
    text.remove_suffix(1);
  return text;
}

// Whether an unquoted value holds more than words to a shell: an operator, an expansion, or another assignment.
bool isCode(std::string_view value) {
  if (value.find_first_of(";&|<>()$`\"'\\") != std::string_view::npos) return true;
  const std::size_t second = std::min(value.find_first_of(" \t"), value.size());
  return value.find('=', second) != std::string_view::npos;
}

// What stands between blanks outside quotes.
std::vector<std::string> wordsOf(std::string_view text) {
  std::vector<std::string> words;
  char quote = 0;
  bool isInside = false;
  for (const char c : text) {
    if (quote == 0 && KFL::isBlank(c)) {
      isInside = false;
      continue;
    }
    if (!std::exchange(isInside, true)) words.emplace_back();
    words.back() += c;
    if (quote == c)
      quote = 0;
    else if (quote == 0 && (c == '"' || c == '\''))
      quote = c;
  }
  return words;
}

// `KEY = value` and `KEY: value` as KEY="value", with what stands in front of them; empty for any other line.
std::string withoutBlanks(const std::string& text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
  std::size_t end = begin;
  while (end < text.size() && (KFL::isAlnum(text[end]) || text[end] == '_'))
    ++end;
  const std::size_t mark = text.find_first_not_of(" \t", end);
  if (end == begin || mark == std::string::npos || (text[mark] != '=' && text[mark] != ':')) return {};
  std::string_view value = trimmed(std::string_view(text).substr(mark + 1));
  std::string comment;
  const bool isQuoted = !value.empty() && (value.front() == '"' || value.front() == '\'');
  if (const std::size_t hash = value.find(" #"); !isQuoted && hash != std::string_view::npos) {
    comment = "  " + std::string(trimmed(value.substr(hash)));
    value = trimmed(value.substr(0, hash));
  }
  if (!isQuoted && isCode(value)) return {};
  const std::string quote = isQuoted ? "" : "\"";
  return text.substr(0, end) + "=" + quote + std::string(value) + quote + comment;
}

// Whether a line gives a variable its value and does nothing else: NAME=VALUE, without export, += or a second command.
bool isPlain(const ConfigLine& line) {
  return line.isAssignment() && line.isAlone() &&
         trimmed(line.front()) == std::string(line.judged().name) + "=";
}

// Whether what a shell makes of a value may depend on the variable.
bool mayRead(std::string_view written, std::string_view name) {
  for (std::size_t at = 0; (at = written.find_first_of("$`", at)) != std::string_view::npos; ++at) {
    std::string_view left = written.substr(at + 1);
    if (left.starts_with('{')) left.remove_prefix(1);
    const auto isOfName = [](char c) { return KFL::isAlnum(c) || c == '_'; };
    const auto end = std::find_if_not(left.begin(), left.end(), isOfName);
    const std::string_view read = left.substr(0, static_cast<std::size_t>(end - left.begin()));
    if (written[at] == '`' || read.empty() || read == name) return true;
  }
  return false;
}

// Whether one of these lines may read the variable of another one, or keep a shell from the next.
bool isRead(const FixedLine& assigning, const FixedLine* from, const FixedLine* end) {
  const ConfigLine assigned(assigning.text);
  return std::any_of(from, end, [&](const FixedLine& fixed) {
    const ConfigLine line(fixed.text);
    return !line.isSilent() && (!isPlain(line) || mayRead(line.written(), assigned.judged().name));
  });
}

// Whether lines of one key are about one variable of a shell: it has another one for each spelling. Where the first counts
// for us, the last one does for a shell, so all have to say the same.
bool isOneVariable(const std::vector<FixedLine*>& all, bool isSameWanted) {
  const ConfigLine first(all.front()->text);
  return std::all_of(all.begin(), all.end(), [&](const FixedLine* fixed) {
    const ConfigLine line(fixed->text);
    return line.judged().name == first.judged().name && (!isSameWanted || line.value() == first.value());
  });
}

// The lines that assign to a key, from 1.
struct Assigning {
  std::size_t first = 0;
  std::size_t last = 0;  // that gives a value, if any does
  bool gives = false;
};

class Fixer {
 public:
  // isStrict: no line comes to assign to a key that it did not assign to.
  Fixer(const KFAConfigRules& rules, std::vector<KFAConfigFix>& fixes, bool isStrict)
      : rules_(rules), fixes_(fixes), isStrict_(isStrict) {}

  std::string run(const std::string& text) {
    findAssigning(text);
    take(text);
    for (FixedLine& line : lines_)
      if (!line.isOpen) fixLine(line);
    dropIdle();
    return join();
  }

 private:
  void note(std::size_t line, const std::string& what) { fixes_.push_back({line, what}); }
  void findAssigning(const std::string& text);
  bool displaces(const std::string& key, std::size_t line) const;
  bool mayBecome(const std::string& before, const std::string& after, std::size_t line) const;
  void take(const std::string& text);
  std::vector<std::string> split(const std::string& text, std::size_t number) const;
  void fixLine(FixedLine& fixed);
  void fixValue(FixedLine& fixed);
  bool isTaken(const std::string& text) const;
  std::string flagFor(const std::string& key, const std::string& value) const;
  void dropIdle();
  std::string join() const;

  const KFAConfigRules& rules_;
  std::vector<KFAConfigFix>& fixes_;
  const bool isStrict_;
  std::map<std::string, Assigning> assigning_;
  std::vector<FixedLine> lines_;
};

void Fixer::findAssigning(const std::string& text) {
  const auto* const rules = dynamic_cast<const KFAEnvConfigRules*>(&rules_);
  for (ConfigLines lines(text); lines.next();) {
    if (!lines.line().isAssignment()) continue;
    const ConfigLine& line = lines.line();
    Assigning& here = assigning_[line.key()];
    // Behind a line that gives a value, one that gives none does not count.
    const bool gives = rules == nullptr || !rules->passesOver(line.key(), line.value());
    if (gives || !here.gives) here.last = lines.number();
    here.gives = here.gives || gives;
    if (here.first == 0) here.first = lines.number();
  }
}

// Whether an assignment to the key, new in this line, would count in the place of one that there was.
bool Fixer::displaces(const std::string& key, std::size_t line) const {
  const auto found = assigning_.find(key);
  if (found == assigning_.end()) return false;
  return rules_.firstLineCounts(key) ? line < found->second.first : line >= found->second.last;
}

// What was taken stays, so a line that only looks like an assignment is none that another one of its key belies. What was
// read stays readable.
bool Fixer::mayBecome(const std::string& before, const std::string& after, std::size_t line) const {
  const ConfigLine is(after);
  const ConfigLine was(before);
  if (is.isMalformed() && !was.isMalformed()) return false;
  if (is.judged().continues && !was.judged().continues) return false;
  if (!is.isAssignment() || !rules_.isKey(is.key())) return true;
  if (was.isAssignment() && was.key() == is.key()) return true;
  return !isStrict_ && !displaces(is.key(), line);
}

void Fixer::take(const std::string& text) {
  constexpr std::string_view kMark = "\xef\xbb\xbf";
  std::string_view left = text;
  while (left.starts_with(kMark))
    left.remove_prefix(kMark.size());
  const std::string first = text.substr(0, text.find('\n'));
  const std::size_t marks = text.size() - left.size();
  if (marks > 0 && mayBecome(first, first.substr(marks), 1))
    note(1, "a byte order mark taken out");
  else
    left = text;
  bool isOpen = false;
  for (ConfigLines lines(left); lines.next();) {
    const bool hasNewline = lines.withNewline().size() > lines.text().size();
    std::string line(lines.text());
    const std::string bare = line.substr(0, line.find_last_not_of('\r') + 1);
    if (bare != line && mayBecome(line, bare, lines.number())) {
      line = bare;
      note(lines.number(), "a carriage return taken out");
    }
    const ConfigLine whole(line);
    isOpen = isOpen || (whole.isPart() && !whole.isMalformed());
    const std::vector<std::string> parts =
        isOpen ? std::vector<std::string>{line} : split(line, lines.number());
    if (parts.size() > 1) note(lines.number(), "each assignment on a line of its own");
    for (std::size_t i = 0; i < parts.size(); ++i)
      lines_.emplace_back(FixedLine{lines.number(), parts[i], hasNewline || i + 1 < parts.size(), isOpen});
  }
}

// The assignments of a line that is nothing else, one by one; any other line as it is.
std::vector<std::string> Fixer::split(const std::string& text, std::size_t number) const {
  if (ConfigLine(text).judged().reason != KFL::KFLBashLine::Reason::TwoAssignments) return {text};
  std::vector<std::string> words = wordsOf(text);
  const bool isSplit = std::all_of(words.begin(), words.end(), [&](const auto& word) {
    return isTaken(word) && mayBecome(text, word, number);
  });
  return isSplit ? words : std::vector<std::string>{text};
}

// Whether a line assigns, alone, a value that one of our keys takes.
bool Fixer::isTaken(const std::string& text) const {
  const ConfigLine line(text);
  return line.isAssignment() && line.isAlone() && rules_.isKey(line.key()) &&
         rules_.accept(line.key(), line.value()) == 0 && KFL::isBashSafe(line.value(), nullptr);
}

// A key of yes and no takes nothing else.
std::string Fixer::flagFor(const std::string& key, const std::string& value) const {
  static const std::map<std::string, std::string> words = {
      {"true", "yes"}, {"on", "yes"}, {"1", "yes"}, {"y", "yes"},   {"false", "no"},
      {"off", "no"},   {"0", "no"},   {"n", "no"},  {"yes", "yes"}, {"no", "no"}};
  const auto found = words.find(KFL::toLower(std::string(trimmed(value))));
  const bool isFlag =
      rules_.accept(key, "yes") == 0 && rules_.accept(key, "no") == 0 && rules_.accept(key, "maybe") != 0;
  return found == words.end() || !isFlag ? std::string() : found->second;
}

void Fixer::fixValue(FixedLine& fixed) {
  const ConfigLine line(fixed.text);
  if (!line.isAssignment() || !rules_.isKey(line.key()) || rules_.accept(line.key(), line.value()) == 0)
    return;
  const std::string flag = flagFor(line.key(), line.value());
  if (flag.empty()) return;
  note(fixed.number, KFL::toUpper(line.key()) + ": " + flag + " for " + line.value());
  fixed.text = std::string(line.front()) + "\"" + flag + "\"" + std::string(line.rest());
}

void Fixer::fixLine(FixedLine& fixed) {
  const ConfigLine line(fixed.text);
  if (line.isSilent()) return;
  const std::string code(line.isAssignment() ? fixed.text.substr(0, fixed.text.size() - line.rest().size())
                                             : fixed.text);
  const bool isQuoted = line.isAssignment() && !line.written().empty() &&
                        (line.written().front() == '"' || line.written().front() == '\'');
  if (!isQuoted && hasOddBytes(code)) {
    const std::string plain = withPlainMarks(fixed.text);
    const std::string both = withoutBlanks(plain);
    for (const std::string& candidate : {plain, both}) {
      if (candidate.empty() || candidate == fixed.text || !isTaken(candidate) ||
          !mayBecome(fixed.text, candidate, fixed.number))
        continue;
      note(fixed.number, "blanks and quotes of a word processor replaced");
      fixed.text = candidate;
      break;
    }
  }
  const ConfigLine now(fixed.text);
  if (!now.isAssignment() || !rules_.isKey(now.key())) {
    std::string candidate = withoutBlanks(fixed.text);
    FixedLine trial{fixed.number, candidate};
    const std::size_t count = fixes_.size();
    if (!candidate.empty()) fixValue(trial);
    if (candidate.empty() || !isTaken(trial.text) || !mayBecome(fixed.text, trial.text, fixed.number)) {
      fixes_.resize(count);
      return;
    }
    fixed.text = trial.text;
    fixes_.insert(fixes_.begin() + static_cast<std::ptrdiff_t>(count),
                  {fixed.number, "KEY=\"value\" in the place of " + now.text()});
  } else {
    fixValue(fixed);
  }
}

// Of several lines with one key only the one that counts stays, where its value is taken, and where a shell gives every
// variable what it gave before: an idle line goes where nothing up to the other one can read it.
void Fixer::dropIdle() {
  std::map<std::string, std::vector<FixedLine*>> repeated;
  for (FixedLine& fixed : lines_) {
    const ConfigLine line(fixed.text);
    if (line.isMalformed()) return;
    if (!fixed.isOpen && line.isAssignment() && rules_.isKey(line.key()))
      repeated[line.key()].push_back(&fixed);
  }
  for (const auto& [key, all] : repeated) {
    const FixedLine* const counting = rules_.firstLineCounts(key) ? all.front() : all.back();
    if (all.size() == 1 || rules_.accept(key, ConfigLine(counting->text).value()) != 0) continue;
    if (!isOneVariable(all, counting == all.front())) continue;
    for (FixedLine* idle : all) {
      const auto [first, last] = std::minmax<const FixedLine*>(idle, counting);
      if (idle == counting || !isPlain(ConfigLine(idle->text)) || isRead(*idle, first + 1, last + 1))
        continue;
      idle->isGone = true;
      note(idle->number,
           KFL::toUpper(key) + " taken out, which line " + std::to_string(counting->number) + " decides");
    }
  }
}

std::string Fixer::join() const {
  std::string text;
  for (const FixedLine& line : lines_) {
    if (line.isGone) continue;
    text += line.text;
    if (line.hasNewline) text += '\n';
  }
  return text;
}

// The values that the keys take of a text, but those with marks that are none of theirs.
KFAConfigChanges takenOf(const KFAConfigRules& rules, const std::string& text) {
  std::map<std::string, std::string> values;
  for (ConfigLines lines(text); lines.next();) {
    const ConfigLine& line = lines.line();
    if (!line.isAssignment() || !rules.isKey(line.key())) continue;
    const auto [entry, isNew] = values.try_emplace(line.key(), line.value());
    if (!isNew && !rules.firstLineCounts(line.key())) entry->second = line.value();
  }
  std::erase_if(values, [&](const auto& entry) {
    return entry.second.ends_with('\r') || hasOddBytes(entry.second) ||
           rules.accept(entry.first, entry.second) != 0;
  });
  KFAConfigChanges taken(values.begin(), values.end());
  // Where two keys contradict each other, what one of them says is not taken.
  if (rules.readsBack(text, taken) != 0)
    std::erase_if(taken, [&](const auto& value) { return rules.readsBack(text, {value}) != 0; });
  return taken;
}

}  // namespace

std::string fixConfig(const KFAConfigRules& rules, const std::string& text,
                      std::vector<KFAConfigFix>& fixes) {
  fixes.clear();
  std::string fixed = Fixer(rules, fixes, false).run(text);
  // A new line of one key can overrule another key, as TECHNOLOGIES does ARCH.
  if (fixed != text && rules.readsBack(fixed, takenOf(rules, text)) != 0) {
    fixes.clear();
    fixed = Fixer(rules, fixes, true).run(text);
  }
  std::stable_sort(fixes.begin(), fixes.end(), [](const auto& a, const auto& b) { return a.line < b.line; });
  return fixed;
}

}  // namespace KFA
