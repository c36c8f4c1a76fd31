// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/node/KFANodeWatch.h>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include <KFLCommon/KFLError.h>

#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/node/KFAEnvironmentDiff.h>
#include <KFAFunctionality/node/KFAEnvironmentKeys.h>

namespace KFA {

namespace {

using Event = KFANodeEvent;
using Kind = Event::Kind;

constexpr std::uint32_t kFileEvents =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE | IN_ATTRIB;
constexpr std::uint32_t kFolderEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kEndings = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

int refuse(const std::string& folder, const char* what) {
  const int failure = errno;
  KFL::setErrorMessage("%s: %s: %s", folder.c_str(), what, std::generic_category().message(failure).c_str());
  return -1;
}

bool comesBefore(const KFAEnvironmentFile& a, const KFAEnvironmentFile& b) {
  return std::tie(a.veid, a.path) < std::tie(b.veid, b.path);
}

// A finding is the same wherever in its file it has moved to, and wherever in another one the other place has.
std::string identityOf(const KFANodeFinding& finding) {
  std::string text = finding.text;
  const std::size_t other = finding.related.empty() ? std::string::npos : text.find(finding.related);
  if (other != std::string::npos) text.erase(other, finding.related.size());
  return finding.file + '\n' + finding.rule + '\n' + text;
}

}  // namespace

const char* toString(Kind kind) {
  constexpr const char* kNames[] = {"added", "removed", "changed",  "failed",
                                    "found", "cured",   "overflow", "gone"};
  return kNames[static_cast<std::size_t>(kind)];
}

KFANodeWatch::KFANodeWatch(const std::string& folder,
                           const boost::shared_ptr<const KFAEnvConfigBashParser>& parser,
                           const KFANodeCheckOptions& options)
    : folder_(folder), parser_(parser), options_(options), texts_(&comesBefore) {}

KFANodeWatch::~KFANodeWatch() {
  if (descriptor_ >= 0) close(descriptor_);
}

// The kernel is asked before the files are read: what changes meanwhile is looked at twice, and never missed.
int KFANodeWatch::start(std::vector<Event>& events) {
  descriptor_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (descriptor_ < 0) return refuse(folder_, "cannot be watched");
  watched_ = inotify_add_watch(descriptor_, folder_.c_str(), kFileEvents | kFolderEvents);
  if (watched_ < 0) return refuse(folder_, "the folder of the environments cannot be watched");
  std::set<std::string> names;
  if (listFolder(names) != 0) return -1;
  std::vector<Event> all;
  for (const std::string& name : names)
    static_cast<void>(lookAt(name, all));
  std::copy_if(all.begin(), all.end(), std::back_inserter(events),
               [](const Event& event) { return event.kind == Kind::Failed; });
  check();
  return 0;
}

int KFANodeWatch::listFolder(std::set<std::string>& names) const {
  KFANodeSelection selection(folder_, {});
  if (selection.addAll() != 0) return -1;
  for (const KFAEnvironmentFile& file : selection.getFiles())
    names.insert(file.path.substr(file.path.rfind('/') + 1));
  return 0;
}

int KFANodeWatch::readNotice(Notice& notice) const {
  alignas(inotify_event) std::array<char, 1 << 16> buffer;
  for (;;) {
    const ssize_t length = read(descriptor_, buffer.data(), buffer.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0 && errno != EAGAIN) return refuse(folder_, "cannot be watched any more");
    if (length <= 0) return 0;
    for (const char* at = buffer.data(); at < buffer.data() + length;) {
      inotify_event event{};
      std::memcpy(&event, at, sizeof event);
      notice.isOverflow = notice.isOverflow || (event.mask & IN_Q_OVERFLOW) != 0;
      notice.isGone = notice.isGone || (event.mask & kEndings) != 0;
      if (event.len > 0) notice.names.emplace(at + sizeof event);
      at += sizeof event + event.len;
    }
  }
}

void KFANodeWatch::compare(const KFAEnvironmentFile& file, const std::string& before,
                           const std::string& after, std::vector<Event>& events) const {
  KFAEnvironmentKeys old(parser_);
  KFAEnvironmentKeys now(parser_);
  static_cast<void>(old.read(before, file.path));
  static_cast<void>(now.read(after, file.path));
  for (KFAChange& change : compareEnvironments(old, now))
    events.push_back({Kind::Changed, file, std::move(change), {}, {}});
}

// Whether its text is another one.
bool KFANodeWatch::lookAt(const std::string& name, std::vector<Event>& events) {
  KFAEnvironmentFile file{folder_ + (folder_.ends_with('/') ? "" : "/") + name, -1};
  if (!parseVeidOfName(name, file.veid)) return false;
  const auto known = texts_.find(file);
  std::string text;
  struct stat status {};
  if (stat(file.path.c_str(), &status) != 0 && errno == ENOENT) {
    if (known == texts_.end()) return false;
    texts_.erase(known);
    events.push_back({Kind::Removed, file, {}, {}, {}});
    return true;
  }
  if (KFAConfigFile(file.path).read(text) != 0) {
    events.push_back({Kind::Failed, file, {}, {}, KFL::getErrorMessage()});
    return false;
  }
  if (known == texts_.end()) {
    texts_.emplace(file, std::move(text));
    events.push_back({Kind::Added, file, {}, {}, {}});
    return true;
  }
  if (known->second == text) return false;
  compare(file, known->second, text, events);
  known->second = std::move(text);
  return true;
}

void KFANodeWatch::check() {
  KFANodeCheck check(parser_, options_);
  for (const auto& [file, text] : texts_)
    static_cast<void>(check.add(file, text));
  findings_.clear();
  for (KFANodeFinding& finding : check.finish()) {
    std::string identity = identityOf(finding);
    findings_.emplace(std::move(identity), std::move(finding));
  }
}

void KFANodeWatch::compareFindings(std::vector<Event>& events) {
  Findings before = std::move(findings_);
  check();
  const auto append = [&events](const Findings& from, Findings in, Kind kind) {
    std::vector<KFANodeFinding> missing;
    for (const auto& [identity, finding] : from) {
      const auto same = in.find(identity);
      if (same == in.end())
        missing.push_back(finding);
      else
        in.erase(same);
    }
    sortBySeverity(missing);
    for (KFANodeFinding& finding : missing) {
      const KFAEnvironmentFile file{finding.file, finding.veid};
      events.push_back({kind, file, {}, std::move(finding), {}});
    }
  };
  append(findings_, before, Kind::Found);
  append(before, findings_, Kind::Cured);
}

int KFANodeWatch::take(std::vector<Event>& events) {
  Notice notice;
  if (readNotice(notice) != 0) return -1;
  if (notice.isGone) {
    events.push_back({Kind::Gone, {folder_, -1}, {}, {}, {}});
    return 1;
  }
  if (notice.isOverflow) {
    events.push_back({Kind::Overflow, {folder_, -1}, {}, {}, {}});
    for (const auto& [file, text] : texts_)
      notice.names.insert(file.path.substr(file.path.rfind('/') + 1));
    if (listFolder(notice.names) != 0) return -1;
  }
  bool isChanged = false;
  for (const std::string& name : notice.names)
    isChanged = lookAt(name, events) || isChanged;
  if (isChanged) compareFindings(events);
  return 0;
}

}  // namespace KFA
