// SPDX-License-Identifier: Apache-2.0
// The cursor over a message tree, and through KFLMessageCombinators.h the functors that bind records to it.
//
// A cursor stands on one element, the current one. It is cheap to copy; copies move independently over the same tree
// and keep it alive. Finding moves the cursor, also a const one: position is not part of the message's value. A cursor
// that stands on a removed element must not be used. A tree and its cursors serve one thread at a time.
//
// An element is found by its name, whatever its namespace. A new element takes the selected namespace; when none is
// selected it takes that of its parent's type tag, or else its parent's own.
#ifndef KFLMESSAGE_KFLMESSAGEITERATOR_H
#define KFLMESSAGE_KFLMESSAGEITERATOR_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLMessage/KFLElementID.h>

namespace KFL {

class KFLMessageTree;
void intrusive_ptr_add_ref(KFLMessageTree* tree);
void intrusive_ptr_release(KFLMessageTree* tree);

template <class T>
concept KFLIntegerValue = std::same_as<T, int> || std::same_as<T, long> || std::same_as<T, long long>;

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

  // Creates a child and makes it current. New children come last, or where an insertion point was set. An unknown
  // number, and an empty id, are programming errors.
  void addChild(KFLElementID id);
  // Creates an empty child; the cursor stays. 0, or -1 on no tree.
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

  // Writes a child value element with this id; with an empty id the text of the current element. 0, or -1 on no tree.
  int putValue(const std::string& value, KFLElementID id = {});
  int putValue(const char* const& value, KFLElementID id = {});
  int putValue(const bool& value, KFLElementID id = {});
  template <KFLIntegerValue T>
  int putValue(const T& value, KFLElementID id = {}) {
    return putInteger(value, id);
  }

  // Reads the first child value element with this id, or with an empty id the current element. 0, or -1 when it is
  // absent or not well formed (numbers are read whole and in range, booleans are true, false, 1 or 0); then `value`
  // is untouched.
  int getValue(std::string& value, KFLElementID id = {}) const;
  int getValue(bool& value, KFLElementID id = {}) const;
  template <KFLIntegerValue T>
  int getValue(T& value, KFLElementID id = {}) const {
    long long wide = 0;
    if (getInteger(wide, id) != 0 || static_cast<T>(wide) != wide) return -1;
    value = static_cast<T>(wide);
    return 0;
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
  // Attributes other than the type tag; 0, or -1 when there is no attribute with this index.
  int getAttribute(std::size_t index, std::string& namespaceUri, std::string& name, std::string& value) const;

  // --- Whole subtrees ---------------------------------------------------------------------------------------------

  // Copies children, text, attributes and (where the current element has none) the type of the element under `source`
  // behind what the current element has. The trees may be different ones. 0, or -1 on no tree.
  int copyContent(const KFLMessageIterator& source);
  // The XML text of the current element: 0, or -1 with an error text and `out` empty.
  int print(std::string& out) const;
  // Whether both subtrees hold the same names, namespaces, types, attributes and texts in the same order.
  bool isEqualTree(const KFLMessageIterator& other) const;

  // --- Records ----------------------------------------------------------------------------------------------------

  // Writes `obj` through the writer `w`: as the child with this id, replacing the first one that is there; with an
  // empty id into the current element. Returns the writer's result.
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
  template <class T, class Writer>
  int putObjectInternal(const T& obj, const Writer& w);

 private:
  int moveTo(std::uint32_t element) const;
  std::uint32_t insertChild(KFLElementID id);
  int putInteger(long long value, KFLElementID id);
  int putText(std::string_view text, KFLElementID id);
  int getInteger(long long& value, KFLElementID id) const;
  // The text of the child with this id; false when there is none.
  bool getTextOf(KFLElementID id, std::string_view& text) const;

  boost::intrusive_ptr<KFLMessageTree> tree_;
  mutable std::uint32_t element_ = 0;
  std::uint32_t namespace_ = 0;
  std::uint32_t insertParent_ = 0;
  std::uint32_t insertBefore_ = 0;
};

}  // namespace KFL

#include <KFLMessage/KFLMessageCombinators.h>

#endif
