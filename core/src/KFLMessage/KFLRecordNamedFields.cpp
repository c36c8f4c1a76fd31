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
  const KFLCursorGuard guard(it);
  if (it.findChild(row.id) != 0) return 1;
  if (row.names->findNumber(it.getText(), number) == 0) return 0;
  return it.fail("'" + std::string(it.getText()) + "' is no known name; " + row.names->listNames() +
                 " is wanted");
}

}  // namespace KFL::fields
