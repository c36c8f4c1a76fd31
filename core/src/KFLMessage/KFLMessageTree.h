// SPDX-License-Identifier: Apache-2.0
// Not installed: the tree under messages and cursors.
//
// Elements are nodes of 40 bytes, addressed by number; nodes stand in chunks and never move. Names, namespaces and
// types are numbers too: a name of the tag vocabulary has the same one in every tree, so that it is found without
// looking at its text. A node holds its element's text, up to eight bytes of it in itself.
//
// Text between child elements stands in nodes of the name kTextName, which are no elements: the first child is never
// one, no two follow each other, and none is blank. The text before the first child is the parent's own. Only where an
// element was removed and there was no memory to join the texts around it do they stand as they stood.
//
// The tree lives as long as a message or cursor refers to it. Any number of threads may read it, or one change it; the count of
// references and the holds are safe between threads in any case.
#ifndef KFLMESSAGE_KFLMESSAGETREE_H
#define KFLMESSAGE_KFLMESSAGETREE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <KFLCommon/KFLLock.h>
#include <KFLMessage/KFLElementID.h>
#include <KFLMessage/KFLElementMark.h>
#include <KFLMessage/KFLNameTable.h>
#include <KFLMessage/KFLTagIndex.h>
#include <KFLMessage/KFLTagVocabulary.h>
#include <KFLMessage/KFLTextArena.h>

namespace KFL {

using KFLNodeIndex = std::uint32_t;

struct KFLMessageNode {
  static constexpr std::uint32_t kInside = 8;          // texts up to this size stand in the node
  static constexpr std::uint32_t kHuge = 0xFFFFFFFFU;  // the size stands with the text's room

  std::uint32_t name : 31;
  std::uint32_t hasAttributes : 1;
  std::uint32_t ns;
  std::uint32_t type;
  KFLNodeIndex parent;
  KFLNodeIndex first;
  KFLNodeIndex next;
  KFLNodeIndex prev;  // of the first child: the last one
  std::uint32_t textSize;
  union {
    char inside[kInside];
    char* outside;
  } text;
};
static_assert(sizeof(KFLMessageNode) == 40);

// An attribute other than the type tag.
struct KFLMessageAttribute {
  std::uint32_t ns;
  std::uint32_t name;
  std::string value;
};
using KFLMessageAttributes = std::vector<KFLMessageAttribute>;

class KFLMessageTree {
 public:
  using Node = KFLMessageNode;
  struct Type {
    std::uint32_t ns = 0;
    std::uint32_t tag = 0;
  };

  static constexpr KFLNodeIndex kNone = 0;
  static constexpr KFLNodeIndex kRoot = 1;
  static constexpr std::uint32_t kTextName = kTagPositionLimit;
  // Numbers of names that the vocabulary lacks follow this one.
  static constexpr std::uint32_t kLastFixedName = kTextName;

  // An empty root element without a name.
  KFLMessageTree();
  KFLMessageTree(const KFLMessageTree&) = delete;
  KFLMessageTree& operator=(const KFLMessageTree&) = delete;
  ~KFLMessageTree();

  Node& at(KFLNodeIndex index) { return chunks_[index / kChunk][index % kChunk]; }
  const Node& at(KFLNodeIndex index) const { return chunks_[index / kChunk][index % kChunk]; }

  // --- Names: 0 is no name, no namespace, no type -------------------------------------------------------------------

  std::uint32_t findName(std::string_view name) const;
  std::uint32_t findName(KFLElementID id) const {
    return id.number() != 0 ? tagPosition(id.number()) : findName(id.name());
  }
  std::uint32_t internName(std::string_view name);
  std::uint32_t internName(KFLElementID id) {
    return id.number() != 0 ? tagPosition(id.number()) : internName(id.name());
  }
  std::string_view nameText(std::uint32_t name) const {
    if (name >= kTextName) return name == kTextName ? std::string_view() : names_.text(name - kLastFixedName);
    return name == 0 ? std::string_view() : tags_[name - 1].name;
  }
  // Whether a name can stand in XML text.
  bool isXmlName(std::uint32_t name) const { return name < kTextName ? name != 0 : isOwnXmlName(name); }

  std::uint32_t findNamespace(std::string_view uri) const { return uri.empty() ? 0 : namespaces_.find(uri); }
  std::uint32_t internNamespace(std::string_view uri) { return uri.empty() ? 0 : namespaces_.intern(uri); }
  std::string_view namespaceText(std::uint32_t ns) const {
    return ns == 0 ? std::string_view() : namespaces_.text(ns);
  }
  std::size_t namespaceCount() const { return namespaces_.size(); }

  std::uint32_t findType(Type type) const { return types_.find(typeBytes(type)); }
  std::uint32_t internType(Type type) { return types_.intern(typeBytes(type)); }
  Type type(std::uint32_t type) const;
  bool hasTypes() const { return types_.size() != 0; }

  // The names by which the element is known outside: those of an unnamed root come from its type.
  std::string_view effectiveName(KFLNodeIndex element) const;
  std::uint32_t effectiveNamespace(KFLNodeIndex element) const;
  // Whether the root still waits for the namespace, and where it has none for the name, of what is written into it.
  bool isRootOpen() const { return isRootOpen_; }
  void closeRoot() { isRootOpen_ = false; }
  // The namespace of a child that is created without one.
  std::uint32_t defaultNamespaceBelow(KFLNodeIndex parent) const;

  // --- Elements -----------------------------------------------------------------------------------------------------

  bool isText(KFLNodeIndex node) const { return at(node).name == kTextName; }
  KFLNodeIndex findChild(KFLNodeIndex parent, std::uint32_t name) const {
    return findFrom(at(parent).first, name);
  }
  KFLNodeIndex findNext(KFLNodeIndex element, std::uint32_t name) const {
    return findFrom(at(element).next, name);
  }
  KFLNodeIndex firstElement(KFLNodeIndex parent) const { return skipTexts(at(parent).first); }
  KFLNodeIndex nextElement(KFLNodeIndex element) const { return skipTexts(at(element).next); }

  // A new node at the end of the parent's children.
  KFLNodeIndex append(KFLNodeIndex parent, std::uint32_t name, std::uint32_t ns);
  // A new node before one of the parent's children; at the end when that is kNone or no child of it.
  KFLNodeIndex insert(KFLNodeIndex parent, std::uint32_t name, std::uint32_t ns, KFLNodeIndex before);
  // Takes an element out, with all below it. Not for the root. While there is a mark it stands apart, to be put back, and
  // this throws, and changes nothing, where there is no memory to note it; else it takes none.
  void remove(KFLNodeIndex element);
  // Takes out every child of this name; the number taken out.
  std::size_t removeChildren(KFLNodeIndex parent, std::uint32_t name);
  // Takes out what the element holds: children, text, attributes.
  void clear(KFLNodeIndex element);
  // Says that an element may have another name, or another place among its siblings, than before.
  void noteChange() noexcept { ++changes_; }

  // What an element is like; given back by undo() or forget(), the last one first. New children go before `before`, where
  // that is one.
  using Mark = KFLElementMark;
  Mark mark(KFLNodeIndex element, KFLNodeIndex before);
  // Puts back what was removed anywhere since, takes out the children that were added, and gives back name, type and texts.
  void undo(const Mark& mark) noexcept;
  void forget(const Mark& mark) noexcept;
  // The number of elements that stand apart to be put back; and puts back those that came behind so many.
  std::size_t removedCount() const { return removed_.size(); }
  void putBack(std::size_t count) noexcept;

  // A node apart that holds a copy of an element's children and text, until it is freed.
  KFLNodeIndex copyApart(KFLNodeIndex element);
  void swapContent(KFLNodeIndex a, KFLNodeIndex b) noexcept;
  void freeApart(KFLNodeIndex apart) noexcept { freeSubtree(apart); }

  // Keeps an element, which is not the root: taken out, it stands apart with all below it until it is held no more.
  // Each hold ends by one release, on any thread.
  void hold(KFLNodeIndex element);
  void release(KFLNodeIndex element) noexcept;

  // --- Texts and attributes -----------------------------------------------------------------------------------------

  std::string_view text(KFLNodeIndex index) const { return textOf(at(index)); }
  static std::string_view textOf(const Node& node);
  void setText(KFLNodeIndex index, std::string_view text) { setNodeText(at(index), text); }
  // Gives an element that was just made its text, or throws and takes the element out again.
  void setFirstText(KFLNodeIndex fresh, std::string_view text);
  void appendText(KFLNodeIndex index, std::string_view text);
  // Text behind what the element holds: its own text, or a text node behind its last child, unless it would be a blank one.
  void appendMixedText(KFLNodeIndex element, std::string_view text);

  // Null when the element has none.
  const KFLMessageAttributes* attributes(KFLNodeIndex element) const;
  void setAttributes(KFLNodeIndex element, KFLMessageAttributes attributes);

  // --- Subtrees -----------------------------------------------------------------------------------------------------

  // Copies children, text, attributes and, where the element has none, the type of `source` behind what `element` has;
  // or throws and changes nothing.
  void copyContent(KFLNodeIndex element, const KFLMessageTree& from, KFLNodeIndex source);
  bool isEqual(KFLNodeIndex element, const KFLMessageTree& other, KFLNodeIndex otherElement) const;
  // Whether `element` is `top` or stands below it.
  bool isWithin(KFLNodeIndex element, KFLNodeIndex top) const;
  // The element's path from the root, such as /message/net_device[2]/name. The paths of all children of an element take
  // one walk along them for each name.
  std::string path(KFLNodeIndex element) const;

  std::size_t nodeCount() const { return used_; }
  std::size_t textBytes() const { return arena_.memoryUsed(); }
  std::size_t memoryUsed() const;

  void addReference() { references_.fetch_add(1, std::memory_order_relaxed); }
  // True when that was the last one.
  bool dropReference() { return references_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

 private:
  template <class Target>
  class Translation;
  void copyAttributes(KFLNodeIndex element, const KFLMessageTree& from, KFLNodeIndex source,
                      Translation<KFLMessageTree>& translation);

  void copyBelow(KFLNodeIndex element, const KFLMessageTree& from, KFLNodeIndex source);

  static constexpr KFLNodeIndex kChunk = 64;
  static constexpr std::size_t kLargestBlock = 32;  // chunks taken from the heap at once

  static std::string_view typeBytes(const Type& type) {
    return {reinterpret_cast<const char*>(&type), sizeof type};
  }
  KFLNodeIndex findFrom(KFLNodeIndex index, std::uint32_t name) const {
    while (index != kNone && at(index).name != name)
      index = at(index).next;
    return index;
  }

  KFLNodeIndex skipTexts(KFLNodeIndex node) const {
    while (node != kNone && isText(node))
      node = at(node).next;
    return node;
  }

  // Where a child stands among those of its name, from 1 on, and how many there are.
  struct Place {
    std::uint32_t position = 0;
    std::uint32_t count = 0;
  };
  Place placeOf(KFLNodeIndex element) const;
  Place placeAmongMany(KFLNodeIndex element) const;  // with countsLock_ held

  bool isOwnXmlName(std::uint32_t name) const;
  KFLNodeIndex newNode(KFLNodeIndex parent, std::uint32_t name, std::uint32_t ns);
  void addBlock();
  void unlink(KFLNodeIndex index);
  void drop(KFLNodeIndex index) noexcept;
  void joinTexts(KFLNodeIndex parent, KFLNodeIndex prev) noexcept;
  void setApart(KFLNodeIndex index);
  void linkBehind(KFLNodeIndex index, KFLNodeIndex parent, KFLNodeIndex prev);
  void swapAllContent(KFLNodeIndex a, KFLNodeIndex b) noexcept;
  void freeTexts(const Mark& mark) noexcept;
  void freeRemoved() noexcept;
  KFLNodeIndex keepText(KFLNodeIndex index);
  void giveTextBack(KFLNodeIndex index, KFLNodeIndex kept) noexcept;
  void freeSubtree(KFLNodeIndex top);
  bool setHeldApart(KFLNodeIndex top);
  void freeReleased();
  void freeNode(KFLNodeIndex index);
  void setNodeText(Node& node, std::string_view text);
  void dropText(Node& node);
  static void setSize(Node& node, std::size_t size);
  bool fitsInPlace(const Node& node, std::size_t size) const;

  std::atomic<std::uint32_t> references_{0};
  const KFLTag* const tags_ = tagVocabulary().begin();
  struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
  };
  std::unique_ptr<Node*[], FreeMemory> chunks_;
  std::size_t chunkCount_ = 0;
  std::size_t chunkRoom_ = 0;
  std::size_t nextBlock_ = 1;
  std::vector<std::unique_ptr<Node, FreeMemory>> blocks_;
  KFLNodeIndex used_ = 1;  // node 0 stands for none
  KFLNodeIndex free_ = kNone;
  KFLTextArena arena_;
  KFLNameTable names_{arena_};
  KFLNameTable namespaces_{arena_};
  KFLNameTable types_{arena_};
  std::unordered_map<KFLNodeIndex, KFLMessageAttributes> attributes_;
  bool isRootOpen_ = true;

  // What was taken out while there are marks: an element that stood below `parent` behind `prev`, or at the front where that
  // is kNone; or a node apart with all that `parent` held.
  struct Removed {
    KFLNodeIndex node;
    KFLNodeIndex parent;
    KFLNodeIndex prev;
    bool isContent;
  };
  std::vector<Removed> removed_;
  std::vector<std::size_t> marks_;  // for each mark, how many there were when it was made

  // How far the children of parents with many were counted: children that are added at the end leave it good.
  struct Counts {
    struct Walk {
      KFLNodeIndex last = kNone;
      std::uint32_t steps = 0;
      std::uint32_t count = 0;
    };
    std::uint64_t changes = 0;                      // those of the tree that it knows of
    std::unordered_map<std::uint64_t, Walk> walks;  // by parent and name
    std::unordered_map<std::uint64_t, std::uint32_t>
        noted;  // by child and name: how many there are up to the child

    std::size_t memoryUsed() const {
      return walks.size() * (sizeof(*walks.begin()) + sizeof(void*)) +
             noted.size() * (sizeof(*noted.begin()) + sizeof(void*)) +
             (walks.bucket_count() + noted.bucket_count()) * sizeof(void*);
    }
  };
  static constexpr std::uint32_t kManySteps = 32;  // a count is noted with each of so many children
  static std::uint64_t countKey(KFLNodeIndex node, std::uint32_t name) {
    return (std::uint64_t{node} << 32) | name;
  }
  std::uint64_t changes_ = 0;
  mutable KFLLock countsLock_;
  mutable Counts counts_;  // its owner holds countsLock_

  struct Hold {
    Node* node = nullptr;  // nodes never move, and what finds them does
    std::uint32_t count = 0;
    bool isApart = false;
  };
  KFLLock holdLock_;
  std::unordered_map<KFLNodeIndex, Hold> holds_ KFL_GUARDED_BY(holdLock_);
  // What stands apart, to be freed by who changes the tree: the first, the others by their links.
  KFLNodeIndex released_ KFL_GUARDED_BY(holdLock_) = kNone;
  std::atomic<bool> hasHolds_{false};  // whether either of the two has anything
};

inline std::string_view KFLMessageTree::textOf(const Node& node) {
  if (node.textSize <= Node::kInside) return {node.text.inside, node.textSize};
  if (node.textSize != Node::kHuge) return {node.text.outside, node.textSize};
  return {node.text.outside, KFLTextArena::sizeOf(static_cast<const char*>(node.text.outside))};
}

}  // namespace KFL

#endif
