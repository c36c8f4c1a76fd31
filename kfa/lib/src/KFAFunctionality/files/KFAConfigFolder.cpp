// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFAConfigFolder.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
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
  const Descriptor file = openForReading(folder_, nameOf(veid));
  struct stat status {};
  if (!file.isOpen() || System::fstat(file.get(), &status) != 0)
    return fail(getPath(veid), "cannot be opened", errno);
  if (!S_ISREG(status.st_mode)) {
    KFL::setErrorMessage("%s: not a regular file; a file is wanted", getPath(veid).c_str());
    return -1;
  }
  const int error = readToEnd(file.get(), text_, length);
  return error == 0 ? 0 : fail(getPath(veid), "cannot be read", error);
}

int KFAConfigFolder::read(int veid, KFAEnvConfig& record) {
  std::size_t length = 0;
  if (readText(veid, length) != 0) return -1;
  const std::string_view text(text_.data(), length);
  stream_.reset(text);
  record.setVeid(veid);
  if (parser_->getConfig(stream_, record) == 0) return 0;
  return nameMalformedLine(text, getPath(veid));
}

}  // namespace KFA
