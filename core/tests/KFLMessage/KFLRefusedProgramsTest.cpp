// SPDX-License-Identifier: Apache-2.0
// Programs that must not compile, and the sentence by which the compiler says why.
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace KFL {
namespace {

// What the compiler says of a program.
std::string compile(const std::string& program, const std::string& standard) {
  const std::string file = testing::TempDir() + "refused.cpp";
  std::ofstream(file) << program;
  const std::string command = std::string(KFA_CXX) + " -std=" + standard +
                              " -fsyntax-only -I" KFA_SOURCE_DIR "/core/src " + file + " 2>&1";
  std::string output;
  FILE* const pipe = popen(command.c_str(), "r");
  for (char buffer[4096]; std::fgets(buffer, sizeof buffer, pipe) != nullptr;)
    output += buffer;
  const bool compiles = pclose(pipe) == 0;
  std::remove(file.c_str());
  return compiles ? "compiles" : output;
}

TEST(KFLRefusedPrograms, AreToldWhy) {
  const std::string put =
      "#include <KFLMessage/KFLMessage.h>\nenum Color { red };\n"
      "void f(KFL::KFLMessageIterator& it, int* p) { it.putValue(";
  const std::string kPut = "putValue() takes a text, a bool or an integer";
  const std::string record = "#include <KFLMessage/KFLRecordFields.h>\n";
  const std::string rows =
      " x; static const KFL::KFLFieldTable& fields() {"
      " static constexpr KFL::KFLField rows[] = {KFL::field<R, &R::x>(1002)};"
      " static constexpr KFL::KFLFieldTable table{\"R\", \"u\", \"\", rows}; return table; } };";
  const struct {
    std::string program;
    const char* standard;
    std::string says;
  } programs[] = {
      {put + "1U, \"x\"); }", "c++20", "compiles"},
      {put + "1.5, \"x\"); }", "c++20", kPut},
      {put + "red, \"x\"); }", "c++20", kPut},
      {put + "'c', \"x\"); }", "c++20", kPut},
      {put + "p, \"x\"); }", "c++20", kPut},
      {record + "struct R { long" + rows, "c++20", "compiles"},
      {record + "struct R { double" + rows, "c++20", "a field of a record is a std::string, a bool"},
      {record + "struct R { unsigned" + rows, "c++20", "a field of a record is a std::string, a bool"},
      {"#include <KFLMessage/KFLMessage.h>\n", "c++17", "C++20"},
      {"#include <KFLCommon/KFLProperty.h>\n", "c++17", "C++20"},
  };
  for (const auto& row : programs)
    EXPECT_NE(compile(row.program, row.standard).find(row.says), std::string::npos) << row.program;
}

}  // namespace
}  // namespace KFL
