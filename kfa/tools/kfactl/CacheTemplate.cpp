#include "CacheTemplate.h"

#include "Elements.h"
#include "MessageCheck.h"
#include "RecordView.h"
#include "Trouble.h"

namespace kfactl {

namespace {

constexpr const char* kRootName = KFA::KFATemplateObject::kElement;

[[noreturn]] void refuse(const Input& input, const ElementFault& fault) {
  throw Trouble(elementText(input.name, lineOfElement(input.text, fault.index), fault.path, fault.text));
}

}  // namespace

KFA::KFATemplateObject readTemplate(const Input& input) {
  KFL::KFLMessage message;
  parseMessage(input, message);
  const KFL::KFLMessageIterator root = message.getIterator();
  const std::string path = "/" + std::string(root.getName());
  if (root.getName() != kRootName)
    refuse(input, {path, 0, std::string("a root named ") + kRootName + " is wanted"});
  KFA::KFATemplateObject object;
  if (KFA::KFATemplateObject::Reader()(root, object) == 0) return object;
  const ElementFault fault = findFault(root, fieldTableOf("KFATemplateObject"), FaultScope::Required);
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
