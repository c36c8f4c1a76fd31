// SPDX-License-Identifier: Apache-2.0
// Not installed. What a value is made of: the words' stage records it, unquoting goes over it.
#ifndef KFLBASH_KFLBASHPIECES_H
#define KFLBASH_KFLBASHPIECES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace KFL {

struct KFLBashPiece {
  enum class Kind : std::uint8_t {
    Literal,    // text outside quotes: a backslash takes the next character as it is
    Mark,       // a quote or the dollar sign before one: not part of the value
    Single,     // text between single quotes
    Double,     // text between double quotes
    Ansi,       // text within $''
    Expansion,  // kept as it stands
    Blanks,     // between words in parentheses that turn out to be no array: one space
  };

  Kind kind;
  std::size_t end;  // it begins where the one before it ends
};

// The pieces of one value, without gaps.
class KFLBashPieces {
 public:
  explicit KFLBashPieces(std::size_t begin = 0) : begin_(begin), end_(begin) {}

  // The next piece, up to that position of the line; an empty one is none.
  void add(KFLBashPiece::Kind kind, std::size_t end) {
    if (end <= end_) return;
    pieces_.push_back({kind, end});
    end_ = end;
  }

  std::size_t begin() const { return begin_; }
  std::size_t end() const { return end_; }
  const std::vector<KFLBashPiece>& list() const { return pieces_; }

 private:
  std::size_t begin_;
  std::size_t end_;
  std::vector<KFLBashPiece> pieces_;
};

// Takes the quoting off, in place, as bash would: line is the text in which the pieces were found. Returns where the value
// ends; it begins where the pieces do, and is never longer than they.
std::size_t unquoteBashValue(std::span<char> line, const KFLBashPieces& pieces);

}  // namespace KFL

#endif
