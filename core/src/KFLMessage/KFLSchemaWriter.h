// SPDX-License-Identifier: Apache-2.0
// XML schemas of the registered records, made from the field tables by which they are read and written.
//
// There is one schema for each namespace. In it stand a group for each field table, a type for each record (under its
// type tag, or else under its class name), and a root element for each record. A schema describes what writers write:
// the elements in their order, those that a reader needs at least once. A base part is a group of its own namespace, so
// it may stand anywhere among the derived fields; records that share a type tag are a choice; a polymorphic element
// has an empty type that the types of all its classes extend, so that xsi:type must name one of them.
#ifndef KFLMESSAGE_KFLSCHEMAWRITER_H
#define KFLMESSAGE_KFLSCHEMAWRITER_H

#include <string>
#include <vector>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

struct KFLSchema {
  std::string namespaceUri;
  std::string name;  // "kfatypes"; its file is kfatypes.xsd, and other schemas import it from beside them
  std::string text;  // the whole document
};

// The schemas of all records that are registered now, by name. Any thread.
std::vector<KFLSchema> makeSchemas();

}  // namespace KFL

#endif
