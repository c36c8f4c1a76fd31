// SPDX-License-Identifier: Apache-2.0
// The combinators that turn readers and writers of records into readers and writers of child elements, lists and
// objects behind base-class pointers. Included by KFLMessageIterator.h; include that.
//
// A writer is a class with `int operator()(KFLMessageIterator&, const X&) const` and the four statics getNSID,
// getStrNSID, getTypeID and getStrTypeID; a reader has `int operator()(const KFLMessageIterator&, X&) const`.
// All of them return 0 for success and -1 for failure; the list writer returns 1. None holds state of a call, so one
// object may serve any number of threads.
//
// They pass every exception on, among them std::bad_alloc of their own. Then the cursor is where it was, a writer has
// undone what it wrote, and a list reader has added nothing to its container.
#ifndef KFLMESSAGE_KFLMESSAGECOMBINATORS_H
#define KFLMESSAGE_KFLMESSAGECOMBINATORS_H

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLClassName.h>
#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessageIterator.h>

namespace KFL {

// What becomes of an element that is absent.
enum KFLReaderFlags {
  KFLReaderOptional = 0,  // the read returns 0 and leaves the target untouched
  KFLReaderRequired = 1,  // the read returns -1
};

// Type numbers up to this one mean "not set".
inline constexpr int kLastUnsetTypeID = 100;

// The four statics of a writer, as the binding reaches them.
template <class Writer>
struct KFLWriterBaseT {
  static int getNSID() { return Writer::getNSID(); }
  static const char* getStrNSID() { return Writer::getStrNSID(); }
  static int getTypeID() { return Writer::getTypeID(); }
  static const char* getStrTypeID() { return Writer::getStrTypeID(); }
};

// The statics of a writer that names neither namespace nor type.
struct KFLUntypedWriter {
  static int getNSID() { return 0; }
  static const char* getStrNSID() { return ""; }
  static int getTypeID() { return 0; }
  static const char* getStrTypeID() { return ""; }
};

// Writes a value (text, number, bool) as the text of the current element.
template <class T, int (KFLMessageIterator::*Put)(const T&, KFLElementID) = &KFLMessageIterator::putValue>
struct KFLWriterSimple : KFLUntypedWriter {
  int operator()(KFLMessageIterator& it, const T& value) const { return (it.*Put)(value, {}); }
};

// Reads a value from the text of the current element.
template <class T, int (KFLMessageIterator::*Get)(T&, KFLElementID) const = &KFLMessageIterator::getValue>
struct KFLReaderSimple {
  int operator()(const KFLMessageIterator& it, T& value) const { return (it.*Get)(value, {}); }
};

// Writes an object as a new child element.
template <class ID, class Writer, int itemNSType = 0>
class KFLWriterIDT : public KFLUntypedWriter {
 public:
  KFLWriterIDT(const Writer& writer, const ID& id) : writer_(writer), id_(id) {}

  template <class T>
  int operator()(KFLMessageIterator& it, const T& obj) const {
    KFL_CHECK_AT(!KFLElementID(id_).isEmpty(), "KFAFunctionality", "KFLMessageIterator", 671);
    if (!it.isValid()) return it.fail("nothing can be written");
    KFLWriteGuard guard(it);
    it.addChild(id_);
    const int result = it.putObject(obj, writer_);
    if constexpr (itemNSType != 0) it.setItemNSType(itemNSType);
    it.leaveChild();
    guard.keep();
    return result;
  }

 private:
  Writer writer_;
  ID id_;
};

// Reads an object from the first child element with the id.
template <class ID, class Reader>
class KFLReaderIDT {
 public:
  KFLReaderIDT(const Reader& reader, const ID& id, KFLReaderFlags flags)
      : reader_(reader), id_(id), mayBeAbsent_(flags == KFLReaderOptional) {}

  template <class T>
  int operator()(const KFLMessageIterator& it, T& obj) const {
    KFL_CHECK_AT(!KFLElementID(id_).isEmpty(), "KFAFunctionality", "KFLMessageIterator", 752);
    const KFLCursorGuard guard(it);
    if (it.findChild(id_) != 0) return mayBeAbsent_ ? 0 : it.failMissing(id_);
    return reader_(it, obj);
  }

 private:
  Reader reader_;
  ID id_;
  bool mayBeAbsent_;
};

// Writes one item of a container; true when that failed, so that a search stops at the item.
template <class ItemWriter>
class KFLWriterListItemT {
 public:
  KFLWriterListItemT(KFLMessageIterator& it, const ItemWriter& writer) : it_(it), writer_(writer) {}
  template <class T>
  bool operator()(const T& item) const {
    return writer_(it_, item) != 0;
  }

 private:
  KFLMessageIterator& it_;
  const ItemWriter& writer_;
};

// Writes every item of a container in its order. 1 at the first item that fails; the items before it stay written.
template <class ItemWriter>
class KFLWriterListT : public KFLUntypedWriter {
 public:
  explicit KFLWriterListT(const ItemWriter& writer) : writer_(writer) {}

  template <class Container>
  int operator()(KFLMessageIterator& it, const Container& items) const {
    KFLWriteGuard guard(it);
    const KFLWriterListItemT<ItemWriter> fails(it, writer_);
    const int result = std::any_of(items.begin(), items.end(), fails) ? 1 : 0;
    guard.keep();
    return result;
  }

 private:
  ItemWriter writer_;
};

// A list writer whose items are child elements with this id.
template <class Writer, class ID>
auto KFLWriterListEx(const Writer& writer, const ID& id) {
  using Item = KFLWriterIDT<KFLStoredID<ID>, Writer>;
  return KFLWriterListT<Item>(Item(writer, id));
}

// Reads the current element as one more item of a vector.
template <class Reader>
class KFLReaderVectorDataT {
 public:
  explicit KFLReaderVectorDataT(const Reader& reader) : reader_(reader) {}
  template <class Container>
  int operator()(const KFLMessageIterator& it, Container& items) const {
    typename Container::value_type item{};
    const int result = reader_(it, item);
    if (result == 0) items.push_back(std::move(item));
    return result;
  }

 private:
  Reader reader_;
};

// Reads the current element as one more item of a set.
template <class Reader>
class KFLReaderSetDataT {
 public:
  explicit KFLReaderSetDataT(const Reader& reader) : reader_(reader) {}
  template <class Container>
  int operator()(const KFLMessageIterator& it, Container& items) const {
    typename Container::value_type item{};
    const int result = reader_(it, item);
    if (result == 0) items.insert(std::move(item));
    return result;
  }

 private:
  Reader reader_;
};

namespace fields {

// Moves all items behind those that a container has, or throws and adds none. A set keeps its own of two equal ones.
template <class Container>
void addAll(Container& items, Container&& added) {
  if (items.empty())
    items = std::move(added);  // NOLINT(bugprone-move-forwarding-reference): items is no rvalue
  else if constexpr (requires { items.merge(added); })
    items.merge(added);
  else
    items.insert(items.end(), std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()));
}

}  // namespace fields

// Reads every child element with the id into a container, which is not cleared first. Stops with the result of the
// first item that cannot be read; the items before it are in the container.
template <class ID, class ItemData>
class KFLReaderListT {
 public:
  KFLReaderListT(const ItemData& data, const ID& id, KFLReaderFlags flags)
      : data_(data), id_(id), mayBeAbsent_(flags == KFLReaderOptional) {}

  template <class Container>
  int operator()(const KFLMessageIterator& it, Container& items) const {
    const KFLCursorGuard guard(it);
    if (it.findChild(id_) != 0) return mayBeAbsent_ ? 0 : it.failMissing(id_);
    Container read;
    int result = 0;
    do {
      result = data_(it, read);
    } while (result == 0 && it.findNextChild(id_) == 0);
    fields::addAll(items, std::move(read));
    return result;
  }

 private:
  ItemData data_;
  ID id_;
  bool mayBeAbsent_;
};

// A list reader that appends to a vector.
template <class Reader, class ID>
auto KFLReaderListEx(const Reader& reader, const ID& id, KFLReaderFlags flags = KFLReaderOptional) {
  using Data = KFLReaderVectorDataT<Reader>;
  return KFLReaderListT<KFLStoredID<ID>, Data>(Data(reader), id, flags);
}

// A list reader that inserts into a set.
template <class Reader, class ID>
auto KFLReaderSet(const Reader& reader, const ID& id, KFLReaderFlags flags = KFLReaderOptional) {
  using Data = KFLReaderSetDataT<Reader>;
  return KFLReaderListT<KFLStoredID<ID>, Data>(Data(reader), id, flags);
}

// The object as one of the derived class; null, with an error text, for a null pointer and for an object of another
// class.
template <class Derived, class Base>
Derived* castToDerived(Base* obj) {
  auto* const derived = dynamic_cast<Derived*>(obj);
  if (derived == nullptr) {
    setErrorMessage("there is %s; an object of the class %s is wanted",
                    obj == nullptr ? "no object" : classNameOf(typeid(*obj)).c_str(),
                    classNameOf(typeid(Derived)).c_str());
  }
  return derived;
}

// Writes an object given by a pointer to its base class; -1, with nothing written, for a null pointer and for an
// object of another class.
template <class Derived, class DerivedWriter>
class KFLWriterPointerDataT : public KFLWriterBaseT<DerivedWriter> {
 public:
  template <class Base>
  int operator()(KFLMessageIterator& it, const Base* obj) const {
    const auto* const derived = castToDerived<const Derived>(obj);
    return derived == nullptr ? it.fail(getErrorMessage()) : DerivedWriter()(it, *derived);
  }
};

// Reads into the object that a pointer to its base class designates; -1 for a null pointer or another class.
template <class Derived, class DerivedReader>
class KFLReaderPointerDataT {
 public:
  template <class Base>
  int operator()(const KFLMessageIterator& it, Base* obj) const {
    auto* const derived = castToDerived<Derived>(obj);
    return derived == nullptr ? it.fail(getErrorMessage()) : DerivedReader()(it, *derived);
  }
};

namespace fields {

// Whether the writer is the one that the class names as its own.
template <class T, class Writer>
inline constexpr bool isOwnWriter = false;
template <class T, class Writer>
requires std::same_as<typename T::Writer, Writer>
inline constexpr bool isOwnWriter<T, Writer> = true;

}  // namespace fields

template <class T, class Writer>
int KFLMessageIterator::putObjectInternal(const T& obj, const Writer& w) {
  using Base = KFLWriterBaseT<Writer>;
  KFL_CHECK_AT(Base::getStrNSID() != nullptr, "KFAFunctionality", "KFLMessageIterator", 853);
  KFL_CHECK_AT(Base::getStrTypeID() != nullptr, "KFAFunctionality", "KFLMessageIterator", 854);
  const int nsID = Base::getNSID();
  const std::string_view ns = Base::getStrNSID();
  const int typeID = Base::getTypeID();
  const std::string_view type = Base::getStrTypeID();

  if (!isValid()) return fail("nothing can be written");
  KFLWriteGuard guard(*this);
  if (nsID != 0) {
    selectNamespaceId(nsID);
  } else if (!ns.empty()) {
    selectNamespace(ns);
  }
  const bool isUntyped = typeID <= kLastUnsetTypeID && type.empty() && fields::isOwnWriter<T, Writer>;
  completeRoot(nsID, ns, isUntyped ? &typeid(T) : nullptr);
  if (typeID > kLastUnsetTypeID) {
    setTypeById(nsID, typeID);
  } else if (!type.empty()) {
    setTypeByName(ns, type);
  }
  int result = 0;
  {
    const KFLNamespaceScope scope(*this);
    result = w(*this, obj);
  }
  if (nsID != 0 || !ns.empty()) selectNamespaceId(0);
  guard.keep();
  return result;
}

template <class T, class Writer>
int KFLMessageIterator::putObject(const T& obj, const Writer& w, KFLElementID id) {
  if (id.isEmpty()) return putObjectInternal(obj, w);
  if (!isValid() || !canBeAdded(id)) return failToAdd(id);
  const KFLMessageIterator old = childOf(id);
  const int result = KFLWriterIDT<KFLElementID, Writer>(w, id)(*this, obj);
  removeElement(old);
  return result;
}

template <class T, class Reader>
int KFLMessageIterator::getObject(T& obj, const Reader& r, KFLElementID id) const {
  if (id.isEmpty()) return r(*this, obj);
  return KFLReaderIDT<KFLElementID, Reader>(r, id, KFLReaderRequired)(*this, obj);
}

template <class T>
int KFLMessageIterator::putObj(const T& obj, KFLElementID id) {
  return putObject(obj, typename T::Writer(), id);
}

template <class T>
int KFLMessageIterator::getObj(T& obj, KFLElementID id) const {
  return getObject(obj, typename T::Reader(), id);
}

}  // namespace KFL

#endif
