// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLMessageTree.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include <KFLMessage/KFLXMLReader.h>

namespace KFL {

namespace {

constexpr std::string_view kDefaultRootName = "message";
constexpr std::string_view kTypeSuffix = "Type";

void* allocate(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

KFLMessageTree::KFLMessageTree() {
  const KFLNodeIndex root = newNode(kNone, 0, 0);
  at(root).prev = root;
}

KFLMessageTree::~KFLMessageTree() = default;

// --- Names ----------------------------------------------------------------------------------------------------------

std::uint32_t KFLMessageTree::findName(std::string_view name) const {
  if (const std::uint32_t position = tagPosition(name); position != 0) return position;
  const std::uint32_t number = names_.find(name);
  return number == 0 ? 0 : number + kLastFixedName;
}

std::uint32_t KFLMessageTree::internName(std::string_view name) {
  if (name.empty()) return 0;
  if (const std::uint32_t position = tagPosition(name); position != 0) return position;
  return names_.intern(name) + kLastFixedName;
}

KFLMessageTree::Type KFLMessageTree::type(std::uint32_t type) const {
  Type result;
  if (type != 0) std::memcpy(&result, types_.text(type).data(), sizeof result);
  return result;
}

bool KFLMessageTree::isOwnXmlName(std::uint32_t name) const {
  if (name == kTextName) return false;
  using State = KFLNameTable::NameState;
  const std::uint32_t number = name - kLastFixedName;
  if (names_.nameState(number) == State::Unknown) {
    names_.setNameState(number, KFL::isXmlName(names_.text(number)) ? State::Valid : State::Invalid);
  }
  return names_.nameState(number) == State::Valid;
}

std::string_view KFLMessageTree::effectiveName(KFLNodeIndex element) const {
  const Node& node = at(element);
  if (node.name != 0) return nameText(node.name);
  if (node.type == 0) return kDefaultRootName;
  std::string_view name = nameText(type(node.type).tag);
  if (name.size() > kTypeSuffix.size() && name.ends_with(kTypeSuffix)) name.remove_suffix(kTypeSuffix.size());
  return name;
}

std::uint32_t KFLMessageTree::effectiveNamespace(KFLNodeIndex element) const {
  const Node& node = at(element);
  return node.name == 0 && node.ns == 0 ? type(node.type).ns : node.ns;
}

std::uint32_t KFLMessageTree::defaultNamespaceBelow(KFLNodeIndex parent) const {
  const Node& node = at(parent);
  if (node.type == 0) return node.ns;
  const std::uint32_t ns = type(node.type).ns;
  return ns != 0 ? ns : node.ns;
}

// --- Elements -------------------------------------------------------------------------------------------------------

void KFLMessageTree::addBlock() {
  if (chunkCount_ + nextBlock_ > std::numeric_limits<KFLNodeIndex>::max() / kChunk) throw std::bad_alloc();
  if (chunkCount_ + nextBlock_ > chunkRoom_) {
    const std::size_t room = std::max<std::size_t>(4, 2 * (chunkCount_ + nextBlock_));
    void* const table = std::realloc(chunks_.get(), room * sizeof(Node*));
    if (table == nullptr) throw std::bad_alloc();
    static_cast<void>(chunks_.release());
    chunks_.reset(static_cast<Node**>(table));
    chunkRoom_ = room;
  }
  blocks_.reserve(std::max<std::size_t>(4, blocks_.size() + 1 > blocks_.capacity() ? 2 * blocks_.size() : 0));
  auto* const block = static_cast<Node*>(allocate(nextBlock_ * kChunk * sizeof(Node)));
  blocks_.emplace_back(block);
  for (std::size_t i = 0; i < nextBlock_; ++i)
    chunks_[chunkCount_++] = block + i * kChunk;
  nextBlock_ = std::min(2 * nextBlock_, kLargestBlock);
}

KFLNodeIndex KFLMessageTree::newNode(KFLNodeIndex parent, std::uint32_t name, std::uint32_t ns) {
  KFLNodeIndex index = free_;
  if (index != kNone) {
    free_ = at(index).next;
  } else {
    if (used_ >= chunkCount_ * kChunk) addBlock();
    index = used_++;
  }
  Node& node = at(index);
  node.name = name & 0x7FFFFFFFU;
  node.hasAttributes = 0;
  node.ns = ns;
  node.type = 0;
  node.parent = parent;
  node.first = kNone;
  node.next = kNone;
  node.prev = kNone;
  node.textSize = 0;
  return index;
}

KFLNodeIndex KFLMessageTree::append(KFLNodeIndex parent, std::uint32_t name, std::uint32_t ns) {
  const KFLNodeIndex index = newNode(parent, name, ns);
  Node& above = at(parent);
  if (above.first == kNone) {
    above.first = index;
    at(index).prev = index;
    return index;
  }
  Node& first = at(above.first);
  at(index).prev = first.prev;
  at(first.prev).next = index;
  first.prev = index;
  return index;
}

KFLNodeIndex KFLMessageTree::insert(KFLNodeIndex parent, std::uint32_t name, std::uint32_t ns,
                                    KFLNodeIndex before) {
  if (before == kNone || at(before).parent != parent) return append(parent, name, ns);
  const KFLNodeIndex index = newNode(parent, name, ns);
  Node& node = at(index);
  Node& behind = at(before);
  noteChange();
  node.next = before;
  node.prev = behind.prev;
  behind.prev = index;
  if (at(parent).first == before) {
    at(parent).first = index;
  } else {
    at(node.prev).next = index;
  }
  return index;
}

void KFLMessageTree::unlink(KFLNodeIndex index) {
  noteChange();
  const Node& node = at(index);
  Node& above = at(node.parent);
  const KFLNodeIndex last = at(above.first).prev;
  if (above.first == index) {
    above.first = node.next;
    if (node.next != kNone) at(node.next).prev = last;
    return;
  }
  at(node.prev).next = node.next;
  at(node.next != kNone ? node.next : above.first).prev = node.prev;
}

void KFLMessageTree::drop(KFLNodeIndex index) noexcept {
  unlink(index);
  freeSubtree(index);
}

void KFLMessageTree::setApart(KFLNodeIndex index) {
  Node& node = at(index);
  node.parent = kNone;
  node.next = kNone;
  node.prev = index;
}

// Below the parent, behind a child of it; in front of all for kNone.
void KFLMessageTree::linkBehind(KFLNodeIndex index, KFLNodeIndex parent, KFLNodeIndex prev) {
  noteChange();
  Node& node = at(index);
  Node& above = at(parent);
  const KFLNodeIndex last = above.first == kNone ? index : at(above.first).prev;
  node.parent = parent;
  node.prev = prev == kNone ? last : prev;
  KFLNodeIndex& link = prev == kNone ? above.first : at(prev).next;
  node.next = std::exchange(link, index);
  at(node.next != kNone ? node.next : above.first).prev = index;
}

// Text nodes that have come to stand behind no element become a part of the text before them, which is the parent's own
// for kNone. Without memory for that, all stay.
void KFLMessageTree::joinTexts(KFLNodeIndex parent, KFLNodeIndex prev) noexcept {
  if (prev != kNone && (at(prev).parent != parent || !isText(prev))) return;
  try {
    for (;;) {
      const KFLNodeIndex next = prev == kNone ? at(parent).first : at(prev).next;
      if (next == kNone || !isText(next)) return;
      appendText(prev == kNone ? parent : prev, text(next));
      drop(next);
    }
  } catch (const std::bad_alloc&) {
    return;
  }
}

void KFLMessageTree::remove(KFLNodeIndex element) {
  const KFLNodeIndex parent = at(element).parent;
  const KFLNodeIndex prev = at(parent).first == element ? kNone : at(element).prev;
  if (!marks_.empty()) removed_.push_back({element, parent, prev, false});
  unlink(element);
  if (!marks_.empty()) return setApart(element);
  joinTexts(parent, prev);
  freeSubtree(element);
}

std::size_t KFLMessageTree::removeChildren(KFLNodeIndex parent, std::uint32_t name) {
  std::size_t removed = 0;
  for (KFLNodeIndex child = findChild(parent, name); child != kNone; ++removed) {
    const KFLNodeIndex next = findNext(child, name);
    remove(child);
    child = next;
  }
  return removed;
}

void KFLMessageTree::clear(KFLNodeIndex element) {
  if (!marks_.empty()) {
    removed_.reserve(std::max(removed_.size() + 1, removed_.capacity()));
    const KFLNodeIndex apart = newNode(kNone, 0, 0);
    swapAllContent(element, apart);
    removed_.push_back({apart, element, kNone, true});
    return;
  }
  Node& node = at(element);
  for (KFLNodeIndex child = std::exchange(node.first, kNone); child != kNone;) {
    freeSubtree(std::exchange(child, at(child).next));
  }
  dropText(node);
  if (node.hasAttributes) attributes_.erase(element);
  node.hasAttributes = 0;
}

void KFLMessageTree::freeSubtree(KFLNodeIndex top) {
  if (hasHolds_.load(std::memory_order_acquire) && setHeldApart(top)) return;
  KFLNodeIndex index = top;
  for (;;) {
    while (at(index).first != kNone)
      index = at(index).first;
    const KFLNodeIndex parent = at(index).parent;
    const KFLNodeIndex next = at(index).next;
    freeNode(index);
    if (index == top) return;
    index = next != kNone ? next : parent;
    if (next == kNone) at(parent).first = kNone;
  }
}

// --- Held elements --------------------------------------------------------------------------------------------------

void KFLMessageTree::hold(KFLNodeIndex element) {
  const KFLLockGuard guard(holdLock_);
  Hold& hold = holds_[element];
  hold.node = &at(element);
  ++hold.count;
  hasHolds_.store(true, std::memory_order_release);
}

void KFLMessageTree::release(KFLNodeIndex element) noexcept {
  const KFLLockGuard guard(holdLock_);
  const auto found = holds_.find(element);
  if (--found->second.count != 0) return;
  if (found->second.isApart) found->second.node->next = std::exchange(released_, element);
  holds_.erase(found);
  hasHolds_.store(!holds_.empty() || released_ != kNone, std::memory_order_release);
}

// Takes what is held out of a subtree that is about to be freed; true when that is the whole of it.
bool KFLMessageTree::setHeldApart(KFLNodeIndex top) {
  freeReleased();
  const KFLLockGuard guard(holdLock_);
  KFLNodeIndex index = top;
  for (;;) {
    const auto held = holds_.find(index);
    KFLNodeIndex next = held == holds_.end() ? at(index).first : kNone;
    for (KFLNodeIndex up = index; next == kNone && up != top; up = at(up).parent)
      next = at(up).next;
    if (held != holds_.end()) {
      held->second.isApart = true;
      if (index != top) unlink(index);
      setApart(index);
      if (index == top) return true;
    }
    if (next == kNone) return false;
    index = next;
  }
}

// What stood apart and is held no more.
void KFLMessageTree::freeReleased() {
  KFLNodeIndex element = kNone;
  {
    const KFLLockGuard guard(holdLock_);
    element = std::exchange(released_, kNone);
    hasHolds_.store(!holds_.empty(), std::memory_order_release);
  }
  while (element != kNone)
    freeSubtree(std::exchange(element, std::exchange(at(element).next, kNone)));
}

void KFLMessageTree::freeNode(KFLNodeIndex index) {
  noteChange();
  Node& node = at(index);
  dropText(node);
  if (node.hasAttributes) attributes_.erase(index);
  node.parent = kNone;
  node.next = free_;
  free_ = index;
}

// --- Undoing --------------------------------------------------------------------------------------------------------

// A node apart with the text of another; kNone for no text.
KFLNodeIndex KFLMessageTree::keepText(KFLNodeIndex index) {
  if (index == kNone || at(index).textSize == 0) return kNone;
  const KFLNodeIndex kept = newNode(kNone, kTextName, 0);
  try {
    setText(kept, text(index));
  } catch (...) {
    freeNode(kept);
    throw;
  }
  return kept;
}

void KFLMessageTree::giveTextBack(KFLNodeIndex index, KFLNodeIndex kept) noexcept {
  Node& node = at(index);
  dropText(node);
  if (kept == kNone) return;
  node.text = at(kept).text;
  node.textSize = std::exchange(at(kept).textSize, 0U);
}

KFLMessageTree::Mark KFLMessageTree::mark(KFLNodeIndex element, KFLNodeIndex before) {
  const Node& node = at(element);
  Mark mark;
  mark.element = element;
  mark.last = node.first == kNone ? kNone : at(node.first).prev;
  if (before != kNone && at(before).parent == element) {
    mark.before = before;
    mark.beforePrev = node.first == before ? kNone : at(before).prev;
  }
  mark.name = node.name;
  mark.ns = node.ns;
  mark.type = node.type;
  mark.hasAttributes = node.hasAttributes;
  mark.isRootOpen = isRootOpen_;
  mark.ownText = keepText(element);
  try {
    if (mark.last != kNone && isText(mark.last)) mark.lastText = keepText(mark.last);
    marks_.push_back(removed_.size());
  } catch (...) {
    freeTexts(mark);
    throw;
  }
  return mark;
}

void KFLMessageTree::undo(const Mark& mark) noexcept {
  const KFLNodeIndex element = mark.element;
  putBack(marks_.back());
  while (at(element).first != kNone && at(at(element).first).prev != mark.last)
    drop(at(at(element).first).prev);
  if (mark.before != kNone && at(mark.before).parent == element) {
    while (at(element).first != mark.before && at(mark.before).prev != mark.beforePrev)
      drop(at(mark.before).prev);
  }
  Node& node = at(element);
  node.name = mark.name & 0x7FFFFFFFU;
  node.ns = mark.ns;
  node.type = mark.type;
  isRootOpen_ = mark.isRootOpen;
  if (node.hasAttributes && !mark.hasAttributes) {
    attributes_.erase(element);
    node.hasAttributes = 0;
  }
  giveTextBack(element, mark.ownText);
  if (mark.lastText != kNone) giveTextBack(mark.last, mark.lastText);
  forget(mark);
}

void KFLMessageTree::forget(const Mark& mark) noexcept {
  freeTexts(mark);
  marks_.pop_back();
  if (marks_.empty() && !removed_.empty()) freeRemoved();
}

void KFLMessageTree::freeTexts(const Mark& mark) noexcept {
  if (mark.ownText != kNone) freeNode(mark.ownText);
  if (mark.lastText != kNone) freeNode(mark.lastText);
}

// The last one first: each then finds the elements before it where they stood, and what was added since between them.
void KFLMessageTree::putBack(std::size_t count) noexcept {
  for (; removed_.size() > count; removed_.pop_back()) {
    const Removed& last = removed_.back();
    if (last.isContent) {
      swapAllContent(last.parent, last.node);
      freeSubtree(last.node);
    } else {
      linkBehind(last.node, last.parent, last.prev);
    }
  }
}

void KFLMessageTree::freeRemoved() noexcept {
  for (const Removed& removed : removed_)
    if (!removed.isContent) joinTexts(removed.parent, removed.prev);
  for (const Removed& removed : removed_)
    freeSubtree(removed.node);
  removed_ = {};
}

KFLNodeIndex KFLMessageTree::copyApart(KFLNodeIndex element) {
  const KFLNodeIndex apart = newNode(kNone, 0, 0);
  try {
    copyContent(apart, *this, element);
  } catch (...) {
    freeSubtree(apart);
    throw;
  }
  return apart;
}

void KFLMessageTree::swapContent(KFLNodeIndex a, KFLNodeIndex b) noexcept {
  noteChange();
  std::swap(at(a).first, at(b).first);
  std::swap(at(a).text, at(b).text);
  std::swap(at(a).textSize, at(b).textSize);
  for (const KFLNodeIndex parent : {a, b}) {
    for (KFLNodeIndex child = at(parent).first; child != kNone; child = at(child).next)
      at(child).parent = parent;
  }
}

void KFLMessageTree::swapAllContent(KFLNodeIndex a, KFLNodeIndex b) noexcept {
  swapContent(a, b);
  auto ofA = attributes_.extract(a), ofB = attributes_.extract(b);
  for (auto* const attributes : {&ofA, &ofB}) {
    if (attributes->empty()) continue;
    attributes->key() = attributes == &ofA ? b : a;
    attributes_.insert(std::move(*attributes));
  }
  const std::uint32_t hasAttributes = at(a).hasAttributes;
  at(a).hasAttributes = at(b).hasAttributes;
  at(b).hasAttributes = hasAttributes & 1U;
}

// --- Texts and attributes -------------------------------------------------------------------------------------------

// Up to eight bytes, without a call.
static void copyShort(char* to, std::string_view text) {
  constexpr std::size_t kHalf = 4;
  if (text.size() >= kHalf) {
    std::memcpy(to, text.data(), kHalf);
    std::memcpy(to + text.size() - kHalf, text.data() + text.size() - kHalf, kHalf);
  } else {
    for (const char c : text)
      *to++ = c;
  }
}

void KFLMessageTree::setFirstText(KFLNodeIndex fresh, std::string_view text) {
  if (Node& node = at(fresh); text.size() <= Node::kInside) {
    std::memset(node.text.inside, 0, sizeof node.text.inside);
    copyShort(node.text.inside, text);
    node.textSize = static_cast<std::uint32_t>(text.size());
    return;
  }
  try {
    setText(fresh, text);
  } catch (...) {
    drop(fresh);
    throw;
  }
}

void KFLMessageTree::dropText(Node& node) {
  if (node.textSize > Node::kInside) arena_.give(node.text.outside, node.textSize);
  node.textSize = 0;
}

void KFLMessageTree::setSize(Node& node, std::size_t size) {
  node.textSize = size < Node::kHuge ? static_cast<std::uint32_t>(size) : Node::kHuge;
  if (size > KFLTextArena::kSmall) KFLTextArena::sizeOf(node.text.outside) = size;
}

// Whether the room of the node's text serves for one of this size, without wasting much of it.
bool KFLMessageTree::fitsInPlace(const Node& node, std::size_t size) const {
  const std::size_t present = node.textSize;
  if (present <= Node::kInside || size <= Node::kInside) return false;
  if ((present > KFLTextArena::kSmall) != (size > KFLTextArena::kSmall)) return false;
  const std::size_t capacity = KFLTextArena::capacityOf(node.text.outside, present);
  if (size > capacity) return false;
  return size > KFLTextArena::kSmall ? size > capacity / 4
                                     : KFLTextArena::capacityOf(nullptr, size) == capacity;
}

void KFLMessageTree::setNodeText(Node& node, std::string_view text) {
  if (text.size() <= Node::kInside) {
    char inside[Node::kInside] = {};
    copyShort(inside, text);
    dropText(node);
    std::memcpy(node.text.inside, inside, sizeof inside);
    node.textSize = static_cast<std::uint32_t>(text.size());
    return;
  }
  if (fitsInPlace(node, text.size())) {
    std::memmove(node.text.outside, text.data(), text.size());
  } else {
    char* const fresh = arena_.take(text.size());
    text.copy(fresh, text.size());
    dropText(node);
    node.text.outside = fresh;
  }
  setSize(node, text.size());
}

void KFLMessageTree::appendText(KFLNodeIndex index, std::string_view text) {
  Node& node = at(index);
  const std::string_view present = textOf(node);
  const std::size_t size = present.size() + text.size();
  if (size <= KFLTextArena::kSmall) return setText(index, std::string(present).append(text));
  // Long texts grow by doubling, so that many pieces cost no more than their sum.
  if (!fitsInPlace(node, size)) {
    char* const fresh = arena_.take(std::max(size, 2 * present.size()));
    present.copy(fresh, present.size());
    text.copy(fresh + present.size(), text.size());
    dropText(node);
    node.text.outside = fresh;
  } else {
    std::memmove(node.text.outside + present.size(), text.data(), text.size());
  }
  setSize(node, size);
}

void KFLMessageTree::appendMixedText(KFLNodeIndex element, std::string_view text) {
  if (text.empty()) return;
  const KFLNodeIndex first = at(element).first;
  if (first == kNone) return appendText(element, text);
  const KFLNodeIndex last = at(first).prev;
  if (isText(last)) return appendText(last, text);
  if (!isBlankText(text)) setFirstText(append(element, kTextName, 0), text);
}

const KFLMessageAttributes* KFLMessageTree::attributes(KFLNodeIndex element) const {
  if (!at(element).hasAttributes) return nullptr;
  const auto found = attributes_.find(element);
  return found == attributes_.end() ? nullptr : &found->second;
}

void KFLMessageTree::setAttributes(KFLNodeIndex element, KFLMessageAttributes attributes) {
  if (attributes.empty()) return;
  attributes_[element] = std::move(attributes);
  at(element).hasAttributes = 1;
}

// --- Whole trees ----------------------------------------------------------------------------------------------------

std::size_t KFLMessageTree::memoryUsed() const {
  std::size_t bytes = sizeof *this + chunkCount_ * kChunk * sizeof(Node) + chunkRoom_ * sizeof(Node*) +
                      blocks_.capacity() * sizeof(Node*) + removed_.capacity() * sizeof(Removed) +
                      marks_.capacity() * sizeof(std::size_t) + arena_.memoryUsed() + names_.memoryUsed() +
                      namespaces_.memoryUsed() + types_.memoryUsed() +
                      attributes_.bucket_count() * sizeof(void*);
  for (const auto& [element, attributes] : attributes_) {
    bytes += sizeof(element) + sizeof(attributes) + 2 * sizeof(void*) +
             attributes.capacity() * sizeof(KFLMessageAttribute);
    for (const KFLMessageAttribute& attribute : attributes)
      bytes += attribute.value.capacity();
  }
  if (const std::unique_lock<KFLLock> guard(countsLock_, std::try_to_lock); guard)
    bytes += counts_.memoryUsed();
  return bytes;
}

void intrusive_ptr_add_ref(KFLMessageTree* tree) {
  tree->addReference();
}

void intrusive_ptr_release(KFLMessageTree* tree) {
  if (tree->dropReference()) delete tree;
}

}  // namespace KFL
