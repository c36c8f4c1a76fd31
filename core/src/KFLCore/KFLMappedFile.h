// SPDX-License-Identifier: Apache-2.0
// A file in memory, shared with every process that maps it.
//
// The file is opened without following a link at its path, made when it is missing (mode 0660), and refused when it is not
// regular, has a second hard link, or may be written by everybody. Its space on disk is reserved before it is written, so a
// full disk is an error here and no signal later; what could not be reserved whole is given back. Cutting the file while it is mapped is outside the promise: touching
// what is no longer there kills the process.
//
// map() and remap() belong to the thread that made the object; the rest may be called from any.
#ifndef KFLCORE_KFLMAPPEDFILE_H
#define KFLCORE_KFLMAPPEDFILE_H

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

#include <KFLCore/KFLRefCounter.h>

namespace KFL {

// How a file is mapped.
struct KFLMapOptions {
  enum Access { Read = 1, Write = 2, Create = 4 };
  enum Sharing { Private = 1, Shared = 2 };
  enum Reserve { Inside = 0, Now = 1, Later = 2 };

  int access = Read | Write | Create;
  int sharing = Shared;
  int reserve =
      1;  // make the file as long as the mapping, or Later; else the mapping may not be longer than the file
  int guard = 1;  // refuse what could be somebody else's file
};

class KFLMappedFile : public KFLRefCounter {
 public:
  explicit KFLMappedFile(const std::string& path);
  ~KFLMappedFile() override;

  // Opens the path and maps `size` bytes. 0, or an errno with an error text.
  int map(std::size_t size, const KFLMapOptions& options = {});
  // Maps `size` bytes of the very file that `previous` maps, whatever its path names now.
  int remap(std::size_t size, const KFLMappedFile& previous, const KFLMapOptions& options = {});

  const std::string& getPath() const { return path_; }
  // Null while nothing is mapped.
  void* getMemory() const { return memory_; }
  std::size_t getSize() const { return size_; }
  // The length of the file. 0, or an errno with an error text.
  int readFileSize(std::size_t& size) const;
  // The same, and 0 when nothing is mapped or the length cannot be told.
  std::size_t getFileSize() const;
  // Whether the file that is mapped has these numbers.
  bool isFile(dev_t device, ino_t inode) const;
  // Whether the path still names the file that is mapped, and that has at least so many bytes; also when that cannot be told.
  bool isAtPath() const;
  bool isAtPath(std::size_t least) const;

  // Makes the file at least so long, and gives these bytes their space on disk; at once when that was done. 0, or an errno
  // with an error text.
  int reserve(std::size_t size);
  // Brings what was written through the mapping to the file, where every other mapping of it sees it already. 0, or an
  // errno with an error text.
  int syncMemory() const;
  // Waits until the file's contents are on disk, whoever wrote them. 0, or an errno with an error text.
  int syncToDisk() const;
  // Lets the memory be written, or only be read. 0, or an errno with an error text.
  int protect(bool writable) const;
  // Whether the memory may only be read since protect() said so.
  bool isProtected() const;

  static std::size_t getPageSize();

 protected:
  // Undoes the mapping, and gives back the error that is the reason.
  int unmap(int error);

 private:
  friend struct KFLMappedReading;
  struct Opened;
  int mapOpened(std::size_t size, const KFLMapOptions& options);

  std::string path_;
  std::unique_ptr<Opened> file_;
  void* memory_ = nullptr;
  std::size_t size_ = 0;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::size_t reserved_ = 0;
};

// Opens a file under the rules above, without mapping it: a descriptor that is closed on exec, or -errno with an error
// text.
int openGuarded(const std::string& path, const KFLMapOptions& options);

}  // namespace KFL

#endif
