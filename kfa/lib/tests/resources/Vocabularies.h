// SPDX-License-Identifier: Apache-2.0
// Small vocabularies for the tests.
#ifndef TESTS_RESOURCES_VOCABULARIES_H
#define TESTS_RESOURCES_VOCABULARIES_H

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <KFLFunctionality/KFLVocMap.h>

// Parameters with their kinds; 0: none is given; kFraction: a single value that is fractional.
using TestParameters = std::vector<std::pair<std::string, int>>;
inline constexpr int kFraction = -1;

inline TestParameters manyParameters(int count) {
  TestParameters parameters;
  for (int i = 0; i < count; ++i)
    parameters.emplace_back("p" + std::to_string(i), 1);
  return parameters;
}

inline std::string escaped(const std::string& text) {
  std::string xml;
  for (const char c : text)
    xml += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
  return xml;
}

// The formulas are numbered from 1 on; their comments are "comment 1" and so on.
inline KFL::KFLVocMapSP vocabularyOf(const TestParameters& parameters,
                                     const std::vector<std::string>& formulas) {
  std::string xml = "<vocabulary version='1'><category words='kelvarium qos'>";
  for (const auto& [id, kind] : parameters) {
    xml += "<parameter id='" + id + "'" +
           (kind != 0 ? " kind='" + std::to_string(std::abs(kind)) + "'" : "") +
           (kind == kFraction ? " value_type='0'/>" : "/>");
  }
  xml += "</category><category words='kelvarium tune'>";
  int number = 0;
  for (const std::string& formula : formulas) {
    const std::string text = std::to_string(++number);
    xml += "<parameter number='" + text + "'><expression>" + escaped(formula) +
           "</expression><comment>comment " + text + "</comment></parameter>";
  }
  return KFL::KFLVocMap::loadFromText(xml + "</category></vocabulary>", "test");
}

#endif
