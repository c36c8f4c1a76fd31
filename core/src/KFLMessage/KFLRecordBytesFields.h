// SPDX-License-Identifier: Apache-2.0
// The field row of a text that may hold any bytes, such as what a program printed: base64 in the message. For field
// tables; see KFLRecordFields.h.
//
//   bytes<R, &R::output_>("output").required()
#ifndef KFLMESSAGE_KFLRECORDBYTESFIELDS_H
#define KFLMESSAGE_KFLRECORDBYTESFIELDS_H

#include <KFLCommon/KFLBase64.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

namespace fields {

template <class Record, auto Member>
struct BytesField {
  static_assert(std::is_same_v<MemberType<Record, Member>, std::string>, "bytes are held by a string");
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    return it.putValue(toBase64(static_cast<const Record*>(record)->*Member), row.id);
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    std::string text;
    return it.getValue(text, row.id) == 0 ? fromBase64(text, static_cast<Record*>(record)->*Member) : -1;
  }
};

}  // namespace fields

// One element that holds the bytes; what is no strict base64 is not well formed.
template <class Record, auto Member>
constexpr KFLField bytes(KFLElementID id) {
  KFLField made = fields::row<std::string, fields::BytesField<Record, Member>>(KFLFieldShape::Element, id);
  made.valueType = "base64Binary";
  return made;
}

}  // namespace KFL

#endif
