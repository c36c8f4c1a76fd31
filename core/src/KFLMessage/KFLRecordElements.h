// SPDX-License-Identifier: Apache-2.0
// Rows that only describe elements: for records that bind by functions of their own, such as a configuration,
// which is its message. Schemas and tools read them; nothing is read or written through them.
//
//   const KFLFieldTable& KFLThing::elements() {
//     static constexpr KFLField rows[] = {
//         element<int>(1002),                // a value, or a record
//         elementList<KFLOther>("other"),    // one element per item; an empty one stands for an empty list
//         elementsOf<KFLBaseOfThing>(),      // what the base class describes
//     };
//     static constexpr auto table = KFLFieldTable{"KFLThing", kNamespace, "thingType", rows}.inAnyOrder();
//     return table;
//   }
#ifndef KFLMESSAGE_KFLRECORDELEMENTS_H
#define KFLMESSAGE_KFLRECORDELEMENTS_H

#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

namespace fields {

template <class T>
constexpr KFLField describe(KFLFieldShape shape, KFLElementID id) {
  KFLField row;
  row.id = id;
  row.shape = shape;
  row.valueType = valueTypeOf<T>();
  row.table = descriptionOf<T>();
  row.probe = probeOf<T>();
  row.maxElements = shape == KFLFieldShape::List ? 0 : 1;
  return row;
}

}  // namespace fields

template <class T>
constexpr KFLField element(KFLElementID id) {
  return fields::describe<T>(KFLFieldShape::Element, id);
}
template <class T>
constexpr KFLField elementList(KFLElementID id) {
  KFLField row = fields::describe<T>(KFLFieldShape::List, id);
  row.emptyItemIsNone = true;
  return row;
}
template <class Base>
constexpr KFLField elementsOf() {
  return fields::describe<Base>(KFLFieldShape::Inline, {});
}

}  // namespace KFL

#endif
