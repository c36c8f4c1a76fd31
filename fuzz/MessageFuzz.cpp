// SPDX-License-Identifier: Apache-2.0
// Message texts, and packed ones: what parses prints, and the print parses again to an equal tree, compact, indented and
// packed. Taking such a tree apart and together again leaves it whole.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

namespace {

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", law, KFL::getErrorMessage().c_str());
  std::abort();
}

void requireEqual(const std::string& text, const KFL::KFLMessage& message, const char* law) {
  KFL::KFLMessage again;
  require(again.parse(text) == 0, law);
  require(again.getIterator().isEqualTree(message.getIterator()), law);
}

// Removes every other child of the root and copies the root into one of those that stay.
void change(KFL::KFLMessage& message) {
  KFL::KFLMessageIterator it = message.getIterator();
  for (int more = it.firstChild(); more == 0; more = it.nextSibling()) {
    KFL::KFLMessageIterator next = it;
    if (next.nextSibling() != 0) break;
    it.removeCurrent();
    it = next;
  }
  require(it.copyContent(message.getIterator()) == 0, "a tree is copied into its own branch");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KFL::KFLMessage message;
  const std::string input(reinterpret_cast<const char*>(data), size);
  const bool isPacked = KFL::KFLMessage::isPacked(input);
  if ((isPacked ? message.unpack(input) : message.parse(input)) != 0) {
    require(KFL::getErrorMessage().starts_with(isPacked ? "byte " : "line "), "a refusal names its place");
    return 0;
  }
  std::string text;
  require(message.print(text) == 0, "what parses prints");
  requireEqual(text, message, "the print parses to an equal tree");
  requireEqual(message.toPrettyString(), message, "the indented print parses to an equal tree");
  KFL::KFLMessage unpacked;
  require(message.pack(text) == 0 && unpacked.unpack(text) == 0, "what prints packs and unpacks");
  require(unpacked.getIterator().isEqualTree(message.getIterator()), "the packed form is an equal tree");

  const KFL::KFLMessage copy = message;
  require(copy.getIterator().isEqualTree(message.getIterator()), "a copy is equal");
  change(message);
  KFL::KFLMessage changed;
  require(message.print(text) == 0, "a changed tree prints");
  // Copying adds levels, which a text may have only so many of.
  if (changed.parse(text) == 0) {
    require(changed.getIterator().isEqualTree(message.getIterator()), "a changed tree is printed whole");
  }
  requireEqual(copy.toString(), copy, "a copy is independent");
  return 0;
}
