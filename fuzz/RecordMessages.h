// SPDX-License-Identifier: Apache-2.0
// Messages of records as their field tables describe them: random ones, and a judge of written ones.
#ifndef KFA_FUZZ_RECORDMESSAGES_H
#define KFA_FUZZ_RECORDMESSAGES_H

#include <string>

#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "Fuzzing.h"

namespace kfl_fuzz {

// A message of the record: elements of its table, most with values that the table takes, some without.
KFL::KFLMessage randomMessage(const KFL::KFLRecordType& record, Choices& choices);

// What the schema that the table stands for says against the element; empty when it takes it. Records that bind by
// functions of their own, and elements that name another type than the row's, are not looked into.
std::string schemaFault(const KFL::KFLMessageIterator& element, const KFL::KFLFieldTable& table);

}  // namespace kfl_fuzz

#endif
