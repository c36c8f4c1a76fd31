// SPDX-License-Identifier: Apache-2.0
#include "KFLMessageElements.h"

#include <functional>
#include <unordered_map>
#include <utility>

namespace KFL {

namespace {

std::uint64_t mix(std::uint64_t hash, std::uint64_t value) {
  return (hash ^ value) * 0x9e3779b97f4a7c15U + (hash >> 29);
}

std::uint64_t mix(std::uint64_t hash, std::string_view text) {
  return mix(hash, std::hash<std::string_view>()(text));
}

std::string attributesOf(const KFLMessageIterator& it) {
  std::string all;
  std::string uri;
  std::string name;
  std::string value;
  for (std::size_t i = 0; it.getAttribute(i, uri, name, value) == 0; ++i)
    all.append(" ").append(name).append("=\"").append(value).append("\"");
  return all;
}

}  // namespace

// The cursor walks by itself, so that no depth of nesting is a depth of calls.
KFLMessageElements::KFLMessageElements(const KFLMessageIterator& top) : top_(top.getPath()) {
  const KFLMessageIterator it(top);
  add(it, kNoElement, kNoElement);
  std::size_t at = 0;
  for (;;) {
    const std::size_t made = elements_.size();
    if (it.firstChild() == 0) {
      add(it, at, kNoElement);
      at = made;
      continue;
    }
    while (at != 0 && it.nextSibling() != 0) {
      it.leaveChild();
      at = elements_[at].parent;
    }
    if (at == 0) break;
    add(it, elements_[at].parent, at);
    at = made;
  }
  hashAll();
  for (std::size_t i = 0; i < elements_.size(); ++i)
    numberChildren(i);
}

void KFLMessageElements::add(const KFLMessageIterator& it, std::size_t parent, std::size_t previous) {
  const std::size_t index = elements_.size();
  KFLMessageElement& element = elements_.emplace_back();
  element.name = it.getName();
  element.text = it.getText();
  element.type = it.getTypeTag();
  element.attributes = attributesOf(it);
  element.parent = parent;
  element.cursor = it;
  if (previous != kNoElement)
    elements_[previous].nextSibling = index;
  else if (parent != kNoElement)
    elements_[parent].firstChild = index;
}

// Children stand behind their parents, so a walk from the end meets them first.
void KFLMessageElements::hashAll() {
  for (std::size_t i = elements_.size(); i-- > 0;) {
    KFLMessageElement& element = elements_[i];
    std::uint64_t hash = mix(mix(mix(mix(1, element.name), element.text), element.type), element.attributes);
    for (std::size_t child = element.firstChild; child != kNoElement; child = elements_[child].nextSibling)
      hash = mix(hash, elements_[child].hash);
    element.hash = hash;
  }
}

void KFLMessageElements::numberChildren(std::size_t parent) {
  const std::size_t first = elements_[parent].firstChild;
  if (first == kNoElement || elements_[first].nextSibling == kNoElement) return;
  std::unordered_map<std::string_view, std::pair<std::size_t, std::size_t>> known;  // how many, and the first
  for (std::size_t child = first; child != kNoElement; child = elements_[child].nextSibling) {
    auto& [count, firstOfName] = known.try_emplace(elements_[child].name, 0, child).first->second;
    elements_[child].position = ++count;
    elements_[child].isOneOfMany = count > 1;
    if (count == 2) elements_[firstOfName].isOneOfMany = true;
  }
}

std::string KFLMessageElements::path(std::size_t index) const {
  std::vector<std::size_t> steps;
  for (; index != 0; index = elements_[index].parent)
    steps.push_back(index);
  std::string path = top_;
  for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
    const KFLMessageElement& element = elements_[*step];
    path.append("/").append(element.name);
    if (element.isOneOfMany) path.append("[").append(std::to_string(element.position)).append("]");
  }
  return path;
}

// Elements are in document order: those below end where the next one begins that is not below.
std::size_t KFLMessageElements::countBelow(std::size_t index) const {
  std::size_t at = index;
  while (at != kNoElement && elements_[at].nextSibling == kNoElement)
    at = elements_[at].parent;
  const std::size_t end = at == kNoElement ? elements_.size() : elements_[at].nextSibling;
  return end - index - 1;
}

}  // namespace KFL
