// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLClassName.h>

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

namespace KFL {

std::string classNameOf(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  constexpr int kNoMemory = -1;
  if (status == kNoMemory) throw std::bad_alloc();
  return demangled != nullptr ? demangled.get() : type.name();
}

std::string shortClassNameOf(const std::type_info& type) {
  std::string name = classNameOf(type);
  for (const std::string_view prefix : {"KFL::", "KFA::"}) {
    for (std::size_t at = name.find(prefix); at != std::string::npos; at = name.find(prefix, at)) {
      name.erase(at, prefix.size());
    }
  }
  return name;
}

}  // namespace KFL
