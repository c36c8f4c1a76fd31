// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAConfigFolder.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/files/KFAEnvConfigBashParser.h>

#include "KFADescriptor.h"

namespace KFA {

namespace {

using System = KFL::KFLSystem;

int fail(const std::string& path, const char* what, int error) {
  KFL::setErrorMessage("%s: %s: %s", path.c_str(), what, describeError(error).c_str());
  return -1;
}

std::string nameOf(int veid) {
  return std::to_string(veid) + ".conf";
}

// Puts some keys into a record and passes over the others.
class SomeKeys {
 public:
  SomeKeys(std::span<const std::string_view> keys, KFAEnvConfig& record, const KFAEnvConfigBashParser& parser)
      : keys_(keys), parser_(record, parser) {}

  int put(const std::string& key, const char* value) {
    return std::ranges::find(keys_, key) == keys_.end() ? kParameterUnknown : parser_.put(key, value);
  }

 private:
  std::span<const std::string_view> keys_;
  KFAEnvConfigBashParser::ParameterParserPut parser_;
};

}  // namespace

KFAConfigFolder::KFAConfigFolder(const std::string& path,
                                 const boost::shared_ptr<const KFAEnvConfigBashParser>& parser)
    : path_(path), parser_(parser), stream_(std::string_view()) {}

KFAConfigFolder::~KFAConfigFolder() {
  if (folder_ >= 0) System::close(folder_);
}

std::string KFAConfigFolder::getPath(int veid) const {
  return (path_.ends_with('/') ? path_ : path_ + '/') + nameOf(veid);
}

int KFAConfigFolder::openFolder() {
  if (folder_ < 0) folder_ = System::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (folder_ >= 0) return 0;
  if (errno != ENOTDIR) return fail(path_, "cannot be opened", errno);
  KFL::setErrorMessage("%s: not a folder; a folder with files such as 101.conf is wanted", path_.c_str());
  return -1;
}

int KFAConfigFolder::list(std::vector<int>& veids) {
  veids.clear();
  if (openFolder() != 0) return -1;
  Descriptor again(System::openat(folder_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!again.isOpen()) return fail(path_, "cannot be read", errno);
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(System::fdopendir(again.get()), &System::closedir);
  if (!entries) return fail(path_, "cannot be read", errno);
  again.release();
  std::vector<int> found;
  errno = 0;
  while (const dirent* entry = System::readdir(entries.get())) {
    int veid = 0;
    if (parseVeidOfName(entry->d_name, veid)) found.push_back(veid);
    errno = 0;
  }
  if (errno != 0) return fail(path_, "cannot be read", errno);
  std::sort(found.begin(), found.end());
  veids.swap(found);
  return 0;
}

int KFAConfigFolder::readText(int veid, std::size_t& length) {
  if (openFolder() != 0) return -1;
  for (int tries = 1;; ++tries) {
    const Descriptor file = openForReading(folder_, nameOf(veid));
    struct stat status {};
    if (!file.isOpen() || System::fstat(file.get(), &status) != 0)
      return fail(getPath(veid), "cannot be opened", errno);
    if (!S_ISREG(status.st_mode)) {
      KFL::setErrorMessage("%s: not a regular file; a file is wanted", getPath(veid).c_str());
      return -1;
    }
    const int error = isTooLong(status) ? EFBIG : readToEnd(file.get(), text_, length);
    if (error == 0) return 0;
    if (error != ESTALE || tries == kMostTries) return fail(getPath(veid), "cannot be read", error);
  }
}

template <class Read>
int KFAConfigFolder::readWith(int veid, KFAEnvConfig& record, Read read) {
  std::size_t length = 0;
  if (readText(veid, length) != 0) return -1;
  const std::string_view text(text_.data(), length);
  stream_.reset(text);
  record.setVeid(veid);
  return read(stream_) == 0 ? 0 : nameMalformedLine(text, getPath(veid));
}

int KFAConfigFolder::read(int veid, KFAEnvConfig& record) {
  return readWith(veid, record, [&](std::istream& in) { return parser_->getConfig(in, record); });
}

int KFAConfigFolder::readKeys(int veid, std::span<const std::string_view> keys, KFAEnvConfig& record) {
  SomeKeys some(keys, record, *parser_);
  return readWith(veid, record, [&](std::istream& in) { return parseBashLikeConfig(some, in); });
}

}  // namespace KFA
