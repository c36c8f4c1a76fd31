// SPDX-License-Identifier: Apache-2.0
// Copying, comparing and locating subtrees. All of it walks by parent and sibling links: depth costs nothing.
#include <algorithm>
#include <mutex>
#include <string>

#include <KFLMessage/KFLMessageTree.h>
#include <KFLMessage/KFLXMLReader.h>

namespace KFL {

// The numbers of one tree's names, namespaces and types in another tree. Each is looked up once.
template <class Target>
class KFLMessageTree::Translation {
 public:
  // What a number is that the other tree does not have.
  static constexpr std::uint32_t kAbsent = 0xFFFFFFFFU;

  Translation(const KFLMessageTree& from, Target& to) : from_(from), to_(to), same_(&from == &to) {}

  std::uint32_t name(std::uint32_t number) {
    if (same_ || number <= KFLMessageTree::kLastFixedName) return number;
    return known(names_, number - KFLMessageTree::kLastFixedName,
                 [&] { return nameIn(to_, from_.nameText(number)); });
  }
  std::uint32_t ns(std::uint32_t number) {
    if (same_ || number == 0) return number;
    return known(namespaces_, number, [&] { return namespaceIn(to_, from_.namespaceText(number)); });
  }
  std::uint32_t type(std::uint32_t number) {
    if (same_ || number == 0) return number;
    return known(types_, number, [&] {
      const KFLMessageTree::Type type = from_.type(number);
      return typeIn(to_, {ns(type.ns), name(type.tag)});
    });
  }

 private:
  static std::uint32_t nameIn(KFLMessageTree& tree, std::string_view text) { return tree.internName(text); }
  static std::uint32_t nameIn(const KFLMessageTree& tree, std::string_view text) {
    return found(tree.findName(text));
  }
  static std::uint32_t namespaceIn(KFLMessageTree& tree, std::string_view text) {
    return tree.internNamespace(text);
  }
  static std::uint32_t namespaceIn(const KFLMessageTree& tree, std::string_view text) {
    return found(tree.findNamespace(text));
  }
  static std::uint32_t typeIn(KFLMessageTree& tree, KFLMessageTree::Type type) {
    return tree.internType(type);
  }
  static std::uint32_t typeIn(const KFLMessageTree& tree, KFLMessageTree::Type type) {
    return found(tree.findType(type));
  }
  static std::uint32_t found(std::uint32_t number) { return number == 0 ? kAbsent : number; }

  template <class Find>
  std::uint32_t known(std::vector<std::uint32_t>& numbers, std::uint32_t number, Find find) {
    if (number >= numbers.size()) numbers.resize(std::max<std::size_t>(number + 1, 2 * numbers.size()));
    if (numbers[number] == 0) numbers[number] = find();
    return numbers[number];
  }

  const KFLMessageTree& from_;
  Target& to_;
  bool same_;
  std::vector<std::uint32_t> names_;
  std::vector<std::uint32_t> namespaces_;
  std::vector<std::uint32_t> types_;
};

bool KFLMessageTree::isWithin(KFLNodeIndex element, KFLNodeIndex top) const {
  while (element != top && element != kNone)
    element = at(element).parent;
  return element == top;
}

void KFLMessageTree::copyAttributes(KFLNodeIndex element, const KFLMessageTree& from, KFLNodeIndex source,
                                    Translation<KFLMessageTree>& translation) {
  const KFLMessageAttributes* const attributes = from.attributes(source);
  if (attributes == nullptr) return;
  KFLMessageAttributes merged;
  if (const KFLMessageAttributes* const own = this->attributes(element); own != nullptr) merged = *own;
  for (const KFLMessageAttribute& attribute : *attributes) {
    KFLMessageAttribute copy{translation.ns(attribute.ns), translation.name(attribute.name), attribute.value};
    const auto isSame = [&copy](const auto& other) { return other.ns == copy.ns && other.name == copy.name; };
    if (!at(element).hasAttributes || std::none_of(merged.begin(), merged.end(), isSame))
      merged.push_back(std::move(copy));
  }
  setAttributes(element, std::move(merged));
}

void KFLMessageTree::copyContent(KFLNodeIndex element, const KFLMessageTree& from, KFLNodeIndex source) {
  if (&from == this && isWithin(element, source)) {
    KFLMessageTree apart;
    apart.copyContent(kRoot, from, source);
    return copyContent(element, apart, kRoot);
  }
  const Mark before = mark(element, kNone);
  try {
    copyBelow(element, from, source);
  } catch (...) {
    undo(before);
    throw;
  }
  forget(before);
}

void KFLMessageTree::copyBelow(KFLNodeIndex element, const KFLMessageTree& from, KFLNodeIndex source) {
  Translation<KFLMessageTree> translation(from, *this);
  if (at(element).type == 0) at(element).type = translation.type(from.at(source).type);
  appendMixedText(element, from.text(source));

  KFLNodeIndex original = source;
  KFLNodeIndex parent = element;
  KFLNodeIndex copy = element;
  for (;;) {
    if (from.at(original).first != kNone) {
      original = from.at(original).first;
      parent = copy;
    } else {
      while (original != source && from.at(original).next == kNone) {
        original = from.at(original).parent;
        parent = at(parent).parent;
      }
      // Last of all: it is done whole or not at all.
      if (original == source) return copyAttributes(element, from, source, translation);
      original = from.at(original).next;
    }
    const Node& node = from.at(original);
    copy = append(parent, translation.name(node.name), translation.ns(node.ns));
    at(copy).type = translation.type(node.type);
    if (node.textSize != 0) setText(copy, textOf(node));
    if (node.hasAttributes) copyAttributes(copy, from, original, translation);
  }
}

// A blank text means nothing once there are elements beside it: no text form keeps it.
static std::string_view meaningOf(const KFLMessageNode& node) {
  const std::string_view text = KFLMessageTree::textOf(node);
  return node.first != KFLMessageTree::kNone && isBlankText(text) ? std::string_view() : text;
}

bool KFLMessageTree::isEqual(KFLNodeIndex element, const KFLMessageTree& other,
                             KFLNodeIndex otherElement) const {
  if (effectiveName(element) != other.effectiveName(otherElement)) return false;
  if (namespaceText(effectiveNamespace(element)) !=
      other.namespaceText(other.effectiveNamespace(otherElement)))
    return false;
  Translation<const KFLMessageTree> translation(*this, other);
  const auto isSameNode = [&](KFLNodeIndex a, KFLNodeIndex b) {
    const Node& x = at(a);
    const Node& y = other.at(b);
    if ((x.first == kNone) != (y.first == kNone) || x.hasAttributes != y.hasAttributes) return false;
    if (meaningOf(x) != meaningOf(y) || translation.type(x.type) != y.type) return false;
    if (a != element && (translation.name(x.name) != y.name || translation.ns(x.ns) != y.ns)) return false;
    if (!x.hasAttributes) return true;
    const auto isSameAttribute = [&](const KFLMessageAttribute& p, const KFLMessageAttribute& q) {
      return translation.ns(p.ns) == q.ns && translation.name(p.name) == q.name && p.value == q.value;
    };
    const KFLMessageAttributes& own = *attributes(a);
    const KFLMessageAttributes& others = *other.attributes(b);
    return std::equal(own.begin(), own.end(), others.begin(), others.end(), isSameAttribute);
  };

  KFLNodeIndex a = element;
  KFLNodeIndex b = otherElement;
  for (;;) {
    if (!isSameNode(a, b)) return false;
    if (at(a).first != kNone) {
      a = at(a).first;
      b = other.at(b).first;
      continue;
    }
    while (a != element && at(a).next == kNone) {
      if (other.at(b).next != kNone) return false;
      a = at(a).parent;
      b = other.at(b).parent;
    }
    if (a == element) return true;
    a = at(a).next;
    b = other.at(b).next;
    if (b == kNone) return false;
  }
}

// Waits for no other thread, which the process may have lost in a fork.
KFLMessageTree::Place KFLMessageTree::placeOf(KFLNodeIndex element) const {
  Place place;
  std::uint32_t steps = 0;
  const KFLNodeIndex parent = at(element).parent;
  KFLNodeIndex sibling = parent == kNone ? kNone : at(parent).first;
  for (; sibling != kNone; sibling = at(sibling).next) {
    if (++steps == kManySteps) {
      const std::unique_lock<KFLLock> guard(countsLock_, std::try_to_lock);
      if (guard) return placeAmongMany(element);
    }
    if (at(sibling).name == at(element).name) ++place.count;
    if (sibling == element) place.position = place.count;
  }
  return place;
}

// Who reads a message from outside may ask for the place of each child, so no child is walked over more than a few times
// for a name.
KFLMessageTree::Place KFLMessageTree::placeAmongMany(KFLNodeIndex element) const {
  const std::uint32_t name = at(element).name;
  const KFLNodeIndex parent = at(element).parent;
  if (counts_.changes != changes_) {
    counts_.walks.clear();
    counts_.noted.clear();
    counts_.changes = changes_;
  }
  Counts::Walk& walk = counts_.walks[countKey(parent, name)];
  KFLNodeIndex next = walk.last == kNone ? at(parent).first : at(walk.last).next;
  for (; next != kNone; next = at(next).next) {
    const std::uint32_t count = walk.count + (at(next).name == name ? 1 : 0);
    if (walk.steps % kManySteps == 0) counts_.noted[countKey(next, name)] = count;
    walk = {next, walk.steps + 1, count};
  }
  std::uint32_t behind = 0;
  auto noted = counts_.noted.find(countKey(element, name));
  for (KFLNodeIndex sibling = element; noted == counts_.noted.end() && sibling != at(parent).first;) {
    if (at(sibling).name == name) ++behind;
    sibling = at(sibling).prev;
    noted = counts_.noted.find(countKey(sibling, name));
  }
  return {behind + (noted == counts_.noted.end() ? 0 : noted->second), walk.count};
}

std::string KFLMessageTree::path(KFLNodeIndex element) const {
  std::vector<std::string> steps;
  for (KFLNodeIndex index = element; index != kNone; index = at(index).parent) {
    if (isText(index)) continue;
    std::string step = "/" + std::string(effectiveName(index));
    const Place place = placeOf(index);
    if (place.count > 1) step += "[" + std::to_string(place.position) + "]";
    steps.push_back(std::move(step));
  }
  std::string path;
  for (auto step = steps.rbegin(); step != steps.rend(); ++step)
    path += *step;
  return path;
}

}  // namespace KFL
