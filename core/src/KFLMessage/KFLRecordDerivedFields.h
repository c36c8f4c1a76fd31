// SPDX-License-Identifier: Apache-2.0
// The field row of a list of polymorphic objects. For field tables; see KFLRecordFields.h.
#ifndef KFLMESSAGE_KFLRECORDDERIVEDFIELDS_H
#define KFLMESSAGE_KFLRECORDDERIVEDFIELDS_H

#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

namespace fields {

// A member, or with a null one the record itself.
template <auto Member, class Record>
auto& memberOrSelf(Record& record) {
  if constexpr (std::is_null_pointer_v<decltype(Member)>)
    return record;
  else
    return record.*Member;
}

template <class Record, class Base, auto Member>
struct DerivedListField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    const auto& items = memberOrSelf<Member>(*static_cast<const Record*>(record));
    return KFLWriterDerivedList<Base>(row.id)(it, items) == 0 ? 0 : -1;
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    auto& items = memberOrSelf<Member>(*static_cast<Record*>(record));
    items.clear();
    return KFLReaderDerivedList<Base>(row.id, true)(it, items);
  }
};

}  // namespace fields

// One element per item of a list of counted pointers to Base, each with the type tag of its own class; no element
// reads as an empty list. The list is a member, or, when none is named, the record itself. An element whose type
// has no factory becomes an object of the registry's default class; where there is none, reading fails. So does
// writing a null pointer or a class without a factory. Its failure is the record's, in both directions.
template <class Record, class Base, auto Member = nullptr>
constexpr KFLField derivedList(KFLElementID itemId) {
  using Binding = fields::DerivedListField<Record, Base, Member>;
  KFLField made = fields::row<Base, Binding>(KFLFieldShape::List, itemId);
  made.isPolymorphic = true;
  return made.required().mustWrite();
}

}  // namespace KFL

#endif
