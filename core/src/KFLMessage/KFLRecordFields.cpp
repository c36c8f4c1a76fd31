// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordFields.h>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLNumberNames.h>

namespace KFL {

namespace {

// What a value must be; empty for one that has a text form of its own, whose reader has said what is wrong.
std::string acceptedBy(const KFLField& row) {
  if (row.names != nullptr) return row.names->listNames();
  if (row.valueType.empty() || row.valueType == "string") return {};
  return "a value of type " + std::string(row.valueType);
}

// Says which element of the record could not be read. What is wrong inside a part has been said by its own reader.
void explainFailure(const char* record, const KFLMessageIterator& it, const KFLField& row) {
  if (row.id.isEmpty()) return;
  const std::string name(row.elementName());
  std::string text;
  if (!it.hasChild(row.id)) {
    setErrorMessage("%s: there is no element '%s'; it must be there", record, name.c_str());
  } else if (row.shape == KFLFieldShape::Element && row.table == nullptr && it.getValue(text, row.id) == 0) {
    const std::string accepted = acceptedBy(row);
    if (accepted.empty())
      setErrorMessage("%s: the element '%s': %s", record, name.c_str(), getErrorMessage().c_str());
    else
      setErrorMessage("%s: the element '%s' holds '%s'; %s would be right", record, name.c_str(),
                      text.c_str(), accepted.c_str());
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
    if (result == 0 || !row.failsRead || (row.mayBeAbsent && !it.hasChild(row.id))) continue;
    explainFailure(record_, it, row);
    return result;
  }
  return 0;
}

}  // namespace KFL
