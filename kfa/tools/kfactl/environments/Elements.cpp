// SPDX-License-Identifier: Apache-2.0
#include "environments/Elements.h"

#include <algorithm>
#include <functional>

namespace kfactl {

namespace {

std::uint64_t mix(std::uint64_t hash, std::uint64_t value) {
  return (hash ^ value) * 0x9e3779b97f4a7c15U + (hash >> 29);
}

std::uint64_t mix(std::uint64_t hash, std::string_view text) {
  return mix(hash, std::hash<std::string_view>()(text));
}

std::string attributesOf(const KFL::KFLMessageIterator& it) {
  std::string all;
  std::string uri;
  std::string name;
  std::string value;
  for (std::size_t i = 0; it.getAttribute(i, uri, name, value) == 0; ++i)
    all.append(" ").append(name).append("=\"").append(value).append("\"");
  return all;
}

}  // namespace

// The cursor walks by itself, so that no depth of nesting is a depth of calls, and comes back to the root.
Elements::Elements(const KFL::KFLMessageIterator& it) {
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
}

void Elements::add(const KFL::KFLMessageIterator& it, std::size_t parent, std::size_t previous) {
  const std::size_t index = elements_.size();
  Element& element = elements_.emplace_back();
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
void Elements::hashAll() {
  for (std::size_t i = elements_.size(); i-- > 0;) {
    Element& element = elements_[i];
    std::uint64_t hash = mix(mix(mix(mix(1, element.name), element.text), element.type), element.attributes);
    for (std::size_t child = element.firstChild; child != kNoElement; child = elements_[child].nextSibling)
      hash = mix(hash, elements_[child].hash);
    element.hash = hash;
  }
}

std::string Elements::path(std::size_t index) const {
  std::vector<std::string_view> names;
  for (; index != kNoElement; index = elements_[index].parent)
    names.push_back(elements_[index].name);
  std::string path;
  for (auto name = names.rbegin(); name != names.rend(); ++name)
    path.append("/").append(*name);
  return path;
}

std::size_t lineOfElement(std::string_view xml, std::size_t index) {
  // The text was parsed, so what stands behind a "<" tells start tags from all else.
  constexpr std::string_view kSkipped[][2] = {
      {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}, {"</", ">"}};
  std::size_t at = xml.find('<');
  while (at != std::string_view::npos) {
    std::size_t end = at + 1;
    const std::string_view rest = xml.substr(at);
    const auto* const skipped = std::find_if(std::begin(kSkipped), std::end(kSkipped),
                                             [&](const auto& pair) { return rest.starts_with(pair[0]); });
    if (skipped != std::end(kSkipped))
      end = std::min(xml.find((*skipped)[1], at + (*skipped)[0].size()), xml.size());
    else if (index-- == 0)
      break;
    at = xml.find('<', end);
  }
  const std::size_t length = std::min(at, xml.size());
  return 1 + static_cast<std::size_t>(
                 std::count(xml.begin(), xml.begin() + static_cast<std::ptrdiff_t>(length), '\n'));
}

}  // namespace kfactl
