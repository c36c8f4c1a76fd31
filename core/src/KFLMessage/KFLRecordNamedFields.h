// SPDX-License-Identifier: Apache-2.0
// The field row of a number that stands in a message as a name.
//
// A name that its table lacks cannot be read, a number that has none cannot be written; both leave a text that
// lists what is accepted. For field tables; see KFLRecordFields.h.
//
//   named<R, &R::color_>(1007, R::colorIdToName).wellFormed().whenNotEmpty()
//
// is an element that may be absent, which reads as the number of a new record, and that is not written for 0.
#ifndef KFLMESSAGE_KFLRECORDNAMEDFIELDS_H
#define KFLMESSAGE_KFLRECORDNAMEDFIELDS_H

#include <KFLMessage/KFLNumberNames.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

namespace fields {

// Writes the number as its name in the row's table: 0, or -1 with nothing written.
int putName(KFLMessageIterator& it, int number, const KFLField& row);
// Reads it back: 0; 1 when the element is absent, or -1 when its name is unknown, with `number` untouched.
int getName(const KFLMessageIterator& it, int& number, const KFLField& row);

template <class Record, auto Member>
struct NamedField {
  static_assert(std::is_same_v<MemberType<Record, Member>, int>, "what has a name is an int");
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    const int number = static_cast<const Record*>(record)->*Member;
    return number == 0 && row.write == KFLFieldWrite::WhenNotEmpty ? 0 : putName(it, number, row);
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    int& number = static_cast<Record*>(record)->*Member;
    const int result = getName(it, number, row);
    if (result != 0 && row.becomesDefault()) number = Record().*Member;
    return result;
  }
};

}  // namespace fields

// One element that holds the name of a number. The table must outlive the row.
template <class Record, auto Member>
constexpr KFLField named(KFLElementID id, const KFLNumberNames& names) {
  using Binding = fields::NamedField<Record, Member>;
  KFLField made = fields::row<std::string, Binding>(KFLFieldShape::Element, id);
  made.names = &names;
  return made.mustWrite();
}

}  // namespace KFL

#endif
