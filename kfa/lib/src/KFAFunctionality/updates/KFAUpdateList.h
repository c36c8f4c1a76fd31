// SPDX-License-Identifier: Apache-2.0
// Updates of any class, held by counted pointers. In a message each is an element with the type tag of its class.
//
// A copy holds the same updates, not copies of them. A list that is part of another record gives its elements the
// name that the record chose; on its own it writes "update" elements.
#ifndef KFAFUNCTIONALITY_UPDATES_KFAUPDATELIST_H
#define KFAFUNCTIONALITY_UPDATES_KFAUPDATELIST_H

#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLMessage/KFLRecordFields.h>

#include <KFAFunctionality/KFATypes.h>

namespace KFA {

class KFAUpdate;

class KFAUpdateList : public std::vector<boost::shared_ptr<KFAUpdate>> {
 public:
  using std::vector<boost::shared_ptr<KFAUpdate>>::vector;

  static const KFLFieldTable& fields();
  // A null pointer, and an update of a class that is not registered, cannot be written.
  using Writer = KFLRecordWriter<KFAUpdateList>;
  // Replaces the updates. An element of a type that is not known here is read as a KFAUpdate, so that the updates
  // of a newer agent are listed with what all updates have. An update that cannot be read ends the reading.
  using Reader = KFLRecordReader<KFAUpdateList>;
};

}  // namespace KFA

#endif
