// SPDX-License-Identifier: Apache-2.0
// The messages of examples/messages; the first comment of each names its record.
#ifndef KFA_TESTS_MESSAGEEXAMPLES_H
#define KFA_TESTS_MESSAGEEXAMPLES_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

// The record that the first word of the first comment names.
inline const KFL::KFLRecordType* recordOf(const std::string& xml) {
  std::istringstream words(xml.substr(std::min(xml.find("<!--"), xml.size() - 4) + 4));
  std::string name;
  words >> name;
  if (name.ends_with(':')) name.pop_back();
  return KFL::findRecordType(name);
}

struct Example {
  std::string file;
  std::string xml;
};

// All of them, by record; null for those whose comment names none.
inline const std::multimap<const KFL::KFLRecordType*, Example>& examples() {
  static const auto all = [] {
    std::multimap<const KFL::KFLRecordType*, Example> made;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(KFA_SOURCE_DIR) / "examples/messages")) {
      if (entry.path().extension() != ".xml") continue;
      std::ifstream in(entry.path());
      const std::string xml{std::istreambuf_iterator<char>(in), {}};
      made.emplace(recordOf(xml), Example{entry.path().filename().string(), xml});
    }
    return made;
  }();
  return all;
}

// Each of them, parsed, until the law has failed for a file.
template <class Law>
void forEachExample(const Law& law) {
  for (const auto& [record, example] : examples()) {
    SCOPED_TRACE(example.file);
    KFL::KFLMessage message;
    ASSERT_NE(record, nullptr);
    ASSERT_EQ(message.parse(example.xml), 0) << KFL::getErrorMessage();
    law(*record, example, message);
    if (testing::Test::HasFatalFailure()) return;
  }
}

// The rows of a table, those of base and member parts included.
template <class Visit>
void visitRows(const KFL::KFLFieldTable& table, const Visit& visit) {
  for (const KFL::KFLField& row : table.rows()) {
    if (row.shape == KFL::KFLFieldShape::Inline && row.table != nullptr)
      visitRows(row.table(), visit);
    else
      visit(row);
  }
}

#endif
