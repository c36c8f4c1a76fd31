// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

int KFLFieldTable::write(KFLMessageIterator& it, const void* record) const {
  for (const KFLField& row : rows_) {
    const std::size_t before = countErrorMessages();
    const int result = row.put(it, record, row);
    if (result == 0 || !row.failsWrite) continue;
    if (countErrorMessages() == before)
      it.fail(row.id.isEmpty() ? std::string(record_) + " cannot be written"
                               : "element " + std::string(row.elementName()) + " cannot be written");
    return result;
  }
  return 0;
}

int KFLFieldTable::read(const KFLMessageIterator& it, void* record) const {
  for (const KFLField& row : readRows_) {
    const std::size_t before = countErrorMessages();
    const int result = row.get(it, record, row);
    if (result == 0 || !row.failsRead || (row.mayBeAbsent && !it.hasChild(row.id))) continue;
    if (result == 1) return it.failMissing(row.id);
    if (countErrorMessages() == before) it.failAt(row.id, std::string("is not read as a part of ") + record_);
    return result;
  }
  return 0;
}

}  // namespace KFL
