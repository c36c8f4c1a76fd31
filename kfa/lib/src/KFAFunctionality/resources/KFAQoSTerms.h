// SPDX-License-Identifier: Apache-2.0
// The terms of a compiled formula, in postfix order. Plain values.
#ifndef KFAFUNCTIONALITY_RESOURCES_KFAQOSTERMS_H
#define KFAFUNCTIONALITY_RESOURCES_KFAQOSTERMS_H

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

#include <KFLCommon/KFLLanguage.h>

namespace KFA {

class KFAQVProgram;

// What a term is.
enum KFAQVTermKind {
  KFAQVTermParameter = 1,
  KFAQVTermOperator = 2,
  KFAQVTermNumber = 3,
  KFAQVTermMultiple = 4,  // the word QOS: one parameter after the other
};

// Added to a parameter's index when its hard value is meant.
inline constexpr int kHardOffset = 100;
// The highest index that the encoding can tell apart.
inline constexpr int kLastParameterIndex = kHardOffset - 1;

// One term of a compiled formula.
struct KFAQVTermType {
  int kind = 0;   // KFAQVTermKind
  int value = 0;  // index (+ kHardOffset), row of the operator table, or the number itself

  friend bool operator==(const KFAQVTermType&, const KFAQVTermType&) = default;
};

// A sequence of terms, used like a std::vector. Beside the terms of a compiled formula stands the same
// formula in a form that is faster to evaluate. Whatever hands out a term that can be changed drops that
// form, and the formula is evaluated term by term from then on.
class KFAQVTerms {
 public:
  using Vector = std::vector<KFAQVTermType>;
  using value_type = KFAQVTermType;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using reference = KFAQVTermType&;
  using const_reference = const KFAQVTermType&;
  using iterator = Vector::iterator;
  using const_iterator = Vector::const_iterator;

  KFAQVTerms() = default;
  KFAQVTerms(std::initializer_list<KFAQVTermType> terms) : terms_(terms) {}
  KFAQVTerms(Vector terms) : terms_(std::move(terms)) {}

  operator const Vector&() const { return terms_; }
  std::size_t size() const { return terms_.size(); }
  bool empty() const { return terms_.empty(); }
  const KFAQVTermType* data() const { return terms_.data(); }
  const_reference operator[](std::size_t place) const { return terms_[place]; }
  const_reference at(std::size_t place) const { return terms_.at(place); }
  const_reference front() const { return terms_.front(); }
  const_reference back() const { return terms_.back(); }
  const_iterator begin() const { return terms_.begin(); }
  const_iterator end() const { return terms_.end(); }
  const_iterator cbegin() const { return terms_.begin(); }
  const_iterator cend() const { return terms_.end(); }

  reference operator[](std::size_t place) { return change()[place]; }
  reference at(std::size_t place) { return change().at(place); }
  reference front() { return change().front(); }
  reference back() { return change().back(); }
  iterator begin() { return change().begin(); }
  iterator end() { return change().end(); }
  void push_back(const KFAQVTermType& term) { change().push_back(term); }
  template <class... Fields>
  reference emplace_back(Fields... fields) {
    return change().emplace_back(KFAQVTermType{fields...});
  }
  void pop_back() { change().pop_back(); }
  void reserve(std::size_t size) { terms_.reserve(size); }
  void resize(std::size_t size) { change().resize(size); }
  void clear() { change().clear(); }

  // The terms for any change.
  Vector& change() {
    program_.reset();
    return terms_;
  }

  // The fast form; null where there is none.
  const KFAQVProgram* program() const { return program_.get(); }
  void setProgram(std::shared_ptr<const KFAQVProgram> program) { program_ = std::move(program); }

  friend bool operator==(const KFAQVTerms& a, const KFAQVTerms& b) { return a.terms_ == b.terms_; }

 private:
  Vector terms_;
  std::shared_ptr<const KFAQVProgram> program_;
};

}  // namespace KFA

#endif
