// SPDX-License-Identifier: Apache-2.0
// Records in messages, seen through their field tables: as documents, and as the place where one is at fault.
#ifndef KFACTL_RECORDVIEW_H
#define KFACTL_RECORDVIEW_H

#include <cstddef>
#include <string>
#include <vector>

#include <KFLMessage/KFLRecordFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "environments/Elements.h"
#include "terminal/Document.h"

namespace kfactl {

// The properties of an environment's configuration with the types of their values, as a field table is for other
// records. It describes; nothing is read or written through it.
const KFL::KFLFieldTable& environmentFields();

// The record's fields, or the elements that it describes; null for one that is a text.
const KFL::KFLFieldTable* fieldTableOf(const std::string& recordName);

// The current element as an object by element names: numbers, booleans and texts, lists as arrays, records as objects.
// What the table does not know is a text, or an object of texts. A null table knows nothing.
Document describeElement(const KFL::KFLMessageIterator& it, const KFL::KFLFieldTable* table);

struct ElementFault {
  std::string path;       // from the root: /venv_config/on_boot; empty when no fault was found
  std::size_t index = 0;  // of the element among all, in document order
  std::string text;
};

enum class FaultScope {
  Required,  // only what keeps the record from being read
  Any,       // whatever a field cannot take
};

// The elements that cannot be read as the table says, or lack a required field, in document order.
std::vector<ElementFault> findFaults(const Elements& elements, const KFL::KFLFieldTable* table,
                                     FaultScope scope);

// The elements that the table has no place for, in document order; what stands below one is not looked at.
std::vector<std::size_t> findUnknown(const Elements& elements, const KFL::KFLFieldTable* table);

// Why the record cannot be read from the current element; empty when it can.
std::string refusalOf(const KFL::KFLMessageIterator& it, const KFL::KFLRecordType& record);

// The first of the faults.
ElementFault findFault(const KFL::KFLMessageIterator& root, const KFL::KFLFieldTable* table,
                       FaultScope scope);

}  // namespace kfactl

#endif
