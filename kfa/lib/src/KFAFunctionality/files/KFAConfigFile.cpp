// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAConfigFile.h>

#include <fcntl.h>

#include <cerrno>
#include <map>
#include <sstream>

#include <boost/core/ref.hpp>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAMemoryStream.h>

#include "KFABashLines.h"
#include "KFADescriptor.h"

namespace KFA {

namespace {

using System = KFL::KFLSystem;

// Writes the keys that are set, and no others.
class ChangesParser {
 public:
  explicit ChangesParser(const KFAConfigChanges& changes) : changes_(changes) {
    for (const auto& [key, value] : changes_)
      values_.emplace(key, &value);
  }

  int get(const std::string& key, std::string& value) const {
    const auto found = values_.find(key);
    if (found == values_.end()) return kParameterUnknown;
    value = *found->second;
    return kParameterDone;
  }

  int getNext(const std::string&, std::string& next) {
    if (next_ == changes_.size()) return kParameterFailed;
    next = changes_[next_++].first;
    return kParameterDone;
  }

 private:
  const KFAConfigChanges& changes_;
  std::map<std::string_view, const std::string*> values_;
  std::size_t next_ = 0;
};

int refuse(const std::string& name, const std::string& what) {
  KFL::setErrorMessage("%s: %s", name.c_str(), what.c_str());
  return -1;
}

// -1; or 1 for a file that another machine has replaced.
int fail(const std::string& name, const char* what, int error) {
  refuse(name, std::string(what) + ": " + describeError(error));
  return error == ESTALE ? 1 : -1;
}

// The changes with lower-case keys, each once.
int normalize(const KFAConfigRules& rules, const KFAConfigChanges& changes, const std::string& name,
              KFAConfigChanges& normal) {
  std::map<std::string, std::string> unique;
  for (const auto& [key, value] : changes) {
    const std::string lower = KFL::toLower(key);
    const auto [entry, isNew] = unique.emplace(lower, value);
    if (!isNew && entry->second != value) {
      return refuse(name, KFL::toUpper(key) + " is given two values; one is wanted");
    }
  }
  normal.assign(unique.begin(), unique.end());
  rules.order(normal);
  return 0;
}

// Sets `unsafe` when a value is taken that does not read back as it stands.
int acceptAll(const KFAConfigRules& rules, const KFAConfigChanges& changes, const KFASetOptions& options,
              const std::string& name, bool& unsafe) {
  for (const auto& [key, value] : changes) {
    std::string reason;
    const bool safe = KFL::isBashSafe(value, &reason);
    const bool oneLine = value.find('\n') == std::string::npos && value.find('\0') == std::string::npos;
    if (!oneLine || (!safe && !options.allowUnsafe)) {
      return refuse(name, KFL::toUpper(key) + ": " + reason +
                              "; a text that a shell reads back as it stands is wanted");
    }
    unsafe = unsafe || !safe;
    if (rules.accept(key, value) != 0) return refuse(name, KFL::getErrorMessage());
  }
  return 0;
}

int refuseLine(const std::string& name, std::size_t number, const KFL::KFLBashLine& line) {
  return refuse(name + ":" + std::to_string(number) + ":" + std::to_string(line.column), describeFault(line));
}

// Refuses a text with a line that cannot be read, or that goes on in the next one.
int refuseFaultyLines(std::string_view text, const std::string& name) {
  for (BashLines lines(text); lines.next();) {
    const KFL::KFLBashLine line = lines.examine();
    if (line.kind == KFL::KFLBashLine::Kind::Malformed) return refuseLine(name, lines.getNumber(), line);
    if (!line.continues) continue;
    const std::string end =
        ":" + std::to_string(lines.getNumber()) + ":" + std::to_string(lines.view().size());
    return refuse(name + end, "the next line belongs to this one; a line for each command is wanted");
  }
  return 0;
}

bool assigns(std::string_view text, const std::string& key) {
  for (BashLines lines(text); lines.next();) {
    const KFL::KFLBashLine line = lines.examine();
    if (line.kind == KFL::KFLBashLine::Kind::Assignment && KFL::toLower(std::string(line.name)) == key)
      return true;
  }
  return false;
}

// Refuses names that a line would have in lower case only, unless one has it so.
int refuseKeptNames(std::string_view text, const KFAConfigChanges& changes, const std::string& name) {
  for (const auto& [key, value] : changes) {
    const std::string upper = KFL::toUpper(key);
    if (KFL::isSpecialBashName(upper) && !assigns(text, key))
      return refuse(name,
                    upper + ": a variable that bash itself sets and no file can; another name is wanted");
  }
  return 0;
}

// A value that is no safe text may end its line elsewhere, but nobody may be kept from reading the file.
int refuseUnreadable(std::string_view text, const std::string& name) {
  if (refuseFaultyLines(text, name) == 0) return 0;
  const std::string fault = KFL::getErrorMessage();
  KFL::setErrorMessage("%s; nobody could read the file any more", fault.c_str());
  return -1;
}

}  // namespace

int setConfigValues(const KFAConfigRules& rules, const KFAConfigChanges& changes,
                    const KFASetOptions& options, const std::string& text, const std::string& name,
                    std::string& result) {
  KFAConfigChanges normal;
  bool unsafe = false;
  if (normalize(rules, changes, name, normal) != 0) return -1;
  if (acceptAll(rules, normal, options, name, unsafe) != 0) return -1;
  const bool faulty = refuseFaultyLines(text, name) != 0;
  if ((faulty && !options.force) || refuseKeptNames(text, normal, name) != 0) return -1;

  KFAMemoryStream existing(text);
  std::ostringstream out;
  ChangesParser parser(normal);
  if (serializeBashLikeConfig(parser, out, &existing, true) != 0) return refuse(name, KFL::getErrorMessage());
  std::string after = std::move(out).str();
  if (unsafe && !faulty && refuseUnreadable(after, name) != 0) return -1;
  if (!unsafe && !faulty && rules.readsBack(after, normal) != 0) return refuse(name, KFL::getErrorMessage());
  result = std::move(after);
  return 0;
}

int readConfigText(std::string_view text, const std::string& name,
                   const boost::function<int(std::istream&)>& getConfig) {
  KFAMemoryStream stream(text);
  return getConfig(stream) == 0 ? 0 : nameMalformedLine(text, name);
}

int nameMalformedLine(std::string_view text, const std::string& name) {
  for (BashLines lines(text); lines.next();) {
    const KFL::KFLBashLine line = lines.examine();
    if (line.kind == KFL::KFLBashLine::Kind::Malformed) return refuseLine(name, lines.getNumber(), line);
  }
  return refuse(name, KFL::getErrorMessage());
}

bool parseVeidOfName(std::string_view name, int& veid) {
  constexpr std::string_view kSuffix = ".conf";
  if (!name.ends_with(kSuffix) || !KFL::isDigit(name.front())) return false;
  const std::string_view digits = name.substr(0, name.size() - kSuffix.size());
  return (digits.size() == 1 || digits.front() != '0') && KFL::parseInteger(digits, veid) == 0;
}

int getVeidOfPath(const std::string& path, int& veid) {
  const std::size_t slash = path.rfind('/');
  const std::string_view name = std::string_view(path).substr(slash == std::string::npos ? 0 : slash + 1);
  if (parseVeidOfName(name, veid)) return 0;
  return refuse(path, "no VEID in the name; a name such as 101.conf is wanted");
}

// 0 or -1; 1 when another machine has replaced the file, which is to be read anew.
static int readOnce(const std::string& path, std::string& text) {
  const Descriptor file = openForReading(AT_FDCWD, path);
  struct stat status {};
  if (!file.isOpen() || System::fstat(file.get(), &status) != 0) return fail(path, "cannot be opened", errno);
  if (S_ISDIR(status.st_mode)) return refuse(path, "a folder; a file is wanted");
  // Opening did not wait for the other end of a pipe; reading does.
  const bool isRegular = S_ISREG(status.st_mode);
  if (!isRegular && System::fcntl(file.get(), F_SETFL, O_RDONLY) != 0)
    return fail(path, "cannot be read", errno);
  if (isTooLong(status)) return fail(path, "longer than 1 GiB, so it cannot be read", EFBIG);
  std::string content;
  content.resize((isRegular ? static_cast<std::size_t>(status.st_size) : 0) + 1);
  std::size_t length = 0;
  if (const int error = readToEnd(file.get(), content, length); error != 0)
    return fail(path, "cannot be read", error);
  content.resize(length);
  text = std::move(content);
  return 0;
}

int KFAConfigFile::read(std::string& text) const {
  int result = 1;
  for (int tries = 0; tries < kMostTries && result == 1; ++tries)
    result = readOnce(path_, text);
  return result == 0 ? 0 : -1;
}

int KFAConfigFile::read(const boost::function<int(std::istream&)>& getConfig) const {
  std::string text;
  return read(text) == 0 ? readConfigText(text, path_, getConfig) : -1;
}

int KFAConfigFile::set(const KFAConfigRules& rules, const KFAConfigChanges& changes,
                       const KFASetOptions& options, const KFAReplaceOptions& how) const {
  const auto edit = [&](const std::string& before, std::string& after) {
    return setConfigValues(rules, changes, options, before, path_, after);
  };
  return update(boost::cref(edit), how);
}

int KFAConfigFile::update(const Edit& edit, const KFAReplaceOptions& how) const {
  for (int tries = 1;; ++tries) {
    KFAFileReplacement replacement;
    if (replacement.lock(path_, how, false) != 0) return -1;
    const int isRead = replacement.read();
    if (isRead > 0 && tries < kMostTries) continue;
    if (isRead != 0) return -1;
    const std::string& before = replacement.getContent();
    std::string after;
    if (edit(before, after) != 0) return -1;
    if (after == before) {
      replacement.finish();
      return 0;
    }
    const int result = replacement.commit(after);
    if (result <= 0) return result;
    if (tries == kMostTries) return -1;
  }
}

int KFAConfigFile::replace(const std::string& text, const KFAReplaceOptions& how, mode_t createMode) const {
  for (int tries = 1;; ++tries) {
    KFAFileReplacement replacement;
    if (replacement.lock(path_, how, true, createMode) != 0) return -1;
    const int result = replacement.commit(text);
    if (result <= 0) return result;
    // Somebody's new file is not what was to be replaced.
    if (!replacement.exists() || tries == kMostTries) return -1;
  }
}

int KFAConfigFile::copyTo(const std::string& output, const Edit& edit, const KFAReplaceOptions& how) const {
  struct stat status {};
  struct stat there {};
  const bool known = System::stat(path_.c_str(), &status) == 0 && S_ISREG(status.st_mode);
  // The same file under another name, perhaps: no other writer's change may be lost.
  if (known && System::stat(output.c_str(), &there) == 0 && isSameFile(status, there))
    return KFAConfigFile(output).update(edit, how);
  std::string before;
  std::string after;
  if (read(before) != 0 || edit(before, after) != 0) return -1;
  return KFAConfigFile(output).replace(after, how, known ? status.st_mode & 0777 : 0666);
}

}  // namespace KFA
