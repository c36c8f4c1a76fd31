// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

namespace {

// What a row's own function says of its failure, or does not say, becomes a text that begins with a path.
void sayWhere(const KFLMessageIterator& it, const KFLField& row, std::size_t textsBefore,
              const std::string& otherwise) {
  const bool isSaid = countErrorMessages() != textsBefore;
  const std::string text = isSaid ? getErrorMessage() : otherwise;
  if (isSaid && text.starts_with(it.getPath())) return;
  if (row.id.isEmpty() || !it.hasChild(row.id))
    it.fail(text);
  else
    it.failAt(row.id, text);
}

}  // namespace

int KFLFieldTable::write(KFLMessageIterator& it, const void* record) const {
  KFLWriteGuard guard(it);
  const int result = writeRows(it, record);
  guard.keep();
  return result;
}

int KFLFieldTable::writeRows(KFLMessageIterator& it, const void* record) const {
  for (const KFLField& row : rows_) {
    const std::size_t before = countErrorMessages();
    const int result = row.put(it, record, row);
    if (result == 0 || !row.failsWrite) continue;
    sayWhere(it, row, before,
             row.id.isEmpty() ? std::string(record_) + " cannot be written"
                              : "element " + std::string(row.elementName()) + " cannot be written");
    return result;
  }
  return 0;
}

int KFLFieldTable::read(const KFLMessageIterator& it, void* record) const {
  const KFLCursorGuard guard(it);
  for (const KFLField& row : readRows_) {
    const std::size_t before = countErrorMessages();
    const int result = row.get(it, record, row);
    if (result == 0 || !row.failsRead || (row.mayBeAbsent && !it.hasChild(row.id))) continue;
    if (result == 1) return it.failMissing(row.id);
    sayWhere(it, row, before, std::string("is not read as a part of ") + record_);
    return result;
  }
  return 0;
}

}  // namespace KFL
