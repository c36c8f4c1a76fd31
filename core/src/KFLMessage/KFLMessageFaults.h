// SPDX-License-Identifier: Apache-2.0
// Not installed: the elements of a message held against the field table of the record that they are read as.
#ifndef KFLMESSAGE_KFLMESSAGEFAULTS_H
#define KFLMESSAGE_KFLMESSAGEFAULTS_H

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLMessageCheck.h>

#include "KFLMessageElements.h"

#pragma GCC visibility push(hidden)

namespace KFL {

// A table's rows by element name, those of its base parts included.
using KFLRowsByName = std::unordered_map<std::string_view, const KFLField*>;

// What an element is read as.
struct KFLExpectation {
  const KFLField* row = nullptr;  // none for the top, and for what is not looked at
  const KFLFieldTable* table = nullptr;
  bool isContainer = false;         // only its children are
  const KFLField* entry = nullptr;  // the map whose entry it is
};

class KFLMessageFaults {
 public:
  // The elements must outlive it. A null table knows nothing.
  KFLMessageFaults(const KFLMessageElements& elements, const KFLFieldTable* table, KFLFaultScope scope);

  // What cannot be read, in document order.
  KFLMessageFindings find();
  // What no reader gets to, though it could be read: what stands behind the only element that is read, or behind the end
  // of a list.
  KFLMessageFindings findIgnored() const;
  // Whether what the element stands in has a place for it.
  bool hasPlace(std::size_t index) const;
  // Whether it is one of any number: an item of a list or a map.
  bool isItem(std::size_t index) const;
  // The record that it stands in, or the element there that is none.
  std::string ownerOf(std::size_t index) const;

 private:
  const KFLRowsByName& rowsOf(const KFLFieldTable* table) const;
  const KFLField* rowOf(std::size_t index) const;
  std::string_view idOf(std::size_t item) const;
  bool readsByType(const KFLField& row) const;
  const KFLFieldTable* tableOfElement(const KFLMessageIterator& it, const KFLField& row);
  KFLExpectation expect(const KFLExpectation& parent, const KFLMessageElement& child, KFLFaultScope scope);
  std::string faultOf(std::size_t index);
  std::string faultOfType(const KFLMessageIterator& it, const KFLFieldTable& base) const;
  std::string refusalOf(std::size_t index) const;

  const KFLMessageElements& elements_;
  mutable std::unordered_map<const KFLFieldTable*, KFLRowsByName> rows_;
  std::unordered_map<std::string, const KFLFieldTable*> tablesByType_;
  std::vector<KFLDerivedTypeInfo> derived_;
  std::vector<KFLExpectation> expected_;
};

// The thread's error text without the path of the element with which it begins.
std::string reasonWithout(const std::string& path);

}  // namespace KFL

#pragma GCC visibility pop

#endif
