// SPDX-License-Identifier: Apache-2.0
// Registries of derived record types: one per base class, from type tag to factory for reading and from run-time type
// name to factory for writing.
//
// Factories are static objects of the libraries that own the derived classes: they register themselves when their
// library is loaded and take themselves out when it is unloaded. A registry is read from any thread without a lock;
// loading and unloading publish a new table by one store. What is known of a type is made once and shared by all tables,
// also when its library is loaded again. An object must be gone before the library that made it is
// unloaded. The data of a registry is one explicit instantiation, KFL_DERIVED_REGISTRY, in the library that owns the
// base class; every other unit declares it with KFL_DECLARE_DERIVED_REGISTRY.
#ifndef KFLMESSAGE_KFLDERIVEDPARSERS_H
#define KFLMESSAGE_KFLDERIVEDPARSERS_H

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLCommon/KFLClassName.h>
#include <KFLMessage/KFLMessageIterator.h>
#include <KFLMessage/KFLTagVocabulary.h>

namespace KFL {

// One registered type, as kfactl and the documents list it.
struct KFLDerivedTypeInfo {
  std::string base;     // class name of the base
  std::string derived;  // class name of the derived class
  std::string namespaceUri;
  std::string tag;
  bool isDefault = false;
};

// Every registered derived type of every registry, ordered by base and tag. Any thread.
std::vector<KFLDerivedTypeInfo> listDerivedTypes();

// The tables of one registry, without the types: keys to factories. Constant-initialised, so that a factory of any
// library may register before this library's own statics have been built. Never destroyed.
class KFLDerivedRegistryData {
 public:
  struct Table;
  struct Entry;

  constexpr KFLDerivedRegistryData() = default;
  KFLDerivedRegistryData(const KFLDerivedRegistryData&) = delete;
  KFLDerivedRegistryData& operator=(const KFLDerivedRegistryData&) = delete;

  enum class Refusal { None, DuplicateKey, DuplicateTypeName, SecondDefault };

  // Takes a factory in; changes nothing when it is refused.
  Refusal add(const void* factory, const std::type_info& base, const std::type_info& derived,
              std::string_view namespaceUri, std::string_view tag, bool isDefault);
  void remove(const void* factory);

  // The factory under a type key or run-time type name, or the default one; null when there is none.
  const void* findByKey(std::string_view key) const;
  const void* findByTypeName(const char* typeName) const;
  const void* findDefault() const;

  std::vector<KFLDerivedTypeInfo> list() const;
  KFLDerivedRegistryData* nextRegistry() const { return next_; }

 private:
  void publish(Table* table);
  const void* findIf(bool (*matches)(const Entry&, std::string_view, std::size_t),
                     std::string_view text) const;

  std::atomic<const Table*> table_{nullptr};
  KFLDerivedRegistryData* next_ = nullptr;
};

// What a registry key is made of: the writer's names, or else those of the core's numbers.
struct KFLTypeKey {
  std::string_view namespaceUri;
  std::string_view tag;
};
template <class Writer>
KFLTypeKey typeKeyOf() {
  if (*Writer::getStrTypeID() != '\0') return {Writer::getStrNSID(), Writer::getStrTypeID()};
  return {namespaceName(Writer::getNSID()), typeName(Writer::getTypeID())};
}

// The registry of a base class and the interface of its factories.
template <class Base, class Key = std::string>
class KFLDerivedParserFactory {
 public:
  virtual ~KFLDerivedParserFactory() = default;
  // Creates an object and reads it from the current element; `out` is the caller's when 0 is returned, untouched
  // otherwise.
  virtual int read(const KFLMessageIterator& it, Base*& out) const = 0;
  // Writes the object, with its own type tag, into the current element.
  virtual int write(KFLMessageIterator& it, const Base* obj) const = 0;
  virtual boost::shared_ptr<Base> createObject() const = 0;

  static const KFLDerivedParserFactory* find(const Key& typeKey) {
    return static_cast<const KFLDerivedParserFactory*>(data().findByKey(typeKey));
  }
  static const KFLDerivedParserFactory* find(const std::type_info& type) {
    return static_cast<const KFLDerivedParserFactory*>(data().findByTypeName(type.name()));
  }
  static const KFLDerivedParserFactory* findDefault() {
    return static_cast<const KFLDerivedParserFactory*>(data().findDefault());
  }

  static KFLDerivedRegistryData& data();
};

// One factory: reads, writes and creates objects of class Data, a Base.
template <class Data, class Base, class Key, class TReader, class TWriter>
class KFLDerivedParserFactoryT : public KFLDerivedParserFactory<Base, Key> {
 public:
  explicit KFLDerivedParserFactoryT(bool isDefault = false) { addFactory(isDefault, typeid(Data)); }
  KFLDerivedParserFactoryT(const KFLDerivedParserFactoryT&) = delete;
  KFLDerivedParserFactoryT& operator=(const KFLDerivedParserFactoryT&) = delete;
  ~KFLDerivedParserFactoryT() override { this->data().remove(self()); }

  int read(const KFLMessageIterator& it, Base*& out) const override {
    auto object = std::make_unique<Data>();
    const int result = reader_(it, static_cast<Base*>(object.get()));
    if (result == 0) out = object.release();
    return result;
  }
  int write(KFLMessageIterator& it, const Base* obj) const override { return it.putObject(obj, writer_); }
  boost::shared_ptr<Base> createObject() const override { return boost::shared_ptr<Base>(new Data); }

 private:
  const KFLDerivedParserFactory<Base, Key>* self() const { return this; }

  void addFactory(bool isDefault, const std::type_info& type) {
    KFL_CHECK_AT(TWriter::getStrNSID() != nullptr, "KFAFunctionality", "KFLDerivedParsers", 237);
    KFL_CHECK_AT(TWriter::getStrTypeID() != nullptr, "KFAFunctionality", "KFLDerivedParsers", 238);
    using Refusal = KFLDerivedRegistryData::Refusal;
    const KFLTypeKey key = typeKeyOf<TWriter>();
    const Refusal refusal =
        this->data().add(self(), typeid(Base), type, key.namespaceUri, key.tag, isDefault);
    KFL_CHECK_AT(refusal != Refusal::DuplicateKey, "KFAFunctionality", "KFLDerivedParsers", 269);
    KFL_CHECK_AT(refusal != Refusal::DuplicateTypeName, "KFAFunctionality", "KFLDerivedParsers", 271);
    KFL_CHECK_AT(refusal != Refusal::SecondDefault, "KFAFunctionality", "KFLDerivedParsers", 274);
  }

  KFLReaderPointerDataT<Data, TReader> reader_;
  KFLWriterPointerDataT<Data, TWriter> writer_;
};

// Lets the factory of the object's class write it.
struct KFLDerivedWrite {
  template <class Base, class Key>
  static int write(const KFLDerivedParserFactory<Base, Key>& factory, KFLMessageIterator& it,
                   const Base* obj) {
    return factory.write(it, obj);
  }
};

// Writes a polymorphic object with its own type tag; -1 for a null pointer and for a class that has no factory.
template <class Base, class Key = std::string, class Write = KFLDerivedWrite>
class KFLWriterDerived : public KFLUntypedWriter {
 public:
  int operator()(KFLMessageIterator& it, const Base* obj) const {
    if (obj == nullptr) return it.fail("a null pointer cannot be written; an object is wanted");
    const auto* factory = KFLDerivedParserFactory<Base, Key>::find(typeid(*obj));
    if (factory != nullptr) return Write::template write<Base, Key>(*factory, it, obj);
    return it.fail("an object of the class " + classNameOf(typeid(*obj)) +
                   " cannot be written; the class has no factory");
  }
  int operator()(KFLMessageIterator& it, const Base& obj) const { return (*this)(it, &obj); }
  template <class T>
  int operator()(KFLMessageIterator& it, const boost::shared_ptr<T>& obj) const {
    return (*this)(it, obj.get());
  }
};

// Reads a polymorphic object, choosing its class by the element's type tag. -1, with `out` untouched, for a tag
// without a factory, unless the default factory is allowed and there is one.
template <class Base, class Key = std::string>
class KFLReaderDerived {
 public:
  explicit KFLReaderDerived(bool allowDefault = false) : allowDefault_(allowDefault) {}

  int operator()(const KFLMessageIterator& it, boost::shared_ptr<Base>& out) const {
    std::string tag;
    it.getTypeName(tag);
    const auto* factory = KFLDerivedParserFactory<Base, Key>::find(tag);
    if (factory == nullptr && allowDefault_) factory = KFLDerivedParserFactory<Base, Key>::findDefault();
    if (factory == nullptr)
      return it.fail("the type '" + tag + "' is not known here; " + knownTags() + " is wanted");
    Base* object = nullptr;
    const int result = factory->read(it, object);
    if (result == 0) out.reset(object);
    return result;
  }

 private:
  static std::string knownTags() {
    std::set<std::string> tags;
    for (KFLDerivedTypeInfo& info : KFLDerivedParserFactory<Base, Key>::data().list())
      tags.insert(std::move(info.tag));
    std::string known;
    for (const std::string& tag : tags)
      known += (known.empty() ? "one of " : ", ") + tag;
    return known.empty() ? "a type of a library that is loaded" : known;
  }

  bool allowDefault_;
};

// A list writer and reader whose items are polymorphic objects, each with its own type tag.
template <class Base, class ID>
auto KFLWriterDerivedList(const ID& id) {
  return KFLWriterListEx(KFLWriterDerived<Base>(), id);
}
template <class Base, class ID>
auto KFLReaderDerivedList(const ID& id, bool allowDefault = false, KFLReaderFlags flags = KFLReaderOptional) {
  return KFLReaderListEx(KFLReaderDerived<Base>(allowDefault), id, flags);
}

}  // namespace KFL

// In the header of a base class: its registry is instantiated elsewhere. At global scope.
#define KFL_DECLARE_DERIVED_REGISTRY(Base)                                    \
  namespace KFL {                                                             \
  template <>                                                                 \
  KFLDerivedRegistryData& KFLDerivedParserFactory<Base, std::string>::data(); \
  }

// In one source of the library that owns the base class. At global scope.
#define KFL_DERIVED_REGISTRY(Base)                                             \
  namespace KFL {                                                              \
  template <>                                                                  \
  KFLDerivedRegistryData& KFLDerivedParserFactory<Base, std::string>::data() { \
    static constinit KFLDerivedRegistryData registry;                          \
    return registry;                                                           \
  }                                                                            \
  }

#endif
