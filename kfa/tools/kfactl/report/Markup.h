// SPDX-License-Identifier: Apache-2.0
// A page in the making: markup that stands in this program, and texts that come from anywhere.
//
// The types keep the two apart. Only a literal becomes markup; whatever else is added is a text, and loses every
// character that means something to a browser.
#ifndef KFACTL_MARKUP_H
#define KFACTL_MARKUP_H

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace kfactl {

class Markup {
 public:
  // A piece of markup, known when the program is compiled.
  class Literal {
   public:
    template <std::size_t Length>
    consteval Literal(const char (&text)[Length]) : text_(text, Length - 1) {}
    constexpr std::string_view get() const { return text_; }

   private:
    std::string_view text_;
  };

  Markup& html(Literal markup) {
    page_ += markup.get();
    return *this;
  }
  // A text, in an element or between the quotes of an attribute. Characters that cannot be shown become \xNN.
  Markup& text(std::string_view text);
  Markup& text(std::integral auto number) {
    page_ += std::to_string(number);
    return *this;
  }
  // A number with two decimals, as lengths in pictures need it.
  Markup& length(double number);
  // A part of the page that the build made: the style and the script.
  Markup& part(const char* part) {
    page_ += part;
    return *this;
  }

  std::string take() { return std::move(page_); }

 private:
  std::string page_;
};

// The first characters of a text, with an ellipsis where there are more.
std::string shortened(std::string_view text, std::size_t most);

}  // namespace kfactl

#endif
