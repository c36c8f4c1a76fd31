// SPDX-License-Identifier: Apache-2.0
// Records in messages, seen through their field tables: as documents.
#ifndef KFACTL_RECORDVIEW_H
#define KFACTL_RECORDVIEW_H

#include <string>

#include <KFLMessage/KFLRecordFields.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "terminal/Document.h"

namespace kfactl {

// The record's fields, or the elements that it describes; null for one that is a text.
const KFL::KFLFieldTable* fieldTableOf(const std::string& recordName);

// The current element as an object by element names: numbers, booleans and texts, lists as arrays, records as objects.
// What the table does not know is a text, or an object of texts. A null table knows nothing.
Document describeElement(const KFL::KFLMessageIterator& it, const KFL::KFLFieldTable* table);

}  // namespace kfactl

#endif
