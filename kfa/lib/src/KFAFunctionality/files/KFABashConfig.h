// SPDX-License-Identifier: Apache-2.0
// The one reader and the one writer of KEY="value" files, as templates over a parameter parser.
//
// A parameter parser knows which keys there are and turns the text of a value into a property and back:
//
//   int put(const std::string& key, const char* value);              reading
//   int get(const std::string& key, std::string& value);             writing
//   int getNext(const std::string& previous, std::string& next);     writing: each key once, then -1
//
// Keys are given in lower case. Nothing is shared between calls; a parser object with a getNext serves one pass. The
// trap: a value is written between double quotes as it stands, so what a shell would not read back must be refused
// before (KFAConfigFile does).
#ifndef KFAFUNCTIONALITY_FILES_KFABASHCONFIG_H
#define KFAFUNCTIONALITY_FILES_KFABASHCONFIG_H

#include <cstddef>
#include <cstring>
#include <istream>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>

#include <KFLBash/KFLBashStr.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFAKeyIndex.h>

namespace KFA {

// Results of parameter parsers.
inline constexpr int kParameterDone = 0;
inline constexpr int kParameterFailed = -1;
inline constexpr int kParameterUnknown = -1001;       // no such key
inline constexpr int kParameterWithoutValue = -1002;  // the key is known, but there is nothing to write
inline constexpr int kParameterNotConverted = -1003;  // the text is no value of this key

// Reads the next line into *buffer, NUL-terminated and without its newline. The buffer comes from realloc (start with
// null and a capacity of 0, release with free) and grows to exactly what the longest line needed. Returns the line's
// length, or -1 when there was no further line; then the buffer is as it was. Memory that runs out is std::bad_alloc,
// with the buffer as it was and part of the line gone from the stream.
int readStringFromStream(std::istream& in, char** buffer, unsigned int* capacity);

namespace detail {

// The line buffer of one pass.
class LineBuffer {
 public:
  LineBuffer() = default;
  LineBuffer(const LineBuffer&) = delete;
  LineBuffer& operator=(const LineBuffer&) = delete;
  ~LineBuffer();

  int read(std::istream& in) { return readStringFromStream(in, &text_, &capacity_); }
  // A copy of the line that may be taken apart.
  char* copy(std::string_view line);
  char* text() const { return text_; }

 private:
  char* text_ = nullptr;
  unsigned int capacity_ = 0;
};

// The lines of a stream, as getline gives them, taken apart where they stand in the stream's buffer. Each is valid until the
// next one is asked for. While it lives the stream's position is unsettled; afterwards it is behind the last line given.
class ConfigLines {
 public:
  explicit ConfigLines(std::istream& in) : in_(in) { latch(); }
  ConfigLines(const ConfigLines&) = delete;
  ConfigLines& operator=(const ConfigLines&) = delete;
  ~ConfigLines() { release(); }

  // The next line, and what it tells without the grammar; isPlain says whether it does.
  bool next(std::string_view& line, KFL::KFLBashPlainLine& plain, bool& isPlain) {
    const std::string_view ready(at_, static_cast<std::size_t>(end_ - at_));
    isPlain = !ready.empty() && KFL::readPlainBashLine(ready, plain) && plain.length < ready.size();
    if (isPlain) {
      line = ready.substr(0, plain.length);
      at_ += plain.length + 1;
      return true;
    }
    if (!next(line)) return false;
    isPlain = KFL::readPlainBashLine(line, plain);
    return true;
  }

 private:
  bool next(std::string_view& line) {
    const void* const newline =
        at_ == end_ ? nullptr : std::memchr(at_, '\n', static_cast<std::size_t>(end_ - at_));
    if (newline == nullptr) return nextAcrossBuffers(line);
    line = {at_, static_cast<std::size_t>(static_cast<const char*>(newline) - at_)};
    at_ += line.size() + 1;
    return true;
  }
  void latch();
  void release();
  bool nextAcrossBuffers(std::string_view& line);

  std::istream& in_;
  const char* begin_ = nullptr;
  const char* at_ = nullptr;
  const char* end_ = nullptr;
  std::string joined_;
};

// No line that is parsed is longer: its positions must be numbers.
inline constexpr std::size_t kMaxLine = std::numeric_limits<int>::max() - 1;

// A key as parsers are given it: the name in lower case.
inline void assignLower(std::string& key, std::string_view name) {
  key.resize(name.size());
  char* const lower = key.data();
  for (std::size_t i = 0; i < name.size(); ++i)
    lower[i] = KFL::toLower(name[i]);
}

// What a line assigns.
struct ConfigAssignment {
  std::string_view name;
  std::string_view value;
  std::size_t first = 0;  // where the value stands, quotes included
  std::size_t size = 0;
};

// Reads the assignments of a stream one after the other, line by line.
class ConfigAssignments {
 public:
  explicit ConfigAssignments(std::istream& in) : lines_(in) {}

  // Goes to the next line; false at the end.
  bool next() { return lines_.next(line_, plain_, isPlain_); }
  std::string_view line() const { return line_; }
  // What the line assigns: the result of parseBashStr.
  int read(ConfigAssignment& assignment) {
    if (!isPlain_) return parse(assignment);
    assignment = {plain_.name, plain_.value, plain_.first, plain_.end - plain_.first};
    return plain_.name.empty() ? KFL::kBashNothing : KFL::kBashAssignment;
  }
  // The value with a NUL behind it, until the next line is read.
  const char* terminate(const ConfigAssignment& assignment) {
    return isPlain_ ? buffer_.copy(assignment.value) : assignment.value.data();
  }

 private:
  int parse(ConfigAssignment& assignment);

  ConfigLines lines_;
  LineBuffer buffer_;
  std::string_view line_;
  KFL::KFLBashPlainLine plain_;
  bool isPlain_ = false;
};

// A parser that takes a name as it is written and a value without a NUL behind it.
template <class P>
concept TakesViews = requires(P& parser, std::string_view text) {
  parser.putViews(text, text);
};

// The keys whose lines were rewritten.
using WrittenKeys = KFAKeyIndex<bool>;

// Gathers the lines of a file, so that the stream is troubled once for many of them.
class ConfigOutput {
 public:
  explicit ConfigOutput(std::ostream& out) : out_(out) {}

  void beginLine(std::string_view line);
  // Puts the quoted value in the place of that stretch of the line begun.
  void replaceValue(std::size_t first, std::size_t size, const std::string& value);
  void endLine();
  void addAssignment(const std::string& key, const std::string& value);
  // Hands everything over: 0, or -1 with an error text when the stream has failed.
  int finish();

 private:
  std::ostream& out_;
  std::string pending_;
  std::size_t lineBegin_ = 0;
};

}  // namespace detail

// Both functions below pass std::bad_alloc on; streams are then somewhere, and what the parser was given stays.
//
// Puts every assignment of the stream into the parser, in file order. What put returns does not matter: a value that
// is not taken leaves the record as it was. 0 at the end of the stream, or -1 with an error text at the first
// malformed line.
template <class P>
int parseBashLikeConfig(P& parser, std::istream& in) {
  detail::ConfigAssignments assignments(in);
  std::string key;
  detail::ConfigAssignment assignment;
  while (assignments.next()) {
    const int kind = assignments.read(assignment);
    if (kind == KFL::kBashMalformed) return -1;
    if (kind != KFL::kBashAssignment) continue;
    if constexpr (detail::TakesViews<P>) {
      parser.putViews(assignment.name, assignment.value);
    } else {
      detail::assignLower(key, assignment.name);
      parser.put(key, assignments.terminate(assignment));
    }
  }
  return 0;
}

namespace detail {

// Copies the existing lines, with new values where the parser has one.
template <class G>
void rewriteLines(G& parser, std::istream& existing, ConfigOutput& out, WrittenKeys& written) {
  ConfigAssignments assignments(existing);
  std::string key;
  std::string value;
  ConfigAssignment assignment;
  for (; assignments.next(); out.endLine()) {
    out.beginLine(assignments.line());
    if (assignments.read(assignment) != KFL::kBashAssignment) continue;
    assignLower(key, assignment.name);
    value.clear();
    if (parser.get(key, value) != kParameterDone) continue;
    out.replaceValue(assignment.first, assignment.size, value);
    written.add(key, true);
  }
}

}  // namespace detail

// Writes what the parser has. With merge and an existing file every line of that is copied first, only the values of
// the parser's keys replaced; keys that it lacks are appended in upper case, in the order of getNext; one that bash keeps
// for itself in upper case, such as UID, as the parser gives it. 0, or -1 with an error text when the output stream has
// failed.
template <class G>
int serializeBashLikeConfig(G& parser, std::ostream& out, std::istream* existing, bool merge) {
  detail::ConfigOutput output(out);
  detail::WrittenKeys written;
  if (merge && existing != nullptr && !existing->fail())
    detail::rewriteLines(parser, *existing, output, written);
  std::string previous;
  std::string key;
  std::string value;
  while (parser.getNext(previous, key) == kParameterDone) {
    value.clear();
    if (written.find(key) == nullptr && parser.get(key, value) == kParameterDone)
      output.addAssignment(key, value);
    previous.swap(key);
  }
  return output.finish();
}

}  // namespace KFA

#endif
