// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLVocMap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/make_shared.hpp>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLFunctionality/KFLVocData.h>

namespace KFL {

namespace {

constexpr const char* kFileName = "vocabulary.xml";

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

int refuseFile(const std::string& path, int error) {
  setErrorMessage("%s: cannot read the vocabulary: %s; name a vocabulary file in KFA_VOCABULARY",
                  path.c_str(), ::strerrordesc_np(error));
  return -1;
}

// Reads to the end, whatever kind of file it is, so that a pipe serves as well.
int readFile(const std::string& path, std::string& content) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return refuseFile(path, errno);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return refuseFile(path, errno);
  content.resize(std::clamp(static_cast<std::size_t>(status.st_size), std::size_t{4096}, kMaxVocabularySize) +
                 1);
  std::size_t size = 0;
  while (true) {
    const ssize_t got = ::read(file.get(), content.data() + size, content.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return refuseFile(path, errno);
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
    if (size > kMaxVocabularySize) break;
    if (size == content.size()) content.resize(std::min(size * 2, kMaxVocabularySize + 1));
  }
  content.resize(size);
  return 0;
}

bool isThere(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

// The folder in which the library that holds this code stands, with its slash; empty when unknown.
std::string ownFolder() {
  static const char anchor = 0;
  Dl_info info{};
  if (::dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) return {};
  const std::string path = info.dli_fname;
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

}  // namespace

KFLVocMapSP KFLVocMap::load(const std::string& path) {
  std::string content;
  if (readFile(path, content) != 0) return {};
  return loadFromText(content, path);
}

KFLVocMapSP KFLVocMap::loadFromText(std::string_view xml, const std::string& name) {
  const auto data = boost::make_shared<KFLVocData>();
  if (loadVocabulary(*data, xml, name) != 0) return {};
  return KFLVocMapSP(new KFLVocMap(data));
}

// An installation may have been moved as a whole, so the place relative to the library counts before the one
// it was built for.
std::string KFLVocMap::defaultPath() {
  const char* const chosen = ::secure_getenv("KFA_VOCABULARY");
  if (chosen != nullptr && *chosen != '\0') return chosen;
  const std::string folder = ownFolder();
  if (!folder.empty()) {
    std::string moved = folder + KFA_DATA_FROM_LIB "/" + kFileName;
    if (isThere(moved)) return moved;
  }
  return std::string(KFA_DATA_DIR "/") + kFileName;
}

template <class Words>
KFLVocIterator* KFLVocMap::find(const Words& words) const {
  if (words.size() == 0) return nullptr;
  for (const KFLVocData::Category& category : data_->categories) {
    if (std::all_of(words.begin(), words.end(), [&](const auto& w) { return data_->hasWord(category, w); }))
      return new KFLVocIterator(data_, category.firstParameter, category.endParameter);
  }
  return nullptr;
}

KFLVocIterator* KFLVocMap::readCategory(const std::string& word) const {
  return find(std::array<std::string_view, 1>{word});
}

KFLVocIterator* KFLVocMap::readCategory(const std::set<std::string>& words) const {
  return find(words);
}

KFLVocIterator* KFLVocMap::readCategory(std::initializer_list<std::string_view> words) const {
  return find(words);
}

int KFLVocIterator::firstParameter() {
  at_ = first_;
  return at_ < end_ ? 0 : -1;
}

int KFLVocIterator::nextParameter() {
  if (at_ < end_) ++at_;
  return at_ < end_ ? 0 : -1;
}

int KFLVocIterator::getID(std::string& id) const {
  return readString(voc::kIDAttribute, id);
}

int KFLVocIterator::getStringAttribute(int number, std::string& value) const {
  return readString(voc::attributeByNumber(number), value);
}

int KFLVocIterator::getStringAttribute(std::string_view name, std::string& value) const {
  return readString(voc::attributeByName(name), value);
}

int KFLVocIterator::getIntAttribute(int number, int& value) const {
  return readInt(voc::attributeByNumber(number), value);
}

int KFLVocIterator::getIntAttribute(std::string_view name, int& value) const {
  return readInt(voc::attributeByName(name), value);
}

int KFLVocIterator::readString(std::size_t attribute, std::string& value) const {
  if (at_ >= end_ || attribute >= voc::kAttributeCount) return -1;
  const KFLVocData::Piece piece = data_->parameters[at_][attribute];
  if (piece.isAbsent()) return -1;
  value.assign(data_->view(piece));
  return 0;
}

int KFLVocIterator::readInt(std::size_t attribute, int& value) const {
  if (at_ >= end_ || attribute >= voc::kAttributeCount) return -1;
  const KFLVocData::Piece piece = data_->parameters[at_][attribute];
  return piece.isAbsent() ? -1 : parseInteger(data_->view(piece), value);
}

}  // namespace KFL
