// SPDX-License-Identifier: Apache-2.0
// Access files: one that is refused names its line and leaves the rights as they were; one that is read gives nothing to
// a name that stands nowhere in it.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <KFARemote/KFARemoteAccess.h>
#include <KFLCommon/KFLError.h>

namespace {

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", law, KFL::getErrorMessage().c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const KFA::KFAManagerOperation& list = *KFA::findManagerOperation("environments", "list");
  KFA::KFARemoteRights rights;
  require(rights.parse("known all\n", "access") == 0, "a plain line is read");
  const int result = rights.parse(text, "access");
  require(result == 0 || KFL::getErrorMessage().starts_with("access:"), "a refusal names the line");
  require(result == 0 || rights.allow({"known"}, list, KFL::KFLEID()), "a refused text changes nothing");
  const std::string stranger = text.find("stranger") == std::string::npos ? "stranger" : "";
  require(stranger.empty() || !rights.allow({stranger}, list, KFL::KFLEID()), "who is not named is denied");
  return 0;
}
