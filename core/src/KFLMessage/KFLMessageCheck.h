// SPDX-License-Identifier: Apache-2.0
// What a record does not read, or does not keep, of a message: for agents that must tell the sender, and for tools.
//
//   std::vector<KFLMessageFinding> findings;
//   if (checkMessage(message.getIterator(), *findRecordType("KFAEnvConfig"), findings) != 0) ...
//
// Memory that runs out passes through as std::bad_alloc; `findings` is then empty, and `result` as before.
// The time goes with the size of the message, whatever stands in it. Any thread; the message is only read.
#ifndef KFLMESSAGE_KFLMESSAGECHECK_H
#define KFLMESSAGE_KFLMESSAGECHECK_H

#include <cstddef>
#include <string>
#include <vector>

#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace KFL {

// One element at fault.
struct KFLMessageFinding {
  std::string path;         // as KFLMessageIterator::getPath() tells it: /venv_config/net_device[2]/mac
  std::size_t element = 0;  // its number in document order, 0 for the one that was checked
  std::string text;         // what is wrong and what is wanted, without the path
};
using KFLMessageFindings = std::vector<KFLMessageFinding>;

// What else a check can tell.
struct KFLMessageCheckResult {
  KFLMessage written;    // the message that the record writes
  std::size_t lost = 0;  // how many elements are not kept as they are, with all that stand below
};

// Reads the record from the current element, writes it into a message of its own, and compares the two: order and
// spelling of values do not matter. 0, with `findings` in document order, none for a message that is kept whole; -1,
// with an error text and `findings` saying what stands in the way, when the record cannot be read or written. An element
// whose value cannot be read, or that is never read, is a finding also where the record reads on, and where it keeps the
// element as it is.
int checkMessage(const KFLMessageIterator& it, const KFLRecordType& record, KFLMessageFindings& findings,
                 KFLMessageCheckResult* result = nullptr);

enum class KFLFaultScope {
  Required,  // only what keeps the record from being read
  Any,       // whatever a field cannot take
};

// The elements that cannot be read as the table says, or lack a required element, in document order; with Any also those
// that are never read, as they stand behind the only one of their name that is, or behind the end of their list. A null
// table knows nothing.
KFLMessageFindings findFaults(const KFLMessageIterator& it, const KFLFieldTable* table, KFLFaultScope scope);

}  // namespace KFL

#endif
