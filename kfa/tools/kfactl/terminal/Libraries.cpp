// SPDX-License-Identifier: Apache-2.0
#include "terminal/Libraries.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string_view>

#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "terminal/Trouble.h"

namespace kfactl {

namespace {

namespace fs = std::filesystem;

// --- Whose it is -----------------------------------------------------------------------------------------------------

struct stat statusOf(const std::string& name, const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0)
    throw Trouble(name + ": " + path.string() + ": " + std::strerror(errno));
  return status;
}

// Whoever may change a library decides what this program does. A folder with the sticky bit lets nobody replace what is
// another's.
void refuseForeign(const std::string& name, const fs::path& path) {
  const struct stat status = statusOf(name, path);
  if (status.st_uid != 0 && status.st_uid != ::geteuid())
    throw Trouble(name + ": " + path.string() + " belongs to the user " + std::to_string(status.st_uid) +
                  ", who could put other code there; one that belongs to you or to root is wanted");
  // Behind an access list, the group's bits are the most that any user of the list has.
  const bool hasList = ::getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
  const bool isOwnGroup = !hasList && (status.st_gid == 0 || status.st_gid == ::getegid());
  const mode_t foreign = isOwnGroup ? S_IWOTH : S_IWGRP | S_IWOTH;
  const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
  if ((status.st_mode & foreign) != 0 && !isSticky)
    throw Trouble(
        name + ": " + path.string() +
        " may be changed by others, who could put other code there; one that only its owner may write "
        "is wanted");
}

// The path without links, once the file and each folder above it are nobody else's.
fs::path trustedPath(const std::string& name) {
  std::error_code trouble;
  fs::path path = fs::canonical(name, trouble);
  if (trouble) throw Trouble(name + ": " + trouble.message() + "; the file of a shared library is wanted");
  if (!S_ISREG(statusOf(name, path).st_mode))
    throw Trouble(name + ": is no file; a shared library is wanted");
  for (fs::path part = path; part != part.root_path(); part = part.parent_path())
    refuseForeign(name, part);
  return path;
}

// --- Loading ---------------------------------------------------------------------------------------------------------

constexpr std::array kFatalSignals = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

// The trouble for a library whose code ends the process, made before, since a handler may do little.
std::string endingText;

bool isLoading = false;

[[noreturn]] void endWithTrouble(int) {
  static_cast<void>(::write(STDERR_FILENO, endingText.data(), endingText.size()) < 0);
  ::_exit(2);
}

// While it lives, what would end the process by a signal or by exit() ends it as a trouble of this library.
class EndingGuard {
 public:
  explicit EndingGuard(const std::string& name) {
    endingText = "kfactl: " + name + ": its own code failed while it was loaded\n";
    static const int atEnd = std::atexit([] {
      if (isLoading) endWithTrouble(0);
    });
    isLoading = atEnd == 0;
    struct sigaction action {};
    action.sa_handler = &endWithTrouble;
    for (std::size_t i = 0; i < kFatalSignals.size(); ++i)
      ::sigaction(kFatalSignals.at(i), &action, &before_.at(i));
  }
  EndingGuard(const EndingGuard&) = delete;
  EndingGuard& operator=(const EndingGuard&) = delete;
  ~EndingGuard() {
    isLoading = false;
    for (std::size_t i = 0; i < kFatalSignals.size(); ++i)
      ::sigaction(kFatalSignals.at(i), &before_.at(i), nullptr);
  }

 private:
  std::array<struct sigaction, kFatalSignals.size()> before_{};
};

// Declared to throw nothing, so that a call by that name has no handlers; but the constructors that it runs may throw.
void* (*volatile const openShared)(const char*, int) = &::dlopen;

void* openLibrary(const std::string& name, const fs::path& path) {
  const EndingGuard guard(name);
  try {
    return openShared(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  } catch (const std::exception& error) {
    throw Trouble(name + ": an exception was thrown while it was loaded: " + error.what());
  } catch (...) {
    throw Trouble(name + ": an exception of an unknown type was thrown while it was loaded");
  }
}

std::size_t registeredCount() {
  return KFL::listRecordTypes().size() + KFL::listDerivedTypes().size();
}

// --- For another version ---------------------------------------------------------------------------------------------

constexpr std::string_view kOwnSuffix = ".so." KFACTL_SOVERSION;

// "libKFLMessage.so.5", where the text names a library of ours with another version; else empty.
std::string foreignCoreIn(std::string_view text) {
  for (std::size_t at = 0; (at = text.find("libKF", at)) != std::string_view::npos; ++at) {
    const std::string_view word = text.substr(at, text.find_first_of(": /", at) - at);
    const std::size_t version = word.find(".so.");
    if (version != std::string_view::npos && word.substr(version) != kOwnSuffix &&
        !word.substr(version).starts_with(std::string(kOwnSuffix) + "."))
      return std::string(word);
  }
  return {};
}

int findForeignCore(dl_phdr_info* info, std::size_t, void* found) {
  const std::string name = foreignCoreIn(fs::path(info->dlpi_name).filename().string());
  if (!name.empty()) *static_cast<std::string*>(found) = name;
  return name.empty() ? 0 : 1;
}

[[noreturn]] void refuseVersion(const std::string& name, const std::string& core) {
  throw Trouble(name + ": was made for another version, with " + core + "; one that is made for " +
                core.substr(0, core.find(".so.")) + std::string(kOwnSuffix) + " is wanted");
}

[[noreturn]] void refuseUnloadable(const std::string& name, const fs::path& path, std::string reason) {
  const std::string core = foreignCoreIn(reason);
  if (!core.empty()) refuseVersion(name, core);
  if (reason.starts_with(path.string() + ": ")) reason.erase(0, path.string().size() + 2);
  throw Trouble(name + ": cannot be loaded: " + reason + "; a shared library for kfactl " KFACTL_VERSION +
                " is wanted");
}

void loadLibrary(const std::string& name) {
  static std::set<void*> loaded;
  const fs::path path = trustedPath(name);
  const std::size_t before = registeredCount();
  void* const library = openLibrary(name, path);
  if (library == nullptr) refuseUnloadable(name, path, ::dlerror());
  if (!loaded.insert(library).second || registeredCount() > before) return;
  std::string core;
  ::dl_iterate_phdr(&findForeignCore, &core);
  if (!core.empty()) refuseVersion(name, core);
  throw Trouble(name + ": registers neither a record nor a derived type; a library that does is wanted");
}

}  // namespace

void loadLibraries(const std::vector<std::string>& paths) {
  std::for_each(paths.begin(), paths.end(), &loadLibrary);
}

}  // namespace kfactl
