// SPDX-License-Identifier: Apache-2.0
// The cursor over a message tree, and through KFLMessageCombinators.h the functors that bind records to it.
//
// A cursor stands on one element, the current one. It is cheap to copy; copies move independently over the same tree
// and keep it alive. Finding moves the cursor, also a const one: position is not part of the message's value. A cursor
// that stands on a removed element must not be used, unless a KFLElementHold keeps the element. Any number of threads
// may read a tree, each with cursors of its own, while nobody changes it; who changes one must be alone with it.
//
// An element is found by its name, whatever its namespace. A new element takes the selected namespace; when none is
// selected it takes that of the record whose writer is at work on its parent, or else that of its parent's type tag, or
// else its parent's own.
//
// Memory that runs out passes through as std::bad_alloc. Then the tree, the cursor and what was to be read are as before.
//
// The calls that move the cursor or ask what is there answer with -1 and leave no text: not finding is no failure. Each
// other -1 comes with an error text that begins with the element's path.
#ifndef KFLMESSAGE_KFLMESSAGEITERATOR_H
#define KFLMESSAGE_KFLMESSAGEITERATOR_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLMessage/KFLElementID.h>
#include <KFLMessage/KFLElementMark.h>

namespace KFL {

class KFLMessageTree;
void intrusive_ptr_add_ref(KFLMessageTree* tree);
void intrusive_ptr_release(KFLMessageTree* tree);

// What is written as a number: integers of any width, but neither truth values nor characters.
template <class T>
concept KFLIntegerValue =
    std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, wchar_t> &&
    !std::same_as<T, char8_t> && !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

// What is written as it stands.
template <class T>
concept KFLTextValue = std::is_convertible_v<const T&, std::string> ||
    std::is_convertible_v<const T&, std::string_view> || std::is_convertible_v<const T&, const char*>;

class KFLMessageIterator {
 public:
  // A cursor on no tree: finds nothing, and everything it is asked to write fails with -1.
  KFLMessageIterator() = default;
  KFLMessageIterator(boost::intrusive_ptr<KFLMessageTree> tree, std::uint32_t element);

  bool isValid() const { return tree_ != nullptr; }

  // --- Namespace of new elements, and the type of the current element -------------------------------------------

  // Elements created from now on stand in the namespace `uri`.
  void selectNamespace(std::string_view uri);
  // The same by number; 0, and a number without a namespace, return to the default namespace.
  void selectNamespaceId(int id);
  // Gives the current element a type tag. The first type set stays; an empty tag sets none.
  void setTypeByName(std::string_view namespaceUri, std::string_view tag);
  // The same by the numbers of the core's types; a number without a name sets no type.
  void setTypeById(int namespaceId, int typeId);
  // Moves the current (item) element into the namespace with this number; 0 leaves it where it is.
  void setItemNSType(int namespaceId);
  // The current element's type as a registry key: namespace, ":", tag; the tag alone when it has no namespace; empty
  // when the element has no type.
  void getTypeName(std::string& out) const;
  std::string_view getTypeTag() const;
  std::string_view getTypeNamespace() const;

  // --- Moving -----------------------------------------------------------------------------------------------------

  // Makes the first child with this id current: 0, or -1 when there is none and the cursor stays.
  int findChild(KFLElementID id) const;
  // Moves to the next sibling with this id: 0, or -1 when there is none and the cursor stays.
  int findNextChild(KFLElementID id) const;
  // Makes the first child, whatever its name, current: 0 or -1.
  int firstChild() const;
  // Moves to the next sibling, whatever its name: 0 or -1.
  int nextSibling() const;
  // Returns to the parent; on the root it stays.
  void leaveChild() const;
  bool hasChild(KFLElementID id) const;

  // --- Changing ---------------------------------------------------------------------------------------------------

  // Creates a child and makes it current. New children come last, or where an insertion point was set. A number that
  // the vocabulary lacks, and an empty id, abort: look at a name that comes from outside before it is used here. The
  // calls below that take an id refuse such a number.
  void addChild(KFLElementID id);
  // Creates an empty child; the cursor stays. 0, or -1 on no tree, for an empty id, and for an unknown number.
  int addEmptyChild(KFLElementID id);
  // Deletes the current element with all below it and returns to its parent. The root keeps its place and is emptied.
  void removeCurrent();
  // Removes every child with this id; the number removed.
  std::size_t removeChildren(KFLElementID id);
  // Removes all children, the text and the attributes of the current element. Its name and type stay.
  void clear();
  // Until clearInsertionPoint(), children added to the current element by this cursor go before `sibling`, one of its
  // children.
  void setInsertionPoint(const KFLMessageIterator& sibling);
  void clearInsertionPoint();

  // --- Values -----------------------------------------------------------------------------------------------------

  // Writes a child value element with this id; with an empty id the text of the current element. A bool is written as
  // true or false, an integer as a number. 0, or -1 on no tree, for an unknown number of an element, and for an integer
  // beyond 64 bits with a sign.
  int putValue(const std::string& value, KFLElementID id = {}) { return putText(value, id); }
  int putValue(const std::string_view& value, KFLElementID id = {}) { return putText(value, id); }
  int putValue(const char* const& value, KFLElementID id = {}) {
    return putText(value == nullptr ? std::string_view() : value, id);
  }
  template <class T>
  requires(!KFLTextValue<T>) int putValue(const T& value, KFLElementID id = {}) {
    static_assert(
        std::same_as<T, bool> || KFLIntegerValue<T>,
        "putValue() takes a text, a bool or an integer; make one of any other value first, and give a "
        "record to putObj()");
    if constexpr (std::same_as<T, bool>)
      return putText(value ? "true" : "false", id);
    else if constexpr (KFLIntegerValue<T>)
      return std::in_range<long long>(value) ? putInteger(static_cast<long long>(value), id)
                                             : failTooLarge(id);
    else
      return -1;
  }

  // Reads the first child value element with this id, or with an empty id the current element. 0, or -1 when it is
  // absent or not well formed (numbers are read whole and in range, booleans are true, false, 1 or 0); then `value`
  // is untouched.
  int getValue(std::string& value, KFLElementID id = {}) const { return needed(findValue(value, id), id); }
  int getValue(bool& value, KFLElementID id = {}) const { return needed(findValue(value, id), id); }
  template <KFLIntegerValue T>
  int getValue(T& value, KFLElementID id = {}) const {
    return needed(findValue(value, id), id);
  }

  // The same for an element that may be absent: 0; 1, without a text, when it is; -1 when it is not well formed.
  int findValue(std::string& value, KFLElementID id = {}) const;
  int findValue(bool& value, KFLElementID id = {}) const;
  template <KFLIntegerValue T>
  int findValue(T& value, KFLElementID id = {}) const {
    using Limits = std::numeric_limits<T>;
    constexpr long long kMost = std::in_range<long long>(Limits::max())
                                    ? static_cast<long long>(Limits::max())
                                    : std::numeric_limits<long long>::max();
    long long wide = 0;
    const int result = findInteger(wide, {static_cast<long long>(Limits::min()), kMost, 8 * sizeof(T)}, id);
    if (result == 0) value = static_cast<T>(wide);
    return result;
  }

  // True when the current element has neither text nor children.
  bool isEmptyElement() const;

  // --- What stands at the current element -------------------------------------------------------------------------

  std::string_view getName() const;
  std::string_view getNamespace() const;
  // The element's own text; valid until the element is changed.
  std::string_view getText() const;
  // Names the current element anew, in the namespace given.
  void setName(std::string_view name, std::string_view namespaceUri);
  // An identity of the element's name within this tree, equal for equal names: for caches keyed by element.
  std::uint32_t getNameKey() const;
  // The name key that an id has in this tree; 0 when no element of it can have that name.
  std::uint32_t findNameKey(KFLElementID id) const;
  // Whether both cursors stand on the same element of the same tree.
  bool isSameElement(const KFLMessageIterator& other) const;
  std::size_t countChildren() const;
  // The element's path from the root, with its number among siblings of its name where there are several, such as
  // /venv_config/net_device[2]/name; a root that has no name yet stands by the one that it would get. Empty on no tree.
  std::string getPath() const;
  // Attributes other than the type tag; 0, or -1 when there is no attribute with this index.
  int getAttribute(std::size_t index, std::string& namespaceUri, std::string& name, std::string& value) const;

  // --- Whole subtrees ---------------------------------------------------------------------------------------------

  // Copies children, text, attributes and (where the current element has none) the type of the element under `source`
  // behind what the current element has. The trees may be different ones. 0, or -1 on no tree.
  int copyContent(const KFLMessageIterator& source);
  // The XML text of the current element: 0, or -1 with an error text and `out` empty.
  int print(std::string& out) const;
  // Whether both subtrees hold the same names, namespaces, types, attributes and texts in the same order. Blank texts beside
  // elements do not count, as in XML.
  bool isEqualTree(const KFLMessageIterator& other) const;

  // --- Records ----------------------------------------------------------------------------------------------------

  // Writes `obj` through the writer `w`: as the child with this id, replacing the first one that is there; with an
  // empty id into the current element. Returns the writer's result; -1 on no tree and for an unknown number.
  template <class T, class Writer>
  int putObject(const T& obj, const Writer& w, KFLElementID id = {});
  // Reads `obj` from the child with this id, or from the current element. Returns the reader's result; -1 when the
  // child is absent, with `obj` untouched.
  template <class T, class Reader>
  int getObject(T& obj, const Reader& r, KFLElementID id = {}) const;
  // The same with the record's own T::Writer and T::Reader.
  template <class T>
  int putObj(const T& obj, KFLElementID id = {});
  template <class T>
  int getObj(T& obj, KFLElementID id = {}) const;

  // Writes into the current element: namespace, type, then the record; the default namespace is selected afterwards.
  // All that the writer adds to the element stands in the writer's namespace, where it names one, also behind other
  // records that it writes. A root that was made without a namespace gets the first one that is written into it, and one
  // without a name, where the record has no type tag either, the name of the record's class ("ubc" for KFAUbc).
  template <class T, class Writer>
  int putObjectInternal(const T& obj, const Writer& w);

  // A cursor on the first child with this id, or on no element; and the way to take such a child out, for who writes
  // another in its place first.
  KFLMessageIterator childOf(KFLElementID id) const;
  void removeElement(const KFLMessageIterator& child);

  // --- Refusing ---------------------------------------------------------------------------------------------------

  // For readers and writers: records "PATH: REASON" for the current element, and returns -1.
  int fail(std::string_view reason) const;
  // The same for the child with this id: with its path when it is there, and else that it is missing.
  int failAt(KFLElementID id, std::string_view reason) const;
  int failMissing(KFLElementID id) const;

 private:
  friend class KFLElementHold;
  friend class KFLNamespaceScope;
  friend class KFLWriteGuard;
  friend class KFLContentGuard;
  friend class KFLCursorGuard;

  struct IntegerRange {
    long long least;
    long long most;
    std::size_t bits;
  };

  int moveTo(std::uint32_t element) const;
  bool canBeAdded(KFLElementID id) const;
  std::uint32_t insertChild(KFLElementID id);
  int putInteger(long long value, KFLElementID id);
  int putText(std::string_view text, KFLElementID id);
  int failTooLarge(KFLElementID id) const;
  int failToAdd(KFLElementID id) const;
  int findInteger(long long& value, const IntegerRange& range, KFLElementID id) const;
  int needed(int found, KFLElementID id) const { return found == 1 ? failMissing(id) : found; }
  // The element with this id, or the current one; 0 when there is none.
  std::uint32_t elementOf(KFLElementID id) const;
  // The text of the child with this id; false when there is none.
  bool getTextOf(KFLElementID id, std::string_view& text) const;
  // Gives a root what it lacks: the namespace by its number, or else by its name; the class is that of a record without
  // a type tag, or null.
  void completeRoot(int namespaceId, std::string_view namespaceUri, const std::type_info* untyped);

  boost::intrusive_ptr<KFLMessageTree> tree_;
  mutable std::uint32_t element_ = 0;
  std::uint32_t namespace_ = 0;
  std::uint32_t insertParent_ = 0;
  std::uint32_t insertBefore_ = 0;
  std::uint32_t scopeElement_ = 0;
  std::uint32_t scopeNamespace_ = 0;
};

// While it lives, the default namespace of children that the cursor adds to the element on which it stands now is the
// one that is selected now; where none is selected, it changes nothing. The scopes of one cursor end in the reverse
// order of their making.
class KFLNamespaceScope {
 public:
  explicit KFLNamespaceScope(KFLMessageIterator& it)
      : it_(it), element_(it.scopeElement_), namespace_(it.scopeNamespace_) {
    if (it.namespace_ == 0) return;
    it.scopeElement_ = it.element_;
    it.scopeNamespace_ = it.namespace_;
  }
  KFLNamespaceScope(const KFLNamespaceScope&) = delete;
  KFLNamespaceScope& operator=(const KFLNamespaceScope&) = delete;
  ~KFLNamespaceScope() {
    it_.scopeElement_ = element_;
    it_.scopeNamespace_ = namespace_;
  }

 private:
  KFLMessageIterator& it_;
  std::uint32_t element_;
  std::uint32_t namespace_;
};

// Brings a cursor back to where it was made: for readers, which move it, however they end.
class KFLCursorGuard {
 public:
  explicit KFLCursorGuard(const KFLMessageIterator& it) : it_(it), element_(it.element_) {}
  KFLCursorGuard(const KFLCursorGuard&) = delete;
  KFLCursorGuard& operator=(const KFLCursorGuard&) = delete;
  ~KFLCursorGuard() { it_.element_ = element_; }

 private:
  const KFLMessageIterator& it_;
  std::uint32_t element_;
};

// Unless keep() was called, undoes at its end what was done through the cursor since: children that were added to the
// current element, its text, its type and the name of a root, and position, selected namespace and insertion point of
// the cursor. What was removed meanwhile, anywhere in the message, is put back. For writers, which an exception may leave at
// any allocation; undoing takes no memory, but removing takes some while a guard lives. The guards of one message end in the
// reverse order of their making.
class KFLWriteGuard {
 public:
  explicit KFLWriteGuard(KFLMessageIterator& it);
  KFLWriteGuard(const KFLWriteGuard&) = delete;
  KFLWriteGuard& operator=(const KFLWriteGuard&) = delete;
  ~KFLWriteGuard() {
    if (!isKept_) undo();
  }
  void keep();

 private:
  void undo() noexcept;

  KFLMessageIterator& it_;
  KFLElementMark mark_;
  std::uint32_t namespace_;
  std::uint32_t insertParent_;
  std::uint32_t insertBefore_;
  std::uint32_t scopeElement_;
  std::uint32_t scopeNamespace_;
  bool isKept_ = false;
};

// Unless keep() was called, gives the element under the cursor at its end the children and the text that it had. For
// changes of many steps: takes a copy of them all when it is made, and no memory later.
class KFLContentGuard {
 public:
  explicit KFLContentGuard(const KFLMessageIterator& it);
  KFLContentGuard(const KFLContentGuard&) = delete;
  KFLContentGuard& operator=(const KFLContentGuard&) = delete;
  ~KFLContentGuard();
  void keep() { isKept_ = true; }

 private:
  boost::intrusive_ptr<KFLMessageTree> tree_;  // empty for a cursor on nothing
  std::uint32_t element_;
  std::uint32_t copy_ = 0;
  bool isKept_ = false;
  std::uint32_t removed_ = 0;
};

// Keeps the element under a cursor, with all below it. When the element, or one that it stands in, is removed from the
// tree, it stands apart from then on, and cursors on it stay good. The hold may end on any thread.
class KFLElementHold {
 public:
  KFLElementHold() = default;
  explicit KFLElementHold(const KFLMessageIterator& it);
  KFLElementHold(KFLElementHold&& other) noexcept : tree_(std::move(other.tree_)), element_(other.element_) {}
  KFLElementHold& operator=(KFLElementHold&& other) noexcept;
  ~KFLElementHold() { release(); }

 private:
  void release();

  boost::intrusive_ptr<KFLMessageTree> tree_;  // empty for nothing, and for a root, which is never removed
  std::uint32_t element_ = 0;
};

}  // namespace KFL

#include <KFLMessage/KFLMessageCombinators.h>

#endif
