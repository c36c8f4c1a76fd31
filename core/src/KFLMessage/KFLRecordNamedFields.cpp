// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLRecordNamedFields.h>

namespace KFL::fields {

int putName(KFLMessageIterator& it, int number, const KFLField& row) {
  if (const char* const name = row.names->findName(number)) return it.putValue(name, row.id);
  return it.fail("element " + std::string(row.elementName()) + " cannot hold the number " +
                 std::to_string(number) + ", which has no name; that of " + row.names->listNames() +
                 " is wanted");
}

int getName(const KFLMessageIterator& it, int& number, const KFLField& row) {
  if (it.findChild(row.id) != 0) return 1;
  int result = row.names->findNumber(it.getText(), number);
  if (result != 0)
    result = it.fail("'" + std::string(it.getText()) + "' is no known name; " + row.names->listNames() +
                     " is wanted");
  it.leaveChild();
  return result;
}

}  // namespace KFL::fields
