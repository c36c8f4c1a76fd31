// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordNamedFields.h>

#include <KFLCommon/KFLError.h>

namespace KFL::fields {

int putName(KFLMessageIterator& it, int number, const KFLField& row) {
  if (const char* const name = row.names->findName(number)) return it.putValue(name, row.id);
  const std::string element(row.elementName());
  setErrorMessage("the element '%s' cannot hold the number %d, which has no name; that of %s would be right",
                  element.c_str(), number, row.names->listNames().c_str());
  return -1;
}

int getName(const KFLMessageIterator& it, int& number, const KFLField& row) {
  if (it.findChild(row.id) != 0) return -1;
  const int result = row.names->findNumber(it.getText(), number);
  it.leaveChild();
  return result;
}

}  // namespace KFL::fields
