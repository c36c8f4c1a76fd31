// SPDX-License-Identifier: Apache-2.0
// Inner header, not installed: the system calls that are made on files.
//
// Everything that the libraries do with files goes through KFLSystem, one static function for each call, with the
// meaning, the result and the errno of the system's own. A call that a signal has cut short is made again, but for close,
// which has closed all the same. What opens gives no descriptor of a standard stream that is closed: what somebody writes
// to that one must not get into a file. Each is a jump through a table, as a call into the C library is one.
//
// A test replaces entries of the table, to let any call fail, or to stop the process there. The table may change while
// no other thread is in one of these functions. A call that is added to the list has all of this.
#ifndef KFLCOMMON_KFLSYSTEM_H
#define KFLCOMMON_KFLSYSTEM_H

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

// EACH(result, name, parameters, arguments), by what they are made on: paths, descriptors, open folders, memory.
#define KFL_SYSTEM_CALLS(EACH)                                                                             \
  EACH(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode))                         \
  EACH(int, openat, (int folder, const char* path, int flags), (folder, path, flags))                      \
  EACH(int, stat, (const char* path, struct stat* status), (path, status))                                 \
  EACH(int, lstat, (const char* path, struct stat* status), (path, status))                                \
  EACH(int, statfs, (const char* path, struct statfs* system), (path, system))                             \
  EACH(ssize_t, readlink, (const char* path, char* to, std::size_t size), (path, to, size))                \
  EACH(int, link, (const char* from, const char* to), (from, to))                                          \
  EACH(int, unlink, (const char* path), (path))                                                            \
  EACH(int, access, (const char* path, int rights), (path, rights))                                        \
  EACH(int, rename, (const char* from, const char* to), (from, to))                                        \
  EACH(int, renameat2, (int folder, const char* from, int toFolder, const char* to, unsigned flags),       \
       (folder, from, toFolder, to, flags))                                                                \
  EACH(int, close, (int descriptor), (descriptor))                                                         \
  EACH(ssize_t, read, (int descriptor, void* to, std::size_t size), (descriptor, to, size))                \
  EACH(ssize_t, pread, (int descriptor, void* to, std::size_t size, off_t at), (descriptor, to, size, at)) \
  EACH(ssize_t, write, (int descriptor, const void* from, std::size_t size), (descriptor, from, size))     \
  EACH(off_t, lseek, (int descriptor, off_t at, int whence), (descriptor, at, whence))                     \
  EACH(int, fstat, (int descriptor, struct stat* status), (descriptor, status))                            \
  EACH(int, fsync, (int descriptor), (descriptor))                                                         \
  EACH(int, fdatasync, (int descriptor), (descriptor))                                                     \
  EACH(int, ftruncate, (int descriptor, off_t size), (descriptor, size))                                   \
  EACH(int, fallocate, (int descriptor, int mode, off_t from, off_t size), (descriptor, mode, from, size)) \
  EACH(int, posix_fallocate, (int descriptor, off_t from, off_t size), (descriptor, from, size))           \
  EACH(int, fchown, (int descriptor, uid_t owner, gid_t group), (descriptor, owner, group))                \
  EACH(int, fchmod, (int descriptor, mode_t mode), (descriptor, mode))                                     \
  EACH(int, flock, (int descriptor, int operation), (descriptor, operation))                               \
  EACH(int, fcntl, (int descriptor, int command, std::intptr_t argument), (descriptor, command, argument)) \
  EACH(ssize_t, flistxattr, (int descriptor, char* list, std::size_t size), (descriptor, list, size))      \
  EACH(ssize_t, fgetxattr, (int descriptor, const char* name, void* value, std::size_t size),              \
       (descriptor, name, value, size))                                                                    \
  EACH(int, fsetxattr, (int descriptor, const char* name, const void* value, std::size_t size, int flags), \
       (descriptor, name, value, size, flags))                                                             \
  EACH(int, fremovexattr, (int descriptor, const char* name), (descriptor, name))                          \
  EACH(DIR*, fdopendir, (int descriptor), (descriptor))                                                    \
  EACH(struct dirent*, readdir, (DIR * folder), (folder))                                                  \
  EACH(int, closedir, (DIR * folder), (folder))                                                            \
  EACH(void*, mmap, (void* at, std::size_t size, int rights, int flags, int descriptor, off_t from),       \
       (at, size, rights, flags, descriptor, from))                                                        \
  EACH(int, munmap, (void* memory, std::size_t size), (memory, size))                                      \
  EACH(int, msync, (void* memory, std::size_t size, int flags), (memory, size, flags))                     \
  EACH(int, mprotect, (void* memory, std::size_t size, int rights), (memory, size, rights))

namespace KFL {

class KFLSystem {
  enum class Kind { Usual, Once, AnswersError, Opens };

  static constexpr Kind kindOf(std::string_view name) {
    if (name.starts_with("posix_")) return Kind::AnswersError;
    if (name.starts_with("open")) return Kind::Opens;
    return name.starts_with("close") ? Kind::Once : Kind::Usual;
  }

  static int aboveStandardStreams(int descriptor) {
    if (descriptor < 0 || descriptor >= kFirstDescriptor) return descriptor;
    const int above = calls.fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor);
    const int error = errno;
    calls.close(descriptor);
    errno = error;
    return above;
  }

  template <Kind kind, class Call>
  static auto repeated(Call call) {
    auto result = call();
    if constexpr (kind != Kind::Once && std::is_integral_v<decltype(result)>) {
      while (kind != Kind::AnswersError ? result == -1 && errno == EINTR : result == EINTR)
        result = call();
    }
    if constexpr (kind == Kind::Opens)
      return aboveStandardStreams(result);
    else
      return result;
  }

 public:
  // The first behind those of the standard streams.
  static constexpr int kFirstDescriptor = 3;

  struct Calls {
#define KFL_SYSTEM_ENTRY(result, name, parameters, arguments) \
  result(*name) parameters;  // NOLINT(bugprone-macro-parentheses)
    KFL_SYSTEM_CALLS(KFL_SYSTEM_ENTRY)
#undef KFL_SYSTEM_ENTRY
  };

  // The calls in force: the system's own, unless a test has put others there.
  static Calls calls;

#define KFL_SYSTEM_CALL(result, name, parameters, arguments)              \
  static result name parameters {                                         \
    return repeated<kindOf(#name)>([&] { return calls.name arguments; }); \
  }
  KFL_SYSTEM_CALLS(KFL_SYSTEM_CALL)
#undef KFL_SYSTEM_CALL
};

}  // namespace KFL

#endif
