// SPDX-License-Identifier: Apache-2.0
#include "KFLPrint.h"

#include <array>
#include <clocale>
#include <cstddef>
#include <cstdio>

namespace KFL {

namespace {

// Puts the thread into the C locale for as long as it lives.
class CLocaleScope {
 public:
  CLocaleScope() : previous_(uselocale(cLocale())) {}
  ~CLocaleScope() { uselocale(previous_); }
  CLocaleScope(const CLocaleScope&) = delete;
  CLocaleScope& operator=(const CLocaleScope&) = delete;

 private:
  static locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
  }

  locale_t previous_;
};

}  // namespace

std::string printText(const char* format, va_list arguments) {
  const CLocaleScope scope;
  std::array<char, 512> brief;
  va_list again;
  va_copy(again, arguments);
  // The analyzer loses sight of a copied va_list.
  const int length =
      std::vsnprintf(brief.data(), brief.size(), format, again);  // NOLINT(clang-analyzer-valist.*)
  va_end(again);
  if (length < 0) return format;
  std::string text(static_cast<std::size_t>(length), '\0');
  if (text.size() < brief.size()) {
    text.assign(brief.data(), text.size());
  } else {
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  }
  return text;
}

}  // namespace KFL
