#include <KFLMessage/KFLRecordFields.h>

#include <KFLCommon/KFLError.h>

namespace KFL {

namespace {

// Says which element of the record could not be read. What is wrong inside a part has been said by its own reader.
void explainFailure(const char* record, const KFLMessageIterator& it, const KFLField& row) {
  if (row.id.isEmpty()) return;
  const std::string name(row.id.number() != 0 ? tagName(row.id.number()) : row.id.name());
  std::string text;
  if (!it.hasChild(row.id)) {
    setErrorMessage("%s: there is no element '%s'; it must be there", record, name.c_str());
  } else if (row.shape == KFLFieldShape::Element && row.table == nullptr && it.getValue(text, row.id) == 0) {
    setErrorMessage("%s: the element '%s' holds '%s'; a value of type %.*s would be right", record,
                    name.c_str(), text.c_str(), static_cast<int>(row.valueType.size()), row.valueType.data());
  }
}

}  // namespace

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
    if (result == 0 || !row.failsRead) continue;
    explainFailure(record_, it, row);
    return result;
  }
  return 0;
}

}  // namespace KFL
