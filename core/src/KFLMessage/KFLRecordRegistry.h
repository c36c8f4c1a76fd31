// SPDX-License-Identifier: Apache-2.0
// Every record class by name, with what is needed to create, read and write one without knowing its class.
//
// Each unit registers its records with one static KFLRecordRegistration per class; they leave the registry
// when their library is unloaded. Tools use it to check and print any message. Registration is for load time;
// reading is for any thread, and a KFLRecordType is valid while its library is loaded.
#ifndef KFLMESSAGE_KFLRECORDREGISTRY_H
#define KFLMESSAGE_KFLRECORDREGISTRY_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLRecordType {
 public:
  using Object = std::shared_ptr<void>;

  KFLRecordType(const KFLRecordType&) = delete;
  KFLRecordType& operator=(const KFLRecordType&) = delete;

  // The class name, without its namespace unless that tells two classes apart.
  const char* name() const { return name_; }
  const char* namespaceUri() const { return namespaceUri_(); }
  // Empty for a record that has none.
  const char* typeTag() const { return typeTag_(); }
  // The field table; null for a record that binds by functions of its own.
  const KFLFieldTable* table() const { return table_ == nullptr ? nullptr : &table_(); }
  // What the record's message holds: its fields, or else the elements that it describes; null for a text.
  const KFLFieldTable* elements() const { return elements_ == nullptr ? nullptr : &elements_(); }
  // The name of the root element of a message that holds one such record: that of its type tag without "Type", or
  // else of its class ("ubc" for KFAUbc).
  std::string rootName() const;

  Object create() const { return create_(); }
  // Into and from the current element; the record's own results. After std::bad_alloc object, message and cursor are as
  // before.
  int read(const KFLMessageIterator& it, void* object) const { return read_(it, object); }
  int write(KFLMessageIterator& it, const void* object) const { return write_(it, object); }

 protected:
  using Text = const char* (*)();
  using Read = int (*)(const KFLMessageIterator&, void*);
  using Write = int (*)(KFLMessageIterator&, const void*);

  KFLRecordType(const char* className, Text namespaceText, Text typeTagText, KFLField::Table fieldTable,
                KFLField::Table elementTable, Object (*creator)(), Read reader, Write writer);
  ~KFLRecordType();

 private:
  const char* name_;
  Text namespaceUri_;
  Text typeTag_;
  KFLField::Table table_;
  KFLField::Table elements_;
  Object (*create_)();
  Read read_;
  Write write_;
};

template <class Record, class Reader = typename Record::Reader, class Writer = typename Record::Writer>
class KFLRecordRegistration : public KFLRecordType {
 public:
  explicit KFLRecordRegistration(const char* name)
      : KFLRecordType(name, &namespaceText, &typeTagText, fields::tableOf<Record>(),
                      fields::descriptionOf<Record>(), &create, &read, &write) {}

 private:
  // What the writer names itself, or else what its numbers are called.
  static const char* named(const char* text, std::string_view numbered) {
    return *text != '\0' || numbered.empty() ? text : numbered.data();
  }
  static const char* namespaceText() { return named(Writer::getStrNSID(), namespaceName(Writer::getNSID())); }
  static const char* typeTagText() { return named(Writer::getStrTypeID(), typeName(Writer::getTypeID())); }
  static Object create() { return std::make_shared<Record>(); }
  static int read(const KFLMessageIterator& it, void* object) {
    return Reader()(it, *static_cast<Record*>(object));
  }
  static int write(KFLMessageIterator& it, const void* object) {
    return it.putObject(*static_cast<const Record*>(object), Writer());
  }
};

// The record of this class name; null when there is none.
const KFLRecordType* findRecordType(std::string_view name);
// The record with this type tag in this namespace; null when there is none.
const KFLRecordType* findRecordType(std::string_view namespaceUri, std::string_view typeTag);
// All records in the order of their names.
std::vector<const KFLRecordType*> listRecordTypes();

}  // namespace KFL

#endif
