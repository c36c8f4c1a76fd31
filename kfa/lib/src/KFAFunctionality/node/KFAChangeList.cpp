// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFAChangeList.h>

#include <algorithm>
#include <set>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/node/KFAConfigLines.h>

namespace KFA {

namespace {

constexpr std::string_view kUnset = "unset";
constexpr std::string_view kWas = "was: ";

int refuse(const std::string& name, std::size_t line, const std::string& what) {
  KFL::setErrorMessage("%s:%zu: %s", name.c_str(), line, what.c_str());
  return -1;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && KFL::isSpace(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && KFL::isSpace(text.back()))
    text.remove_suffix(1);
  return text;
}

// What stands behind "# was: " at the end of a line.
void takeFormer(std::string_view comment, KFAChange& change) {
  comment = trimmed(comment);
  if (!comment.starts_with('#')) return;
  comment = trimmed(comment.substr(1));
  if (!comment.starts_with(kWas)) return;
  comment = trimmed(comment.substr(kWas.size()));
  change.wasUnset = comment == kUnset;
  const ConfigLine former("X=" + std::string(comment));
  if (!change.wasUnset && former.isAssignment()) change.before = former.value();
}

// `unset KEY  # was: ...`
bool takeUnset(std::string_view line, KFAChange& change) {
  line = trimmed(line);
  if (!line.starts_with(kUnset) || line.size() == kUnset.size() || !KFL::isBlank(line[kUnset.size()]))
    return false;
  line = trimmed(line.substr(kUnset.size()));
  const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
  const std::string_view rest = trimmed(line.substr(end));
  if (!rest.empty() && !rest.starts_with('#')) return false;
  change.key = KFL::toLower(std::string(line.substr(0, end)));
  takeFormer(rest, change);
  return true;
}

// Drops the lines of these keys. A malformed line is refused, or by force left as it is.
int removeKeys(const std::set<std::string>& keys, bool byForce, const std::string& text,
               const std::string& name, std::string& result) {
  result.clear();
  for (ConfigLines lines(text); lines.next();) {
    const ConfigLine& line = lines.line();
    if (line.isMalformed() && !byForce) return refuse(name, lines.number(), line.fault());
    if (!line.isAssignment() || keys.count(line.key()) == 0) {
      result += lines.withNewline();
    } else if (!line.isAlone()) {
      return refuse(name, lines.number(),
                    "more than " + KFL::toUpper(line.key()) + " stands on this line, and would go with it");
    }
  }
  return 0;
}

}  // namespace

std::string quoteForShell(const std::string& text) {
  if (KFL::isBashSafe(text, nullptr)) return "\"" + text + "\"";
  const bool isPlain = KFL::isUtf8(text) && std::none_of(text.begin(), text.end(), KFL::isControl);
  std::string quoted = isPlain ? "'" : "$'";
  constexpr const char* kDigits = "0123456789abcdef";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (isPlain && c == '\'')
      quoted += "'\\''";
    else if (!isPlain && (c == '\'' || c == '\\'))
      quoted += {'\\', c};
    else if (!isPlain && (KFL::isControl(c) || byte >= 0x80))
      quoted += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 15U]};
    else
      quoted += c;
  }
  return quoted + "'";
}

std::string KFAChange::toString() const {
  std::string line = value ? KFL::toUpper(key) + "=" + quoteForShell(*value) : "unset " + KFL::toUpper(key);
  if (before)
    line += "  # was: " + quoteForShell(*before);
  else if (wasUnset)
    line += "  # was: unset";
  return line;
}

bool KFAChange::reverse() {
  if (!before && !wasUnset) return false;
  value.swap(before);
  wasUnset = !before;
  return true;
}

int parseChangeList(std::string_view text, const std::string& name, KFAChangeList& changes) {
  changes.clear();
  for (ConfigLines lines(text); lines.next();) {
    const ConfigLine& line = lines.line();
    KFAChange change;
    if (line.isMalformed()) return refuse(name, lines.number(), line.fault());
    if (line.isAssignment() && line.isAlone()) {
      change.key = line.key();
      change.value = line.value();
      takeFormer(line.rest(), change);
    } else if (line.isSilent()) {
      continue;
    } else if (!takeUnset(lines.text(), change)) {
      return refuse(name, lines.number(), "no change; KEY=\"value\" or 'unset KEY' is wanted");
    }
    changes.push_back(std::move(change));
  }
  return 0;
}

int applyChanges(const KFAConfigRules& rules, const KFAChangeList& changes, const KFASetOptions& options,
                 const std::string& text, const std::string& name, std::string& result) {
  KFAConfigChanges values;
  std::set<std::string> unset;
  for (const KFAChange& change : changes) {
    if (change.value)
      values.emplace_back(change.key, *change.value);
    else
      unset.insert(change.key);
  }
  for (const auto& [key, value] : values) {
    if (unset.count(key) == 0) continue;
    KFL::setErrorMessage("%s: %s is set and unset; one of the two is wanted", name.c_str(),
                         KFL::toUpper(key).c_str());
    return -1;
  }
  std::string rest = text;
  if (!unset.empty() && removeKeys(unset, options.force, text, name, rest) != 0) return -1;
  if (!values.empty()) return setConfigValues(rules, values, options, rest, name, result);
  result = std::move(rest);
  return 0;
}

}  // namespace KFA
