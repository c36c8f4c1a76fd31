// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLElementLines.h>

#include <algorithm>
#include <iterator>

namespace KFL {

// The text was parsed, so what stands behind a "<" tells start tags from all else.
KFLElementLines::KFLElementLines(std::string_view xml) {
  constexpr std::string_view kSkipped[][2] = {
      {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}, {"</", ">"}};
  std::size_t line = 1;
  std::size_t counted = 0;
  for (std::size_t at = xml.find('<'); at != std::string_view::npos;) {
    std::size_t end = at + 1;
    const std::string_view rest = xml.substr(at);
    const auto* const skipped = std::find_if(std::begin(kSkipped), std::end(kSkipped),
                                             [&](const auto& pair) { return rest.starts_with(pair[0]); });
    if (skipped != std::end(kSkipped)) {
      end = std::min(xml.find((*skipped)[1], at + (*skipped)[0].size()), xml.size());
    } else {
      line += static_cast<std::size_t>(std::count(xml.begin() + static_cast<std::ptrdiff_t>(counted),
                                                  xml.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
      counted = at;
      lines_.push_back(line);
    }
    at = xml.find('<', end);
  }
}

std::size_t KFLElementLines::operator[](std::size_t element) const {
  return element < lines_.size() ? lines_[element] : 1;
}

}  // namespace KFL
