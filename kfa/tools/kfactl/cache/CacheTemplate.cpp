// SPDX-License-Identifier: Apache-2.0
#include "cache/CacheTemplate.h"

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessageCheck.h>

#include "message/MessageCheck.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

constexpr const char* kRootName = KFA::KFATemplateObject::kElement;
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
  if (root.getName() != kRootName)
    refuseElement(input, {root.getPath(), 0, std::string("a root named ") + kRootName + " is wanted"});
  KFA::KFATemplateObject object;
  if (KFA::KFATemplateObject::Reader()(root, object) == 0) return object;
  const KFL::KFLMessageFindings faults =
      KFL::findFaults(root, &KFA::KFATemplateObject::fields(), KFL::KFLFaultScope::Required);
  refuseElement(input, faults.empty() ? KFL::KFLMessageFinding{root.getPath(), 0, KFL::getErrorMessage()}
                                      : faults.front());
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
