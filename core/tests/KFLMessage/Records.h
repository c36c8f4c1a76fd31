// SPDX-License-Identifier: Apache-2.0
// What the tests of records share: reading one from the elements of a message, and naming the elements it writes.
#ifndef KFLMESSAGE_TESTS_RECORDS_H
#define KFLMESSAGE_TESTS_RECORDS_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <KFLMessage/KFLMessage.h>

using Names = std::vector<std::string>;

template <class Record, class... Reader>
int readFrom(const std::string& content, Record& record, const Reader&... reader) {
  KFL::KFLMessage message;
  EXPECT_EQ(message.parse("<r>" + content + "</r>"), 0) << content;
  if constexpr (sizeof...(Reader) == 0)
    return message.getIterator().getObj(record);
  else
    return message.getIterator().getObject(record, reader...);
}

inline Names namesOf(const KFL::KFLMessageIterator& it) {
  Names names;
  for (int left = it.firstChild(); left == 0; left = it.nextSibling())
    names.emplace_back(it.getName());
  return names;
}

// The elements of a name, as texts.
inline std::string printedOf(const KFL::KFLMessageIterator& it, KFL::KFLElementID id) {
  std::string all;
  for (int left = it.findChild(id); left == 0; left = it.findNextChild(id)) {
    std::string one;
    EXPECT_EQ(it.print(one), 0);
    all += one;
  }
  return all;
}

template <class Record, class... Writer>
Names elementsOf(const Record& record, const Writer&... writer) {
  KFL::KFLMessage message;
  auto it = message.getIterator();
  if constexpr (sizeof...(Writer) == 0)
    EXPECT_EQ(it.putObj(record), 0);
  else
    EXPECT_EQ(it.putObject(record, writer...), 0);
  return namesOf(it);
}

#endif
