// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/files/KFABashConfig.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <streambuf>

namespace KFA {

namespace {

// Enough gathered output to be worth a call of the stream.
constexpr std::size_t kOutputBlock = 32768;

// The characters that a stream buffer holds ready.
class ReadyText : public std::streambuf {
 public:
  static const char* begin(const std::streambuf& buffer) { return (buffer.*(&ReadyText::gptr))(); }
  static const char* end(const std::streambuf& buffer) { return (buffer.*(&ReadyText::egptr))(); }
  static void consume(std::streambuf& buffer, std::size_t count) {
    constexpr std::size_t kMost = std::numeric_limits<int>::max();
    for (; count > kMost; count -= kMost)
      (buffer.*(&ReadyText::gbump))(static_cast<int>(kMost));
    (buffer.*(&ReadyText::gbump))(static_cast<int>(count));
  }
};

void store(std::string_view line, char** buffer, unsigned int* capacity) {
  if (*capacity < line.size() + 1) {
    void* const grown = std::realloc(*buffer, line.size() + 1);
    if (grown == nullptr) throw std::bad_alloc();
    *buffer = static_cast<char*>(grown);
    *capacity = static_cast<unsigned int>(line.size() + 1);
  }
  std::memcpy(*buffer, line.data(), line.size());
  (*buffer)[line.size()] = '\0';
}

// std::getline, which by itself would take memory that runs out for the end of the stream.
bool getLine(std::istream& in, std::string& line) {
  if (!in.good()) return static_cast<bool>(std::getline(in, line, '\n'));
  const std::ios_base::iostate wanted = in.exceptions();
  bool isRead = false;
  try {
    in.exceptions(std::ios_base::badbit);
    isRead = static_cast<bool>(std::getline(in, line, '\n'));
  } catch (const std::bad_alloc&) {
    in.clear(in.rdstate() & ~std::ios_base::badbit);
    in.exceptions(wanted);
    throw;
  } catch (...) {
    isRead = false;  // the stream's own failure: its state tells
  }
  in.exceptions(wanted);
  return isRead;
}

}  // namespace

int readStringFromStream(std::istream& in, char** buffer, unsigned int* capacity) {
  std::string line;
  if (!getLine(in, line)) return -1;
  if (line.size() > detail::kMaxLine) {
    in.setstate(std::ios_base::failbit);
    return -1;
  }
  store(line, buffer, capacity);
  return static_cast<int>(line.size());
}

namespace detail {

LineBuffer::~LineBuffer() {
  std::free(text_);
}

char* LineBuffer::copy(std::string_view line) {
  store(line, &text_, &capacity_);
  return text_;
}

// A stream that flushes another one before each line is left to the standard reader.
void ConfigLines::latch() {
  if (!in_.good() || in_.tie() != nullptr) return;
  begin_ = at_ = ReadyText::begin(*in_.rdbuf());
  end_ = ReadyText::end(*in_.rdbuf());
}

void ConfigLines::release() {
  if (at_ != begin_) ReadyText::consume(*in_.rdbuf(), static_cast<std::size_t>(at_ - begin_));
  begin_ = at_ = end_ = nullptr;
}

bool ConfigLines::nextAcrossBuffers(std::string_view& line) {
  release();
  if (!getLine(in_, joined_)) return false;
  latch();
  line = joined_;
  return true;
}

// A line that needs the grammar.
int ConfigAssignments::parse(ConfigAssignment& assignment) {
  if (line_.size() > kMaxLine) {
    KFL::setErrorMessage("a line of more than %zu bytes; a shorter one is wanted", kMaxLine);
    return KFL::kBashMalformed;
  }
  char* name = nullptr;
  char* value = nullptr;
  unsigned int first = 0;
  unsigned int last = 0;
  const int kind = KFL::parseBashStr(buffer_.copy(line_), &name, &value, &first, &last);
  if (kind == KFL::kBashAssignment) assignment = {name, value, first, std::size_t{last} + 1 - first};
  return kind;
}

void ConfigOutput::beginLine(std::string_view line) {
  lineBegin_ = pending_.size();
  pending_.append(line);
}

void ConfigOutput::replaceValue(std::size_t first, std::size_t size, const std::string& value) {
  const std::size_t at = lineBegin_ + first;
  if (value.size() + 2 > size) {
    pending_.insert(at + size, value.size() + 2 - size, '"');
  } else {
    pending_.erase(at + value.size() + 2, size - value.size() - 2);
  }
  pending_[at] = '"';
  value.copy(&pending_[at + 1], value.size());
  pending_[at + 1 + value.size()] = '"';
}

void ConfigOutput::endLine() {
  pending_ += '\n';
  if (pending_.size() < kOutputBlock) return;
  out_.write(pending_.data(), static_cast<std::streamsize>(pending_.size()));
  pending_.clear();
}

void ConfigOutput::addAssignment(const std::string& key, const std::string& value) {
  const std::size_t at = pending_.size();
  pending_ += key;
  for (std::size_t i = at; i < pending_.size(); ++i)
    pending_[i] = KFL::toUpper(pending_[i]);
  if (KFL::isSpecialBashName(std::string_view(pending_).substr(at))) pending_.replace(at, key.size(), key);
  pending_.append("=\"").append(value).append(1, '"');
  endLine();
}

int ConfigOutput::finish() {
  if (!pending_.empty()) out_.write(pending_.data(), static_cast<std::streamsize>(pending_.size()));
  pending_.clear();
  if (!out_.fail()) return 0;
  KFL::setErrorMessage("failed to write output stream");
  return -1;
}

}  // namespace detail

}  // namespace KFA
