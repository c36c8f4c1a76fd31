// SPDX-License-Identifier: Apache-2.0
// Calls of managers that come as messages: the first line names manager and operation, the rest are the arguments. A
// refusal has a text, a result is of parts that can be read; and what reads as base64 is written as the same text.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <KFAFunctionality/access/KFAManagerOperations.h>
#include <KFAFunctionality/access/KFAMemoryNode.h>
#include <KFLCommon/KFLBase64.h>
#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

namespace {

using namespace KFA;

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", law, KFL::getErrorMessage().c_str());
  std::abort();
}

KFAMemoryNode::Content contentOfNode() {
  KFAMemoryNode::Content node;
  node.environments[KFLEID("11111111-0000-4000-8000-000000000001")].isRunning = true;
  node.samples["basic"] = KFAEnvConfig();
  return node;
}

void call(const KFAManagerOperation& operation, const std::string& text) {
  KFLMessage arguments;
  if (arguments.parse(text) != 0) return;
  const KFAMemoryNode node(contentOfNode());
  KFALibFunctionality managers;
  require(node.registerManagers(managers, kTechnology) == 0, "a node can be registered");
  KFLEID eid;
  KFL::setErrorMessage("%s", "");
  const int found = getEnvironmentOfCall(operation, arguments, eid);
  const int code =
      answerManagerCall(operation, managers, nullptr, kTechnology, arguments, [](const auto& part) {
        KFLMessage message;
        require(message.parse(part) == 0, "a part of a result can be read");
        return 0;
      });
  require(code >= 0 || !KFL::getErrorMessage().empty(), "a refusal has a text");
  require(found == 0 || code < 0, "a call about nobody is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string bytes;
  if (KFL::fromBase64(text, bytes) == 0) require(KFL::toBase64(bytes) == text, "one value has one text");
  const std::string first = text.substr(0, text.find('\n'));
  const std::size_t dot = first.find('.');
  if (dot == std::string::npos || first.size() == text.size()) return 0;
  const auto* const operation = findManagerOperation(first.substr(0, dot), first.substr(dot + 1));
  if (operation != nullptr) call(*operation, text.substr(first.size() + 1));
  return 0;
}
