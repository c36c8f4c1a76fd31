// SPDX-License-Identifier: Apache-2.0
// The tag vocabulary: the permanent numbers of well-known element names, namespaces and types.
//
// A number never changes its name and is never given away again, since records in files and messages of other
// agents rely on it. Everything here is constant: any thread may call it, also while libraries are being
// loaded.
#ifndef KFLMESSAGE_KFLTAGVOCABULARY_H
#define KFLMESSAGE_KFLTAGVOCABULARY_H

#include <cstddef>
#include <string_view>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

struct KFLTag {
  int number;
  std::string_view name;
};

// The whole vocabulary in ascending order of the numbers.
struct KFLTagRange {
  const KFLTag* first;
  const KFLTag* last;
  const KFLTag* begin() const { return first; }
  const KFLTag* end() const { return last; }
  std::size_t size() const { return static_cast<std::size_t>(last - first); }
};
KFLTagRange tagVocabulary();

// The element name of a vocabulary number; empty when the vocabulary has no such number.
std::string_view tagName(int number);

// The vocabulary number of an element name; 0 when the vocabulary has no such name.
int tagNumber(std::string_view name);

// The URI of a numbered namespace; empty when there is none.
std::string_view namespaceName(int number);

// The type tag of a numbered type of the core; empty when there is none.
std::string_view typeName(int number);

// Numbered namespaces of the core.
inline constexpr int kTypesNamespace = 292;
inline constexpr int kRelocatorNamespace = 294;
inline constexpr const char* kTypesNamespaceURI = "http://kelvarium.internal/webservices/kfl/4.0.0/types";
inline constexpr const char* kRelocatorNamespaceURI =
    "http://kelvarium.internal/webservices/kfl/4.0.0/relocator";

}  // namespace KFL

#endif
