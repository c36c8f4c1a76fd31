// SPDX-License-Identifier: Apache-2.0
#include <KFLCore/KFLMappedFile.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLSystem.h>

#include "KFLDescriptor.h"

namespace KFL {

namespace {

constexpr mode_t kMode = 0660;

int failed(const char* what, const std::string& path, int error) {
  setErrorMessage("cannot %s %s: %s", what, path.c_str(), describeError(error).c_str());
  return error;
}

const char* findObjection(const struct stat& file) {
  if (!S_ISREG(file.st_mode)) return "it is not a regular file";
  if (file.st_nlink > 1) return "it has a second hard link";
  if ((file.st_mode & S_IWOTH) != 0) return "everybody may write to it";
  return nullptr;
}

int checkGuarded(int descriptor, const std::string& path) {
  struct stat file {};
  if (KFLSystem::fstat(descriptor, &file) != 0) return failed("look at", path, errno);
  const char* const objection = findObjection(file);
  if (objection == nullptr) return 0;
  setErrorMessage("%s is refused: %s", path.c_str(), objection);
  return EPERM;
}

// The mode of a new file is not narrowed by the process's umask: agents of one group share it.
int createFile(const std::string& path, int flags) {
  const int descriptor = KFLSystem::open(path.c_str(), flags | O_CREAT | O_EXCL, kMode);
  if (descriptor >= 0) KFLSystem::fchmod(descriptor, kMode);
  return descriptor;
}

int openFile(const std::string& path, const KFLMapOptions& options) {
  const bool writes = (options.access & KFLMapOptions::Write) != 0;
  const int flags = (writes ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  for (;;) {
    int descriptor = KFLSystem::open(path.c_str(), flags, 0);
    if (descriptor < 0 && errno == ENOENT && (options.access & KFLMapOptions::Create) != 0) {
      descriptor = createFile(path, flags);
      if (descriptor < 0 && errno == EEXIST) continue;
    }
    return descriptor;
  }
}

int allocateSpace(int descriptor, off_t from, off_t length) {
  const int error = KFLSystem::fallocate(descriptor, 0, 0, length) == 0 ? 0 : errno;
  if (error != EOPNOTSUPP) return error;
  return from >= length ? 0 : KFLSystem::posix_fallocate(descriptor, from, length - from);
}

// Makes the file at least so long, with every block of it on disk; or leaves it as long as it was.
int reserveSpace(int descriptor, std::size_t size) {
  struct rlimit limit {};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && size > limit.rlim_cur) return EFBIG;
  struct stat file {};
  if (KFLSystem::fstat(descriptor, &file) != 0) return errno;
  const int error = allocateSpace(descriptor, file.st_size, static_cast<off_t>(size));
  if (error != 0 && static_cast<off_t>(size) > file.st_size &&
      KFLSystem::ftruncate(descriptor, file.st_size) != 0)
    return errno;
  return error;
}

}  // namespace

int openGuarded(const std::string& path, const KFLMapOptions& options) {
  KFLDescriptor file(openFile(path, options));
  if (!file.isOpen()) {
    if (errno != ELOOP) return -failed("open", path, errno);
    setErrorMessage("%s is refused: it is a symbolic link", path.c_str());
    return -ELOOP;
  }
  if (options.guard != 0) {
    if (const int error = checkGuarded(file.get(), path); error != 0) return -error;
  }
  return file.release();
}

KFLMappedFile::KFLMappedFile(const std::string& path) : path_(path), file_(std::make_unique<Opened>()) {}

KFLMappedFile::~KFLMappedFile() {
  unmap(0);
}

int KFLMappedFile::unmap(int error) {
  if (memory_ != nullptr) KFLSystem::munmap(memory_, size_);
  memory_ = nullptr;
  size_ = 0;
  reserved_ = 0;
  return error;
}

int KFLMappedFile::map(std::size_t size, const KFLMapOptions& options) {
  const int opened = openGuarded(path_, options);
  if (opened < 0) return -opened;
  *file_ = KFLDescriptor(opened);
  return mapOpened(size, options);
}

int KFLMappedFile::remap(std::size_t size, const KFLMappedFile& previous, const KFLMapOptions& options) {
  KFLDescriptor same(KFLSystem::fcntl(previous.file_->get(), F_DUPFD_CLOEXEC, KFLSystem::kFirstDescriptor));
  if (!same.isOpen()) return failed("map", path_, errno);
  *file_ = std::move(same);
  return mapOpened(size, options);
}

int KFLMappedFile::mapOpened(std::size_t size, const KFLMapOptions& options) {
  struct stat file {};
  if (KFLSystem::fstat(file_->get(), &file) != 0) return failed("look at", path_, errno);
  device_ = file.st_dev;
  inode_ = file.st_ino;
  if (options.reserve == KFLMapOptions::Now) {
    if (const int error = reserveSpace(file_->get(), size); error != 0)
      return failed("reserve space for", path_, error);
    reserved_ = size;
  } else if (options.reserve == KFLMapOptions::Inside && static_cast<off_t>(size) > file.st_size) {
    setErrorMessage("cannot map %s: it has %lld bytes, and %zu are asked for", path_.c_str(),
                    static_cast<long long>(file.st_size), size);
    return EINVAL;
  }
  if (options.reserve == KFLMapOptions::Later) {
    constexpr off_t kMost = 0x7FFFFFF8;
    size = std::max(size, static_cast<std::size_t>(std::min(file.st_size, kMost)));
  }
  const bool writes = (options.access & KFLMapOptions::Write) != 0;
  const bool isShared = options.sharing == KFLMapOptions::Shared;
  void* const memory = KFLSystem::mmap(nullptr, size, PROT_READ | (writes ? PROT_WRITE : 0),
                                       isShared ? MAP_SHARED : MAP_PRIVATE, file_->get(), 0);
  if (memory == MAP_FAILED) return failed("map", path_, errno);
  memory_ = memory;
  size_ = size;
  file_->isProtected = false;
  return 0;
}

int KFLMappedFile::readFileSize(std::size_t& size) const {
  struct stat file {};
  if (KFLSystem::fstat(file_->get(), &file) != 0) return failed("look at", path_, errno);
  size = static_cast<std::size_t>(file.st_size);
  return 0;
}

std::size_t KFLMappedFile::getFileSize() const {
  struct stat file {};
  const bool isThere = file_->isOpen() && KFLSystem::fstat(file_->get(), &file) == 0;
  return isThere ? static_cast<std::size_t>(file.st_size) : 0;
}

bool KFLMappedFile::isFile(dev_t device, ino_t inode) const {
  return memory_ != nullptr && device_ == device && inode_ == inode;
}

bool KFLMappedFile::isAtPath() const {
  return isAtPath(0);
}

bool KFLMappedFile::isAtPath(std::size_t least) const {
  struct stat there {};
  if (KFLSystem::lstat(path_.c_str(), &there) == 0)
    return isFile(there.st_dev, there.st_ino) && there.st_size >= static_cast<off_t>(least);
  return memory_ != nullptr && errno != ENOENT && errno != ENOTDIR;
}

int KFLMappedFile::reserve(std::size_t size) {
  if (size <= reserved_) return 0;
  if (const int error = reserveSpace(file_->get(), size); error != 0)
    return failed("reserve space for", path_, error);
  reserved_ = size;
  return 0;
}

int KFLMappedFile::syncMemory() const {
  return memory_ == nullptr || KFLSystem::msync(memory_, size_, MS_ASYNC) == 0
             ? 0
             : failed("write", path_, errno);
}

int KFLMappedFile::syncToDisk() const {
  return KFLSystem::fdatasync(file_->get()) == 0 ? 0 : failed("write", path_, errno);
}

int KFLMappedFile::protect(bool writable) const {
  const int access = PROT_READ | (writable ? PROT_WRITE : 0);
  if (KFLSystem::mprotect(memory_, size_, access) != 0) return failed("protect", path_, errno);
  file_->isProtected = !writable;
  return 0;
}

bool KFLMappedFile::isProtected() const {
  return file_->isProtected;
}

std::size_t KFLMappedFile::getPageSize() {
  static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

}  // namespace KFL
