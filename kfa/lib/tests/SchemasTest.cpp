// SPDX-License-Identifier: Apache-2.0
// The schemas in data/schema are those that the field tables make, take every message of examples/messages, and refuse
// each message in which one element was renamed, one number was replaced by a word, or one needed element was removed.
// libxml2's xmllint judges.
#include <cstdlib>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFLMessage/KFLSchemaWriter.h>

#include "MessageExamples.h"
#include "files/FilesTest.h"

namespace {

using KFL::KFLField;
using KFL::KFLFieldShape;
using KFL::KFLMessage;
using KFL::KFLMessageIterator;
namespace fs = std::filesystem;

// Keeps the library loaded: without a use of it the linker leaves it out.
[[maybe_unused]] const KFL::KFLFieldTable& (*const libraryIsUsed)() = &KFA::KFANetVEth::fields;

const fs::path kFolder = fs::path(KFA_SOURCE_DIR) / "data/schema";

TEST(Schemas, FilesAreThoseThatTheTablesMake) {
  std::size_t files = 0;
  for (const KFL::KFLSchema& schema : KFL::makeSchemas()) {
    EXPECT_EQ(contentOf(kFolder / (schema.name + ".xsd")), schema.text)
        << "kfactl types --schema " << schema.name << " > data/schema/" << schema.name << ".xsd";
    ++files;
  }
  for (const auto& entry : fs::directory_iterator(kFolder))
    files -= entry.path().filename() != "vocabulary.xsd" ? 1 : 0;
  EXPECT_EQ(files, 0U) << "a schema in data/schema is of no namespace";
}

// Messages by the schema that judges them. A message of the core may hold parts of the library's, whose schema knows
// both.
class SchemasJudge : public testing::Test {
 protected:
  void SetUp() override {
    if (std::system("xmllint --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "xmllint is not installed";
  }

  void add(KFLMessage& message, const std::string& file, const std::string& xml) {
    makeFile(folder_ / file, xml);
    const std::string_view uri = message.getIterator().getNamespace();
    files_[uri == KFL::kTypesNamespaceURI ? KFA::kTypesURI : std::string(uri)].push_back(file);
  }

  // What the schemas think of each of the files: the end of xmllint's line on it.
  void expectAll(const std::string& verdict) const {
    for (const auto& [uri, files] : files_) {
      std::string command = "cd '" + folder_.path().string() + "' && xmllint --nonet --noout --schema '";
      for (const KFL::KFLSchema& schema : KFL::makeSchemas())
        if (schema.namespaceUri == uri) command += (kFolder / schema.name).string() + ".xsd'";
      for (const std::string& file : files)
        command += " '" + file + "'";
      [[maybe_unused]] const int status = std::system((command + " >output 2>&1").c_str());
      const std::string output = "\n" + contentOf(folder_ / "output");
      for (const std::string& file : files) {
        EXPECT_NE(output.find("\n" + file + " " + verdict + "\n"), std::string::npos)
            << file << " should be one that " << verdict << ":\n"
            << contentOf(folder_ / file) << output;
      }
    }
  }

 private:
  TemporaryFolder folder_;
  std::map<std::string, std::vector<std::string>> files_;  // by namespace
};

// Written again into a root that has no name, which takes that of the record; a text has no namespace of its own, and
// names it all the same.
TEST_F(SchemasJudge, EveryMessageIsAcceptedAsItStandsAndAsItIsWritten) {
  forEachExample([&](const KFL::KFLRecordType& record, const Example& example, KFLMessage& message) {
    EXPECT_EQ(message.getIterator().getName(), record.rootName());
    add(message, example.file, example.xml);
    const KFL::KFLRecordType::Object object = record.create();
    ASSERT_EQ(record.read(message.getIterator(), object.get()), 0) << KFL::getErrorMessage();
    KFLMessage written, copy;
    KFLMessageIterator it = written.getIterator();
    ASSERT_EQ(record.write(it, object.get()), 0);
    ASSERT_EQ(copy.parse(written.toString()), 0);
    EXPECT_EQ(copy.getIterator().getName(), record.rootName());
    EXPECT_EQ(copy.getIterator().getNamespace(), record.namespaceUri());
    if (*record.namespaceUri() == '\0')
      copy.getIterator().setName(record.rootName(), KFL::kTypesNamespaceURI);
    add(copy, "written-" + example.file, copy.toString());
  });
  expectAll("validates");
}

bool isNumber(const KFLField& row) {
  const bool isOne = row.shape == KFLFieldShape::Element || row.shape == KFLFieldShape::List;
  return isOne && !row.valueType.empty() && row.valueType != "string";
}

TEST_F(SchemasJudge, EveryDamagedMessageIsRefused) {
  struct Damage {
    const char* name;
    bool (*isFor)(const KFLField& row);
    void (*apply)(KFLMessageIterator& element);
  };
  const Damage damages[] = {
      {"renamed", [](const KFLField&) { return true; },
       [](KFLMessageIterator& element) { element.setName("renamed", element.getNamespace()); }},
      {"worded", [](const KFLField& row) { return isNumber(row) || row.names != nullptr; },
       [](KFLMessageIterator& element) { element.putValue("no value!"); }},
      {"removed", [](const KFLField& row) { return row.needsElement(); },
       [](KFLMessageIterator& element) {
         const std::string name(element.getName());
         element.leaveChild();
         element.removeChildren(name);
       }},
  };
  forEachExample([&](const KFL::KFLRecordType& record, const Example& example, const KFLMessage& whole) {
    if (record.elements() == nullptr) return;
    visitRows(*record.elements(), [&](const KFLField& row) {
      for (const Damage& damage : damages) {
        KFLMessage message(whole);
        KFLMessageIterator it = message.getIterator();
        if (!damage.isFor(row) || it.findChild(row.id) != 0) continue;
        damage.apply(it);
        // A list without its disks is a disk without properties, which has the same type.
        if (message.getIterator().countChildren() == 0) continue;
        const std::string file = std::string(row.elementName()) + "-" + damage.name + "-" + example.file;
        add(message, file, message.toString());
      }
    });
  });
  expectAll("fails to validate");
}

}  // namespace
