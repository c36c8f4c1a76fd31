// SPDX-License-Identifier: Apache-2.0
// Knows nothing of the library but its file name: loads it, shows what it has registered with the core, and shows that
// unloading takes all of it away, again and again.
//   loader [LIBRARY]
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <vector>

#include <KFLFunctionality/KFLEnvFactory.h>
#include <KFLMessage/KFLDerivedParsers.h>
#include <KFLMessage/KFLRecordRegistry.h>

namespace {

bool knowsEnvironmentType() {
  return KFL::KFLEnvFactory::getInstance()->getFactory("kelvarium") != nullptr;
}

bool knowsTag(const std::string& tag) {
  for (const KFL::KFLDerivedTypeInfo& type : KFL::listDerivedTypes()) {
    if (type.tag == tag) return true;
  }
  return false;
}

// How much the registries hold; the core brings a little of its own.
struct Holdings {
  std::size_t types = KFL::listDerivedTypes().size();
  std::size_t records = KFL::listRecordTypes().size();

  bool operator==(const Holdings&) const = default;
};

bool holdsLibrary(const Holdings& core) {
  const Holdings now;
  return knowsEnvironmentType() && knowsTag("venv_configType") && knowsTag("envType") &&
         knowsTag("net_vethType") && now.types > core.types && now.records > core.records;
}
bool holdsCoreAlone(const Holdings& core) {
  return !knowsEnvironmentType() && !knowsTag("venv_configType") && Holdings() == core;
}

void printTypes() {
  for (const KFL::KFLDerivedTypeInfo& type : KFL::listDerivedTypes()) {
    std::printf("  %s: %s is a %s\n", type.tag.c_str(), type.derived.c_str(), type.base.c_str());
  }
  std::printf("  environment type kelvarium: %s\n", knowsEnvironmentType() ? "registered" : "unknown");
}

int loadAndUnload(const char* file, const Holdings& core, bool print) {
  void* library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "loader: %s\n", dlerror());
    return 1;
  }
  const bool came = holdsLibrary(core);
  if (print) printTypes();
  dlclose(library);
  const bool went = holdsCoreAlone(core);
  if (!came) std::fprintf(stderr, "loader: %s did not register its types\n", file);
  if (!went) std::fprintf(stderr, "loader: %s left types behind\n", file);
  return came && went ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const char* file = argc > 1 ? argv[1] : "libKFAFunctionality.so";
  const Holdings core;
  if (!holdsCoreAlone(core)) {
    std::fprintf(stderr, "loader: the types are there before %s is loaded\n", file);
    return 1;
  }
  constexpr int kRounds = 100;
  for (int round = 0; round < kRounds; ++round) {
    if (loadAndUnload(file, core, round == 0) != 0) return 1;
  }
  std::printf("loaded and unloaded %d times\n", kRounds);
  return 0;
}
