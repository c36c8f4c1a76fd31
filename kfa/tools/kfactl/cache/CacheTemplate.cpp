// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheTemplate.h"

#include "environments/Elements.h"
#include "environments/RecordView.h"
#include "message/MessageCheck.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

constexpr const char* kRootName = KFA::KFATemplateObject::kElement;
constexpr const char* kPackageName = "item";

// What keeps the package from being read, which is an element of its own.
ElementFault faultInPackage(const KFL::KFLMessageIterator& root) {
  const Elements elements(root);
  for (std::size_t i = elements[0].firstChild; i != kNoElement; i = elements[i].nextSibling) {
    if (elements[i].name != kPackageName) continue;
    ElementFault fault =
        findFault(elements[i].cursor, fieldTableOf("KFAPackageKFTemplate"), FaultScope::Required);
    if (!fault.path.empty()) fault = {elements.path(0) + fault.path, i + fault.index, fault.text};
    return fault;
  }
  return {};
}

[[noreturn]] void refuse(const Input& input, const ElementFault& fault) {
  throw Trouble(elementText(input.name, lineOfElement(input.text, fault.index), fault.path, fault.text));
}

}  // namespace

Cache openCache(const std::string& path) {
  Cache cache(new KFA::KFATemplateCachePrototype(path));
  must(cache->initialize(true, false));
  return cache;
}

KFA::KFATemplateObject readTemplate(const Input& input) {
  KFL::KFLMessage message;
  parseMessage(input, message);
  const KFL::KFLMessageIterator root = message.getIterator();
  const std::string path = "/" + std::string(root.getName());
  if (root.getName() != kRootName)
    refuse(input, {path, 0, std::string("a root named ") + kRootName + " is wanted"});
  KFA::KFATemplateObject object;
  if (KFA::KFATemplateObject::Reader()(root, object) == 0) return object;
  ElementFault fault = findFault(root, fieldTableOf("KFATemplateObject"), FaultScope::Required);
  if (fault.path.empty()) fault = faultInPackage(root);
  refuse(input, fault.path.empty() ? ElementFault{path, 0, "cannot be read as a template object"} : fault);
}

std::string templateFault(const Input& input) {
  try {
    readTemplate(input);
  } catch (const Trouble& trouble) {
    return trouble.what();
  }
  return {};
}

}  // namespace kfactl
