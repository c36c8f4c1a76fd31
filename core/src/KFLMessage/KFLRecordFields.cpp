#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

int KFLFieldTable::write(KFLMessageIterator& it, const void* record) const {
  for (const KFLField& row : rows_) {
    const int result = row.put(it, record, row);
    if (result != 0 && row.failsWrite) return result;
  }
  return 0;
}

int KFLFieldTable::read(const KFLMessageIterator& it, void* record) const {
  for (const KFLField& row : readRows_) {
    const int result = row.get(it, record, row);
    if (result != 0 && row.failsRead) return result;
  }
  return 0;
}

}  // namespace KFL
