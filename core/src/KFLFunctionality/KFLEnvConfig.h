// SPDX-License-Identifier: Apache-2.0
// The configuration of an environment: a message subtree whose child elements are the properties.
//
// A configuration has no field per property. A getter reads the child element, a setter removes the old one
// and writes a new one in its place in the order, so everything that nobody here knows stays as it is. A
// configuration that was made from a cursor, read from one, or made by the registry of derived types works on
// that element in place: what is set stands in the message at once. It keeps the message's tree alive, and its
// element even when that is removed from the message; then it stands apart. A copy of a configuration has a
// tree of its own.
//
// Threads: any number may read configurations of one tree at a time. Who sets a property must be alone with
// the tree, also when others hold other configurations of it: copy those that must not wait for each other.
//
// Accessors: a getter returns 0, with the value specified exactly when its element could be read, or -1, with
// an error text, without a message, with the value left alone. An element that cannot be read leaves an error
// text too. A setter makes the message where there is none; given an unspecified value it removes the element.
// What it sets takes the place of all elements of the name, where others put several.
// A list is one element per item; a specified, empty list is one empty element, so an empty text or
// address cannot be an item and is left out. An item that cannot be written ends the list: -1, with an error
// text.
//
// Memory that runs out passes through as std::bad_alloc, from getters and setters. Then the configuration, its place in
// the message and the value that was to be read are as before.
#ifndef KFLFUNCTIONALITY_KFLENVCONFIG_H
#define KFLFUNCTIONALITY_KFLENVCONFIG_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLIPAddress.h>
#include <KFLFunctionality/KFLOS.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLMessageIterator.h>
#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

struct KFLEnvCoreBasic;

// Which of an environment's two configurations it is.
enum EnvConfigType {
  EnvConfigReal = 0,     // what the agent itself has found
  EnvConfigVirtual = 1,  // what the technology has been told
};

// Where a property of a configuration stands: an element, and the namespace in which it is written.
struct KFLEnvProperty {
  KFLElementID id;
  std::string_view uri = kTypesNamespaceURI;
};

class KFLEnvConfig {
 public:
  struct Writer;
  struct Reader;
  template <class URI>
  class NamespaceSetterGuard;
  class Filling;

  using Text = KFLOptionalProperty<std::string>;
  using Texts = KFLOptionalProperty<std::vector<std::string>>;
  using TextSet = KFLOptionalProperty<std::set<std::string>>;
  using Addresses = KFLOptionalProperty<std::vector<KFLIPAddress>>;

  // A virtual configuration without a message.
  KFLEnvConfig() = default;
  // On the element under the cursor, in place; without a message for a null pointer and for a cursor on
  // nothing.
  KFLEnvConfig(const KFLMessageIterator* it, EnvConfigType kind);
  // On the core's virtual configuration, in place; without a message for a null pointer.
  explicit KFLEnvConfig(const boost::shared_ptr<KFLEnvCoreBasic>& core);
  KFLEnvConfig(const KFLEnvConfig& other);
  KFLEnvConfig(KFLEnvConfig&& other) noexcept = default;
  // Leaves the tree that the configuration worked on as it is.
  KFLEnvConfig& operator=(const KFLEnvConfig& other);
  KFLEnvConfig& operator=(KFLEnvConfig&& other) noexcept = default;
  virtual ~KFLEnvConfig();

  // The elements that the getters read and the setters write; a derived class describes its own.
  static const KFLFieldTable& elements();

  // The place of a child element in the fixed order, from 0 on; -1 for a name that has none and comes last.
  virtual int getPositionOfTheTag(const std::string& tag) const;

  bool hasMsg() const { return it_.isValid(); }
  // Makes an empty message where there is none.
  void initMsg();
  // A cursor on the configuration's element; on nothing without a message.
  KFLMessageIterator getIterator() const { return it_; }
  EnvConfigType getKind() const { return kind_; }

  int getName(Text& name) const;
  int setName(const Text& name);
  int getDescription(Text& description) const;
  int setDescription(const Text& description);
  int getHostname(Text& hostname) const;
  int setHostname(const Text& hostname);
  int getAddresses(Addresses& addresses) const;
  int setAddresses(const Addresses& addresses);
  int getNameservers(Texts& servers) const;
  int setNameservers(const Texts& servers);
  int getSearchDomains(TextSet& domains) const;
  int setSearchDomains(const TextSet& domains);
  int getArchitecture(Text& architecture) const;
  int setArchitecture(const Text& architecture);
  int getOS(KFLOptionalProperty<KFLOS>& os) const;
  int setOS(const KFLOptionalProperty<KFLOS>& os);
  // The name of the environment's technology, such as "kelvarium".
  int getType(Text& type) const;
  int setType(const Text& type);

 protected:
  // One element, for values (text, number, bool) and for records with Reader and Writer.
  template <class T>
  int getProperty(const KFLEnvProperty& property, KFLOptionalProperty<T>& value) const;
  template <class T>
  int setProperty(const KFLEnvProperty& property, const KFLOptionalProperty<T>& value);
  // The same for a value that is always there; its getter gives the result of the read.
  template <class T>
  int getMandatory(const KFLEnvProperty& property, T& value) const;
  template <class T>
  int putMandatory(const KFLEnvProperty& property, const T& value);

  // One element per item, for vectors and sets. The getter adds to what the container holds, and gives -1 at
  // an item that cannot be read.
  template <class Container>
  int getListProperty(const KFLEnvProperty& property, KFLOptionalProperty<Container>& value) const;
  template <class Container>
  int setListProperty(const KFLEnvProperty& property, const KFLOptionalProperty<Container>& value);
  // The same with a way of one's own to put an item into the element that is current: 0, or a result that ends the list.
  // No items for a null pointer.
  template <class Container, class Put>
  int setItems(const KFLEnvProperty& property, const Container* items, const Put& put);

  // One member of a set, which is the one equal to `value` as it came in; unspecified when there is none.
  template <class T>
  int getMember(const KFLEnvProperty& property, KFLOptionalProperty<T>& value) const;
  // Puts a member in the place of the one equal to it; an unspecified one is only taken out.
  template <class T>
  int setMember(const KFLEnvProperty& property, const KFLOptionalProperty<T>& value);

  // Takes the elements of this id out, making the message where there is none.
  void removeElement(KFLElementID id);

  std::vector<KFLMessageIterator> elementsNamed(KFLElementID id) const;

  // Says that there is no message: -1.
  static int failWithoutMessage();

  // Makes the message where there is none; unless keep() was called, there is none again at its end.
  class MessageGuard {
   public:
    explicit MessageGuard(KFLEnvConfig& config) : config_(config), isKept_(config.hasMsg()) {
      config.initMsg();
    }
    MessageGuard(const MessageGuard&) = delete;
    MessageGuard& operator=(const MessageGuard&) = delete;
    ~MessageGuard() {
      if (!isKept_) config_.it_ = KFLMessageIterator();
    }
    void keep() { isKept_ = true; }

   private:
    KFLEnvConfig& config_;
    bool isKept_;
  };

  // While it lives, children that the cursor adds to the configuration's element stand in the property's
  // namespace and at its place in the order.
  class Placement {
   public:
    Placement(KFLEnvConfig& config, const KFLEnvProperty& property);
    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;
    ~Placement();

   private:
    static KFLMessageIterator& prepare(KFLEnvConfig& config, const KFLEnvProperty& property);

    KFLMessageIterator& it_;
    KFLNamespaceScope scope_;
  };

  // On the configuration's element whenever no call is at work.
  KFLMessageIterator it_;

 private:
  friend class KFLEnv;

  // The places of the elements by the keys of their names; those without a position rank behind all others.
  class Ranks;
  // The child before which the element goes; none for the end.
  KFLMessageIterator findPlace(KFLElementID id);
  // The items as elements at the property's place, or the marker of an empty list.
  template <class Container, class Put>
  int addItems(const KFLEnvProperty& property, const Container& items, const Put& put);
  template <class T>
  int addElement(KFLElementID id, const T& value);
  Ranks& ranks();
  // Whether it is known without a look that there is no such element; where it is not, no more is known from now on.
  bool isKnownToLack(KFLElementID id);
  // The same before such an element is added, which then is told of.
  bool isFilledWith(KFLElementID id);
  void noteFirst();
  // Works on the element under the cursor from now on.
  void bind(const KFLMessageIterator& it);

  KFLElementHold hold_;
  EnvConfigType kind_ = EnvConfigVirtual;
  Ranks* ranks_ = nullptr;
  Filling* filling_ = nullptr;
};

// For those who set many properties of a configuration that has none: while it lives, setters look neither for former
// elements nor along the others for the place of a new one, as long as none is set twice, and what throws within them may
// leave part of its element. Only setters may change the configuration until then, it must stay where it is, and so must
// the texts of their ids. Does nothing for a configuration that holds something.
class KFLEnvConfig::Filling {
 public:
  explicit Filling(KFLEnvConfig& config);
  Filling(const Filling&) = delete;
  Filling& operator=(const Filling&) = delete;
  ~Filling() { config_.filling_ = nullptr; }

 private:
  friend class KFLEnvConfig;

  static constexpr int kRanks = 64;
  static constexpr std::size_t kOthers = 16;

  bool lacks(int rank, std::uint32_t nameKey) const;
  // Makes the property, which is lacking, the one of the next element; false for one that cannot be kept in mind.
  bool expect(int rank, std::uint32_t nameKey, KFLElementID id);
  // The child before which that element stands; empty for the end.
  KFLElementID place();
  // Says that there is such an element now.
  void note();

  KFLEnvConfig& config_;
  bool expects_ = false;
  int rank_ = 0;  // of the element that comes next
  KFLElementID id_;
  std::uint64_t ranks_ = 0;  // of the elements that were set, a bit for each
  std::array<KFLElementID, kRanks> byRank_;
  std::array<std::uint32_t, kOthers> others_{};  // the names of those without a rank
  std::size_t otherCount_ = 0;
  KFLElementID firstOther_;
};

// Selects a namespace for a scope, which ends in the default namespace; does nothing for an empty text or a
// null pointer. What the cursor adds to its element within the scope stands in that namespace, also behind
// records with a namespace of their own.
template <class URI>
class KFLEnvConfig::NamespaceSetterGuard {
 public:
  NamespaceSetterGuard(KFLMessageIterator& it, const URI& uri)
      : it_(it), selected_(select(it, uri)), scope_(it) {}
  NamespaceSetterGuard(const NamespaceSetterGuard&) = delete;
  NamespaceSetterGuard& operator=(const NamespaceSetterGuard&) = delete;
  ~NamespaceSetterGuard() {
    if (selected_) it_.selectNamespaceId(0);
  }

 private:
  static bool isGiven(const std::string& uri) { return !uri.empty(); }
  static bool isGiven(const char* uri) { return uri != nullptr; }
  static bool select(KFLMessageIterator& it, const URI& uri) {
    if (!isGiven(uri)) return false;
    it.selectNamespace(uri);
    return true;
  }

  KFLMessageIterator& it_;
  bool selected_;
  KFLNamespaceScope scope_;
};

// Writes the subtree as it stands into the current element; nothing for a configuration without a message.
struct KFLEnvConfig::Writer {
  static int getNSID() { return kTypesNamespace; }
  static const char* getStrNSID() { return ""; }
  static int getTypeID() { return 120; }
  static const char* getStrTypeID() { return ""; }
  int operator()(KFLMessageIterator& it, const KFLEnvConfig& config) const;
};

// Makes the configuration one of the current element, in place, as one that was made from the cursor.
struct KFLEnvConfig::Reader {
  int operator()(const KFLMessageIterator& it, KFLEnvConfig& config) const;
};

template <class T>
int KFLEnvConfig::getMandatory(const KFLEnvProperty& property, T& value) const {
  if (!hasMsg()) return failWithoutMessage();
  const KFLMessageIterator it(it_);
  return fields::getOne(it, value, property.id);
}

template <class T>
int KFLEnvConfig::addElement(KFLElementID id, const T& value) {
  it_.addChild(id);
  if (filling_ != nullptr) noteFirst();
  const int result = fields::putOne(it_, value, {});
  it_.leaveChild();
  return result;
}

template <class T>
int KFLEnvConfig::putMandatory(const KFLEnvProperty& property, const T& value) {
  if (isFilledWith(property.id)) {
    const Placement placement(*this, property);
    addElement(property.id, value);
    return 0;
  }
  MessageGuard message(*this);
  const std::vector<KFLMessageIterator> old = elementsNamed(property.id);
  const Placement placement(*this, property);
  KFLWriteGuard guard(it_);
  addElement(property.id, value);
  guard.keep();
  for (const KFLMessageIterator& element : old)
    it_.removeElement(element);
  message.keep();
  return 0;
}

template <class T>
int KFLEnvConfig::getProperty(const KFLEnvProperty& property, KFLOptionalProperty<T>& value) const {
  if (!hasMsg()) return failWithoutMessage();
  if constexpr (fields::Scalar<T>) {
    value.setSpecified(it_.findValue(value.value(), property.id) == 0);
  } else {
    const KFLMessageIterator it(it_);
    value.setSpecified(fields::findOne(it, value.value(), property.id) == 0);
  }
  return 0;
}

template <class T>
int KFLEnvConfig::setProperty(const KFLEnvProperty& property, const KFLOptionalProperty<T>& value) {
  if (value.isSpecified()) return putMandatory(property, value.getValue());
  removeElement(property.id);
  return 0;
}

template <class Container>
int KFLEnvConfig::getListProperty(const KFLEnvProperty& property,
                                  KFLOptionalProperty<Container>& value) const {
  if (!hasMsg()) return failWithoutMessage();
  const KFLMessageIterator it(it_);
  const bool isThere = it.findChild(property.id) == 0;
  Container items;
  int result = 0;
  // An empty element marks the empty list.
  while (isThere && !it.isEmptyElement()) {
    typename Container::value_type item{};
    result = fields::getOne(it, item, {});
    if (result != 0) break;
    items.insert(items.end(), std::move(item));
    if (it.findNextChild(property.id) != 0) break;
  }
  fields::addAll(value.value(), std::move(items));
  value.setSpecified(isThere);
  return result == 0 ? 0 : -1;
}

template <class Container>
int KFLEnvConfig::setListProperty(const KFLEnvProperty& property,
                                  const KFLOptionalProperty<Container>& value) {
  using Item = typename Container::value_type;
  return setItems(property, value.isSpecified() ? &value.getValue() : nullptr,
                  [](KFLMessageIterator& it, const Item& item) { return fields::putOne(it, item, {}); });
}

template <class Container, class Put>
int KFLEnvConfig::setItems(const KFLEnvProperty& property, const Container* items, const Put& put) {
  if (items == nullptr ? isKnownToLack(property.id) : isFilledWith(property.id))
    return items == nullptr ? 0 : addItems(property, *items, put);
  MessageGuard message(*this);
  const std::vector<KFLMessageIterator> old = elementsNamed(property.id);
  const int result = items != nullptr ? addItems(property, *items, put) : 0;
  for (const KFLMessageIterator& element : old)
    it_.removeElement(element);
  message.keep();
  return result;
}

template <class Container, class Put>
int KFLEnvConfig::addItems(const KFLEnvProperty& property, const Container& items, const Put& put) {
  const Placement placement(*this, property);
  std::optional<KFLWriteGuard> guard;
  if (filling_ == nullptr) guard.emplace(it_);
  bool isEmpty = true;
  int result = 0;
  for (auto item = items.begin(); item != items.end() && result == 0; ++item) {
    if (fields::isEmptyText(*item)) continue;
    it_.addChild(property.id);
    result = put(it_, *item);
    if (result != 0) {
      it_.removeCurrent();
    } else {
      if (isEmpty && filling_ != nullptr) noteFirst();
      it_.leaveChild();
    }
    isEmpty = false;
  }
  if (isEmpty) addElement(property.id, std::string());
  if (guard) guard->keep();
  return result;
}

template <class T>
int KFLEnvConfig::getMember(const KFLEnvProperty& property, KFLOptionalProperty<T>& value) const {
  KFLOptionalProperty<std::set<T>> all;
  if (getListProperty(property, all) != 0) return -1;
  value.setSpecified(false);
  const auto found = all.getValue().find(value.getValue());
  if (found != all.getValue().end()) value.setValue(*found);
  return 0;
}

template <class T>
int KFLEnvConfig::setMember(const KFLEnvProperty& property, const KFLOptionalProperty<T>& value) {
  KFLOptionalProperty<std::set<T>> all;
  initMsg();
  if (getListProperty(property, all) != 0) return -1;
  if (!value.isSpecified() && !all.isSpecified()) return 0;
  all.value().erase(value.getValue());
  if (value.isSpecified()) all.value().insert(value.getValue());
  all.setSpecified(true);
  return setListProperty(property, all);
}

}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(KFL::KFLEnvConfig)

#endif
