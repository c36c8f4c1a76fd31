// SPDX-License-Identifier: Apache-2.0
// Records bound to elements by one table of fields each.
//
// A record declares `static const KFLFieldTable& fields();` and names KFLRecordWriter<Record> and
// KFLRecordReader<Record> as its Writer and Reader. Reader, writer, schema and documentation all come from
// that table, so they cannot disagree. A row names the element, the member, what makes it written and what
// makes reading fail. Tables are constant; any thread may use them.
//
//   const KFLFieldTable& KFLThing::fields() {
//     using R = KFLThing;
//     static constexpr KFLField rows[] = {
//         field<R, &R::name_>(1026).required(),
//         field<R, &R::comment_>("comment"),          // a KFLOptionalProperty: written when specified
//         presence<R, &R::enabled_>("enabled"),       // an empty element when true
//         list<R, &R::words_>("word"),                // one element per item
//         base<R, KFLBaseOfThing>(),                  // the base part, inline
//     };
//     static constexpr KFLFieldTable table{"KFLThing", kNamespace, "thingType", rows};
//     return table;
//   }
//
// Reading replaces every value: one whose element is absent or malformed becomes that of a new record. What a
// writer writes, the reader of the same table reads; what it could not read is left out or refused.
//
// Two more rows stand in headers of their own: named numbers in KFLRecordNamedFields.h, lists of polymorphic
// objects in KFLRecordDerivedFields.h.
#ifndef KFLMESSAGE_KFLRECORDFIELDS_H
#define KFLMESSAGE_KFLRECORDFIELDS_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLProperty.h>
#include <KFLMessage/KFLMessageIterator.h>
#include <KFLMessage/KFLTagVocabulary.h>

namespace KFL {

class KFLFieldTable;
class KFLNumberNames;

// How a field stands in the message.
enum class KFLFieldShape {
  Element,    // one child element: a value or a record
  Presence,   // an empty child element stands for true
  List,       // one child element per item, directly at the record's level
  Container,  // one child element that holds the items
  Map,        // one child element per entry, holding key and value
  Inline,     // the elements of a base or member record, at the same level
  Special,    // read and written by functions of the record's own
};

// When a field is written.
enum class KFLFieldWrite {
  Always,
  WhenSpecified,  // an optional property that is specified
  WhenNotEmpty,   // a text that is not empty, a GUID that is valid, a flag that is true, a list with items, a
                  // named number other than 0
};

// One row. Made by the functions below, then refined by its own; all of it is constant.
struct KFLField {
  using Put = int (*)(KFLMessageIterator& it, const void* record, const KFLField& field);
  // 0; 1, without an error text, for an element that is absent; or a negative result.
  using Get = int (*)(const KFLMessageIterator& it, void* record, const KFLField& field);
  using Table = const KFLFieldTable& (*)();
  // Reads one value or record of the row from the current element, and forgets it: 0, or -1 with an error text.
  using Probe = int (*)(const KFLMessageIterator& it);

  KFLElementID id;      // the element; of a list: of each item; empty for inline parts
  KFLElementID itemId;  // the items of a container; the value of a map's entry
  KFLElementID keyId;   // the key of a map's entry
  KFLFieldShape shape = KFLFieldShape::Element;
  KFLFieldWrite write = KFLFieldWrite::Always;
  bool failsRead = false;        // a failing read is the record's failure; otherwise reading goes on
  bool failsWrite = false;       // a failing write is the record's failure; otherwise writing goes on
  bool needsItem = false;        // a list without an item fails to read
  bool keeps = false;            // keeps the value that it has when its element cannot be read
  bool mayBeAbsent = false;      // an element that is absent is no failure
  bool isPolymorphic = false;    // an item's type tag names its class; the table is that of their base
  bool emptyItemIsNone = false;  // one empty element stands for a list without items, or for a default value
  int maxElements = 1;           // how many elements there may be; 0 for any number
  KFLElementID noneMarker;       // an empty element that stands in place of a list without items
  std::string_view valueType;    // XML Schema type of the value; empty for records
  const KFLNumberNames* names = nullptr;  // of a value that is one of these names
  Table table = nullptr;                  // the fields or elements of a record, where it tells them
  Probe probe = nullptr;                  // null where nothing can be read alone
  Put put = nullptr;
  Get get = nullptr;

  // The element must be there and well formed, else reading stops with its result.
  constexpr KFLField required() const {
    KFLField row = *this;
    row.failsRead = true;
    return row;
  }
  // The element may be absent; when it is there it must be well formed, else reading stops with its result.
  constexpr KFLField wellFormed() const {
    KFLField row = required();
    row.mayBeAbsent = true;
    return row;
  }
  // A list without an item is absent, so that reading it fails.
  constexpr KFLField atLeastOne() const {
    KFLField row = *this;
    row.needsItem = true;
    return row;
  }
  // A failing write stops the writer with its result.
  constexpr KFLField mustWrite() const {
    KFLField row = *this;
    row.failsWrite = true;
    return row;
  }
  // An element that is absent or malformed leaves the value that the member had, not the default one.
  constexpr KFLField keptWhenAbsent() const {
    KFLField row = *this;
    row.keeps = true;
    return row;
  }
  // A list without items, or a value whose text is empty, is one empty element, so that it is not taken for one that
  // is absent.
  constexpr KFLField orEmptyItem() const {
    KFLField row = *this;
    row.emptyItemIsNone = true;
    return row;
  }
  // How many elements a field with a rule of its own has at most; 0 for any number.
  constexpr KFLField atMost(int elements) const {
    KFLField row = *this;
    row.maxElements = elements;
    return row;
  }
  // Or this empty element in their place.
  constexpr KFLField orMarker(KFLElementID marker) const {
    KFLField row = *this;
    row.noneMarker = marker;
    return row;
  }
  // The element's type tag names its class.
  constexpr KFLField polymorphic() const {
    KFLField row = *this;
    row.isPolymorphic = true;
    return row;
  }
  // Written only when it holds something.
  constexpr KFLField whenNotEmpty() const {
    KFLField row = *this;
    row.write = KFLFieldWrite::WhenNotEmpty;
    return row;
  }
  // Written, or read, by a function of the record's own, the other direction as usual.
  constexpr KFLField writtenBy(Put function) const {
    KFLField row = *this;
    row.put = function;
    return row;
  }
  constexpr KFLField readBy(Get function) const {
    KFLField row = *this;
    row.get = function;
    return row;
  }

  // Whether a value whose element cannot be read becomes that of a new record: where reading goes on.
  constexpr bool becomesDefault() const { return !keeps && (!failsRead || mayBeAbsent); }
  // The element's name, whether it is addressed by number or by name; empty for inline parts.
  std::string_view elementName() const { return id.number() != 0 ? tagName(id.number()) : id.name(); }
  // Whether reading fails when there is no such element.
  constexpr bool needsElement() const {
    const bool isOne = shape == KFLFieldShape::Element || shape == KFLFieldShape::Container;
    return failsRead && !mayBeAbsent && (isOne || needsItem);
  }
};

// The table of one record class.
class KFLFieldTable {
 public:
  constexpr KFLFieldTable(const char* record, const char* namespaceUri, const char* typeTag,
                          std::span<const KFLField> rows)
      : KFLFieldTable(record, namespaceUri, typeTag, rows, rows) {}
  // For a record that reads its fields in another order than it writes them.
  constexpr KFLFieldTable(const char* record, const char* namespaceUri, const char* typeTag,
                          std::span<const KFLField> rows, std::span<const KFLField> readRows)
      : record_(record), namespace_(namespaceUri), typeTag_(typeTag), rows_(rows), readRows_(readRows) {}

  const char* record() const { return record_; }
  const char* namespaceUri() const { return namespace_; }
  const char* typeTag() const { return typeTag_; }
  // In the order of writing.
  std::span<const KFLField> rows() const { return rows_; }
  // Whether the elements stand in any order, each any number of times.
  bool isInAnyOrder() const { return anyOrder_; }
  constexpr KFLFieldTable inAnyOrder() const {
    KFLFieldTable table = *this;
    table.anyOrder_ = true;
    return table;
  }

  // Writes the fields in the order of the rows. 0, or the result of the first field whose write must not
  // fail. What throws has written nothing.
  int write(KFLMessageIterator& it, const void* record) const;
  // Reads the fields in their order. 0, or -1 at the first required field that fails. The error text names the element;
  // so it does for a field that is not required and not well formed, where reading goes on.
  // What throws may have read some fields; the readers of records leave the record as it was.
  int read(const KFLMessageIterator& it, void* record) const;

 private:
  int writeRows(KFLMessageIterator& it, const void* record) const;

  const char* record_;
  const char* namespace_;
  const char* typeTag_;
  std::span<const KFLField> rows_;
  std::span<const KFLField> readRows_;
  bool anyOrder_ = false;
};

// The Writer and the Reader of a record with a field table.
template <class Record>
struct KFLRecordWriter {
  static int getNSID() { return 0; }
  static const char* getStrNSID() { return Record::fields().namespaceUri(); }
  static int getTypeID() { return 0; }
  static const char* getStrTypeID() { return Record::fields().typeTag(); }
  int operator()(KFLMessageIterator& it, const Record& record) const {
    return Record::fields().write(it, &record);
  }
};
// Reads a record by one of its tables, into a copy that takes the record's place at once: what throws leaves the record
// as it was.
template <class Record>
int readWhole(const KFLFieldTable& table, const KFLMessageIterator& it, Record& record) {
  static_assert(std::is_nothrow_move_assignable_v<Record>, "what was read must be taken without failing");
  Record fresh(record);
  const int result = table.read(it, &fresh);
  record = std::move(fresh);
  return result;
}
template <class Record>
struct KFLRecordReader {
  int operator()(const KFLMessageIterator& it, Record& record) const {
    return readWhole(Record::fields(), it, record);
  }
};

// The Writer of a core record with a field table, which names its namespace and type by the core's numbers;
// type 0 for a record without a type tag.
template <class Record, int NamespaceID = kTypesNamespace, int TypeID = 0>
struct KFLCoreRecordWriter {
  static int getNSID() { return NamespaceID; }
  static const char* getStrNSID() { return ""; }
  static int getTypeID() { return TypeID; }
  static const char* getStrTypeID() { return ""; }
  int operator()(KFLMessageIterator& it, const Record& record) const {
    return Record::fields().write(it, &record);
  }
};

// The Writer and the Reader of a value that stands in a message as the text of the current element. What
// fromString refuses cannot be read, and an empty text that it refuses is not written.
template <class Value>
struct KFLTextWriter : KFLUntypedWriter {
  int operator()(KFLMessageIterator& it, const Value& value) const {
    const std::string& text = value.toString();
    const std::size_t before = countErrorMessages();
    if (!text.empty() || Value().fromString(text) == 0) return it.putValue(text);
    return it.fail(countErrorMessages() != before ? getErrorMessage() : "an empty text is not read");
  }
};
template <class Value>
struct KFLTextReader {
  int operator()(const KFLMessageIterator& it, Value& value) const {
    std::string text;
    if (it.getValue(text) != 0) return -1;
    const std::size_t before = countErrorMessages();
    if (const int result = value.fromString(text); result == 0) return 0;
    return it.fail(countErrorMessages() != before ? getErrorMessage() : "'" + text + "' is not read");
  }
};

namespace fields {

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<KFLOptionalProperty<T>> = true;

template <class T>
concept Scalar = std::same_as<T, std::string> || std::same_as<T, bool> || std::same_as<T, int> ||
    std::same_as<T, long> || std::same_as<T, long long>;

// A value that has a text form and no Writer of its own, such as a GUID.
template <class T>
concept Texted = !Scalar<T> && requires(T value) {
  value.fromString(value.toString());
}
&&!requires {
  typename T::Writer;
};

template <class T>
concept Tabled = requires {
  { T::fields() } -> std::same_as<const KFLFieldTable&>;
};

template <class T>
concept Insertable = requires(T container, typename T::value_type item) {
  container.insert(item);
}
&&!requires(T container, typename T::value_type item) {
  container.push_back(item);
};

// A value that a field can hold.
template <class T>
concept Storable = Scalar<T> || Texted<T> || requires {
  typename T::Writer;
  typename T::Reader;
};
// True; any other type does not compile, and is told why.
template <class T>
constexpr bool isStorable() {
  static_assert(Storable<T>,
                "a field of a record is a std::string, a bool, an int, a long, a long long, a class with "
                "fromString() and toString(), or one with a Writer and a Reader");
  return Storable<T>;
}

// A record whose elements are described by rows that do not bind them: see KFLRecordElements.h.
template <class T>
concept Described = requires {
  { T::elements() } -> std::same_as<const KFLFieldTable&>;
};

// A record that stands in a message as its text.
template <class T>
concept TextRecord = std::same_as<typename T::Writer, KFLTextWriter<T>>;

template <class T>
constexpr std::string_view valueTypeOf() {
  if constexpr (std::same_as<T, std::string> || Texted<T> || TextRecord<T>) return "string";
  if constexpr (std::same_as<T, bool>) return "boolean";
  if constexpr (std::same_as<T, int>) return "int";
  if constexpr (std::same_as<T, long> || std::same_as<T, long long>) return "long";
  return {};
}

template <class T>
constexpr KFLField::Table tableOf() {
  if constexpr (Tabled<T>) return &T::fields;
  return nullptr;
}

// The fields of a record, or else its elements.
template <class T>
constexpr KFLField::Table descriptionOf() {
  if constexpr (Described<T> && !Tabled<T>) return &T::elements;
  return tableOf<T>();
}

template <class T>
int putOne(KFLMessageIterator& it, const T& value, KFLElementID id) {
  if constexpr (Scalar<T>)
    return it.putValue(value, id);
  else if constexpr (Texted<T>)
    return it.putValue(value.toString(), id);
  else if constexpr (isStorable<T>())
    return it.putObj(value, id);
  else
    return -1;
}
template <class T>
inline constexpr bool isReadByTable = false;
template <class T>
requires std::same_as<typename T::Reader, KFLRecordReader<T>>
inline constexpr bool isReadByTable<T> = true;

// Reads a part of a record without a copy: the whole record is read into one.
struct PartReader {
  template <class T>
  int operator()(const KFLMessageIterator& it, T& part) const {
    return T::fields().read(it, &part);
  }
};

// Reads the current element, or the child with this id, which must be there.
template <class T>
int getOne(const KFLMessageIterator& it, T& value, KFLElementID id) {
  if constexpr (isReadByTable<T>)
    return it.getObject(value, PartReader(), id);
  else if constexpr (Scalar<T>)
    return it.getValue(value, id);
  else if constexpr (Texted<T>)
    return it.getObject(value, KFLTextReader<T>(), id);
  else if constexpr (isStorable<T>())
    return it.getObj(value, id);
  else
    return -1;
}
// The same for a child that may be absent: 1, without a text, when it is.
template <class T>
int findOne(const KFLMessageIterator& it, T& value, KFLElementID id) {
  if constexpr (Scalar<T>) {
    return it.findValue(value, id);
  } else {
    const KFLCursorGuard guard(it);
    return it.findChild(id) != 0 ? 1 : getOne(it, value, {});
  }
}

// Null for a class that cannot be read, such as the base of polymorphic objects.
template <class T>
constexpr KFLField::Probe probeOf() {
  if constexpr (Storable<T> && std::is_default_constructible_v<T>)
    return [](const KFLMessageIterator& it) {
      T value{};
      return getOne(it, value, {});
    };
  return nullptr;
}

// Whether a value is worth an element of its own: see KFLFieldWrite::WhenNotEmpty.
template <class T>
bool holdsSomething(const T& value) {
  if constexpr (std::same_as<T, bool>)
    return value;
  else if constexpr (requires { value.empty(); })
    return !value.empty();
  else if constexpr (requires { value.isValid(); })
    return value.isValid();
  else
    return true;
}

template <class T>
struct ItemWriter : KFLUntypedWriter {
  int operator()(KFLMessageIterator& it, const T& item) const { return putOne(it, item, {}); }
};
template <class T>
struct ItemReader {
  int operator()(const KFLMessageIterator& it, T& item) const { return getOne(it, item, {}); }
};

// A value that is its text, as an address is.
template <class T>
concept TextValue = requires(const T& value) {
  { value.toString() } -> std::same_as<const std::string&>;
};

// Whether an item of a list is an empty text. None such is written: an empty element marks an empty list, or cannot
// be read.
template <class T>
bool isEmptyText(const T& item) {
  if constexpr (std::same_as<T, std::string>)
    return item.empty();
  else if constexpr (TextValue<T>)
    return item.toString().empty();
  else
    return false;
}

// An item that cannot be written is left out, or with `stops` ends the list.
template <class Container>
int putItems(KFLMessageIterator& it, const Container& items, KFLElementID id, bool stops = true) {
  using Item = typename Container::value_type;
  for (const Item& item : items) {
    if (isEmptyText(item)) continue;
    it.addChild(id);
    const int result = fields::putOne(it, item, {});
    result == 0 ? it.leaveChild() : it.removeCurrent();
    if (result != 0 && stops) return 1;
  }
  return 0;
}
template <class Container>
int getItems(const KFLMessageIterator& it, Container& items, KFLElementID id) {
  using Reader = ItemReader<typename Container::value_type>;
  items.clear();
  if constexpr (Insertable<Container>)
    return KFLReaderListT<KFLElementID, KFLReaderSetDataT<Reader>>(KFLReaderSetDataT<Reader>(Reader()), id,
                                                                   KFLReaderOptional)(it, items);
  else
    return KFLReaderListT<KFLElementID, KFLReaderVectorDataT<Reader>>(KFLReaderVectorDataT<Reader>(Reader()),
                                                                      id, KFLReaderOptional)(it, items);
}

// The value of a member, whether it is an optional property or a plain one.
template <class T>
T& unwrap(T& member) {
  return member;
}
template <class T>
T& unwrap(KFLOptionalProperty<T>& member) {
  return member.value();
}
template <class T>
const T& unwrap(const KFLOptionalProperty<T>& member) {
  return member.getValue();
}

template <class Record, auto Member>
using MemberType = std::remove_cvref_t<decltype(std::declval<Record&>().*Member)>;

template <class Record, auto Member>
struct ElementField {
  using T = MemberType<Record, Member>;
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    const T& member = static_cast<const Record*>(record)->*Member;
    if constexpr (isOptional<T>) {
      return member.isSpecified() ? putOne(it, member.getValue(), row.id) : 0;
    } else {
      if (row.write == KFLFieldWrite::WhenNotEmpty && !holdsSomething(member)) return 0;
      if (row.emptyItemIsNone && isEmptyText(member)) return it.addEmptyChild(row.id);
      return putOne(it, member, row.id);
    }
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    T& member = static_cast<Record*>(record)->*Member;
    if (row.emptyItemIsNone && isMarked(it, row.id)) {
      member = std::move(Record().*Member);
      return 0;
    }
    const int result = findOne(it, unwrap(member), row.id);
    if constexpr (isOptional<T>) member.setSpecified(result == 0);
    if (result != 0 && row.becomesDefault()) member = std::move(Record().*Member);
    return result;
  }

 private:
  static bool isMarked(const KFLMessageIterator& it, KFLElementID id) {
    const KFLCursorGuard guard(it);
    return it.findChild(id) == 0 && it.isEmptyElement();
  }
};

template <class Record, auto Member>
struct PresenceField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    return static_cast<const Record*>(record)->*Member ? it.addEmptyChild(row.id) : 0;
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    static_cast<Record*>(record)->*Member = it.hasChild(row.id);
    return 0;
  }
};

template <class Record, auto Member>
struct ListField {
  using T = MemberType<Record, Member>;
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    const T& items = static_cast<const Record*>(record)->*Member;
    if (row.emptyItemIsNone && isEmptyList(items)) return it.addEmptyChild(row.id);
    return putItems(it, items, row.id, row.failsWrite) == 0 ? 0 : -1;
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    T& items = static_cast<Record*>(record)->*Member;
    if (row.needsItem && !it.hasChild(row.id)) return 1;
    const int result = getItems(it, items, row.id);
    if (row.emptyItemIsNone && isEmptyList(items)) items.clear();
    return result;
  }

 private:
  static bool isEmptyList(const T& items) {
    return std::ranges::all_of(items, isEmptyText<typename T::value_type>);
  }
};

template <class Record, auto Member>
struct ContainerField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    const auto& member = static_cast<const Record*>(record)->*Member;
    const auto& items = unwrap(member);
    if constexpr (isOptional<MemberType<Record, Member>>) {
      if (!member.isSpecified()) return 0;
    }
    if (row.write == KFLFieldWrite::WhenNotEmpty && items.empty()) return 0;
    it.addChild(row.id);
    const int result = putItems(it, items, row.itemId);
    it.leaveChild();
    return result;
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    auto& member = static_cast<Record*>(record)->*Member;
    int result = 1;
    unwrap(member).clear();
    const KFLCursorGuard guard(it);
    if (it.findChild(row.id) == 0) result = getItems(it, unwrap(member), row.itemId);
    if constexpr (isOptional<MemberType<Record, Member>>) member.setSpecified(result == 0);
    return result;
  }
};

template <class Record, auto Member>
struct MapField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    for (const auto& [key, value] : static_cast<const Record*>(record)->*Member) {
      it.addChild(row.id);
      int result = putOne(it, key, row.keyId);
      if (result == 0) result = putOne(it, value, row.itemId);
      it.leaveChild();
      if (result != 0) return result;
    }
    return 0;
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    using T = MemberType<Record, Member>;
    T& map = static_cast<Record*>(record)->*Member;
    map.clear();
    const KFLCursorGuard guard(it);
    if (it.findChild(row.id) != 0) return 0;
    int result = 0;
    do {
      typename T::key_type key{};
      typename T::mapped_type value{};
      result = getOne(it, key, row.keyId);
      if (result == 0) result = getOne(it, value, row.itemId);
      if (result == 0) map.emplace(std::move(key), std::move(value));
    } while (result == 0 && it.findNextChild(row.id) == 0);
    return result;
  }
};

template <class Record, auto Member, auto KeyOf>
struct KeyedField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    for (const auto& [key, value] : static_cast<const Record*>(record)->*Member) {
      it.addChild(row.id);
      const int result = putOne(it, value, {});
      it.leaveChild();
      if (result != 0) return result;
    }
    return 0;
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    using T = MemberType<Record, Member>;
    T& map = static_cast<Record*>(record)->*Member;
    map.clear();
    const KFLCursorGuard guard(it);
    if (it.findChild(row.id) != 0) return 0;
    int result = 0;
    do {
      typename T::mapped_type value{};
      result = getOne(it, value, {});
      typename T::key_type key = std::invoke(KeyOf, value);
      if (result == 0) map.emplace(std::move(key), std::move(value));
    } while (result == 0 && it.findNextChild(row.id) == 0);
    return result;
  }
};

// The base part of a record: its elements stand at the record's own level.
template <class Record, class Base>
struct BaseField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField&) {
    return it.putObj<Base>(*static_cast<const Record*>(record));
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField&) {
    return getOne<Base>(it, *static_cast<Record*>(record), {});
  }
};

// A member record whose elements stand at the record's own level.
template <class Record, auto Member>
struct InlineField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField&) {
    return it.putObj(static_cast<const Record*>(record)->*Member);
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField&) {
    return getOne(it, static_cast<Record*>(record)->*Member, {});
  }
};

template <class Record, auto PutFunction, auto GetFunction>
struct SpecialField {
  static int put(KFLMessageIterator& it, const void* record, const KFLField& row) {
    return PutFunction(it, *static_cast<const Record*>(record), row);
  }
  static int get(const KFLMessageIterator& it, void* record, const KFLField& row) {
    return GetFunction(it, *static_cast<Record*>(record), row);
  }
};

template <class T>
struct Unwrapped {
  using Type = T;
};
template <class T>
struct Unwrapped<KFLOptionalProperty<T>> {
  using Type = T;
};

// A row for values of type T, bound by Binding.
template <class T, class Binding>
constexpr KFLField row(KFLFieldShape shape, KFLElementID id, KFLElementID itemId = {},
                       KFLElementID keyId = {}) {
  KFLField made;
  made.id = id;
  made.itemId = itemId;
  made.keyId = keyId;
  made.shape = shape;
  made.valueType = valueTypeOf<T>();
  made.table = descriptionOf<T>();
  made.probe = probeOf<T>();
  const bool isRepeated = shape == KFLFieldShape::List || shape == KFLFieldShape::Map;
  made.maxElements = isRepeated ? 0 : 1;
  made.put = &Binding::put;
  made.get = &Binding::get;
  return made;
}

}  // namespace fields

// One element for a value or a record. An optional property is written when specified, and specified when it
// was read.
template <class Record, auto Member>
constexpr KFLField field(KFLElementID id) {
  using T = fields::MemberType<Record, Member>;
  using Binding = fields::ElementField<Record, Member>;
  KFLField made = fields::row<typename fields::Unwrapped<T>::Type, Binding>(KFLFieldShape::Element, id);
  if (fields::isOptional<T>) made.write = KFLFieldWrite::WhenSpecified;
  return made;
}

// An empty element when the flag is true; the flag is true exactly when the element is there.
template <class Record, auto Member>
constexpr KFLField presence(KFLElementID id) {
  KFLField made = fields::row<bool, fields::PresenceField<Record, Member>>(KFLFieldShape::Presence, id);
  made.write = KFLFieldWrite::WhenNotEmpty;
  return made;
}

// One element per item of a vector or set, for each that is not an empty text; no element reads as an empty list.
template <class Record, auto Member>
constexpr KFLField list(KFLElementID itemId) {
  using Item = typename fields::MemberType<Record, Member>::value_type;
  return fields::row<Item, fields::ListField<Record, Member>>(KFLFieldShape::List, itemId);
}

// One element that holds the items; an optional property is written when specified, and specified when it was
// read.
template <class Record, auto Member>
constexpr KFLField container(KFLElementID id, KFLElementID itemId) {
  using T = fields::MemberType<Record, Member>;
  using Item = typename fields::Unwrapped<T>::Type::value_type;
  KFLField made =
      fields::row<Item, fields::ContainerField<Record, Member>>(KFLFieldShape::Container, id, itemId);
  if (fields::isOptional<T>) made.write = KFLFieldWrite::WhenSpecified;
  return made;
}

// One element per entry of a map, with key and value below it.
template <class Record, auto Member>
constexpr KFLField entries(KFLElementID id, KFLElementID keyId, KFLElementID valueId) {
  using Value = typename fields::MemberType<Record, Member>::mapped_type;
  return fields::row<Value, fields::MapField<Record, Member>>(KFLFieldShape::Map, id, valueId, keyId);
}

// One element per value of a map. The keys do not travel: KeyOf, a member function of the value, gives the
// key of one that was read; the first of several with one key counts.
template <class Record, auto Member, auto KeyOf>
constexpr KFLField keyed(KFLElementID id) {
  using Value = typename fields::MemberType<Record, Member>::mapped_type;
  return fields::row<Value, fields::KeyedField<Record, Member, KeyOf>>(KFLFieldShape::List, id);
}

// The elements of the base class, at the record's own level. Its failure is the record's, in both directions.
template <class Record, class Base>
constexpr KFLField base() {
  return fields::row<Base, fields::BaseField<Record, Base>>(KFLFieldShape::Inline, {}).required().mustWrite();
}

// The elements of a member record, at the record's own level.
template <class Record, auto Member>
constexpr KFLField inlined() {
  using Part = fields::MemberType<Record, Member>;
  return fields::row<Part, fields::InlineField<Record, Member>>(KFLFieldShape::Inline, {})
      .required()
      .mustWrite();
}

// A field with a rule of its own: `put(it, const Record&, row)` and `get(it, Record&, row)`; T tells the
// schema what its elements hold.
template <class Record, class T, auto PutFunction, auto GetFunction>
constexpr KFLField special(KFLElementID id, KFLElementID itemId = {}) {
  return fields::row<T, fields::SpecialField<Record, PutFunction, GetFunction>>(KFLFieldShape::Special, id,
                                                                                itemId);
}

}  // namespace KFL

#endif
