// SPDX-License-Identifier: Apache-2.0
// What the tests of cache files share: a folder of their own, files as bytes, work in other processes.
#ifndef KFLCORE_TESTS_CACHETEST_H
#define KFLCORE_TESTS_CACHETEST_H

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include <gtest/gtest.h>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCore/KFLCacheFile.h>
#include <KFLCore/KFLCacheProof.h>
#include <KFLCore/KFLCacheSnapshot.h>

namespace cachetest {

using namespace KFL;
using Cache = boost::intrusive_ptr<KFLCacheFile>;
using Contents = std::map<std::string, std::string>;

class Folder {
 public:
  Folder() : Folder("/tmp") {}
  // Where thousands of files would be brought to disk: in memory, if that can be.
  static Folder inMemory() { return Folder(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp"); }
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  explicit Folder(const std::string& place) : path_(place + "/kfacacheXXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
  }

  std::string path_;
};

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  std::filesystem::permissions(path, std::filesystem::perms(0660));
}
inline std::uint32_t wordOf(const std::string& bytes, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + offset, sizeof(word));
  return word;
}
inline void setWord(std::string& bytes, std::size_t offset, std::uint32_t word) {
  std::memcpy(bytes.data() + offset, &word, sizeof(word));
}

inline Cache makeCache(const std::string& path, const KFLCacheLimits& limits = {}) {
  return Cache(new KFLCacheFile(path, limits));
}
inline Cache openCache(const std::string& path, const KFLCacheLimits& limits = {}) {
  Cache cache = makeCache(path, limits);
  EXPECT_EQ(cache->initialize(true, false), 0) << getErrorMessage();
  return cache;
}
inline int put(KFLCacheFile& cache, const std::string& key, const std::string& text) {
  KFLCacheChanges changes;
  changes.put(key, text);
  return cache.apply(changes);
}
inline int removeKey(KFLCacheFile& cache, const std::string& key) {
  KFLCacheChanges changes;
  changes.remove(key);
  return cache.apply(changes);
}
inline Contents contentsOf(const KFLCacheSnapshot& snapshot) {
  Contents all;
  for (std::uint32_t i = 0; i < snapshot.size(); ++i)
    all.emplace(snapshot.getKey(i), snapshot.getText(i));
  return all;
}
inline Contents contentsOf(KFLCacheFile& cache) {
  KFLCacheSnapshot snapshot;
  EXPECT_EQ(cache.hold(snapshot), 0) << getErrorMessage();
  return contentsOf(snapshot);
}
inline int holdOnce(KFLCacheFile& cache) {
  KFLCacheSnapshot held;
  return cache.hold(held);
}
inline int repairOnce(KFLCacheFile& cache) {
  bool isAlone = false;
  return cache.repair(isAlone);
}
// Behind a lock() in a macro, through which the analysis of locks does not see.
inline void unlock(KFLCacheFile& cache, KFLCacheFile::Storage& storage) KFL_NO_THREAD_SAFETY_ANALYSIS {
  cache.unlock(storage);
}
inline int openAgain(KFLCacheFile& cache) {
  return cache.initialize(true, true);
}
// The first fault of a file that nobody is changing; empty when there is none.
inline std::string faultOf(const std::string& path) {
  const std::string bytes = readFile(path);
  KFLCacheProof proof;
  const int code = proof.check(std::as_bytes(std::span(bytes)));
  return code == 0 ? "" : std::to_string(code) + " " + proof.faults().front().text;
}
// Bytes that neither a free block nor the current snapshot accounts for.
inline std::uint64_t lostBytes(const std::string& path) {
  const std::string bytes = readFile(path);
  KFLCacheProof proof;
  EXPECT_EQ(proof.check(std::as_bytes(std::span(bytes))), 0);
  std::uint64_t lost = 0;
  proof.forEachBlock(
      [&](const KFLProvedBlock& block) { lost += block.use == KFLBlockUse::Other ? block.bytes : 0; });
  return lost;
}

// A child that does the work and exits with its result, without what the test program does at its end.
template <class Work>
pid_t startChild(Work work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  return child;
}
inline int waitFor(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace cachetest

#endif
