// SPDX-License-Identifier: Apache-2.0
// The environments of a node: which are meant, what is wrong with them, which keys there are.
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/node/KFAKeyCatalogue.h>
#include <KFAFunctionality/node/KFANodeCheck.h>
#include <KFAFunctionality/node/KFANodeSelection.h>

#include "Convert.h"
#include "Files.h"
#include "Vocabulary.h"

namespace kfapy {

namespace {

py::object toPath(const std::string& path) {
  return py::cast(Path(path));
}

py::tuple select(const py::object& words, const py::object& node) {
  const Vocabulary vocabulary = currentVocabulary();
  const std::string folder =
      node.is_none() ? KFA::KFANodeSelection::defaultFolder() : std::string(pathOf(node, {nullptr, "node"}));
  std::vector<std::string> wanted;
  const Place place{nullptr, "words"};
  for (const py::handle word : itemsOf(words, place))
    wanted.push_back(pathOf(word, {&place, {}, wanted.size()}));
  KFA::KFANodeSelection selection(folder, [&] { return vocabulary.parser; });
  {
    const Unlocked unlocked;
    if (wanted.empty()) must(selection.addAll(), folder);
    for (const std::string& word : wanted)
      must(selection.add(word), word);
  }
  py::list files;
  for (const KFA::KFAEnvironmentFile& file : selection.getFiles())
    files.append(
        py::make_tuple(toPath(file.path), file.veid < 0 ? py::object(py::none()) : py::int_(file.veid)));
  return py::make_tuple(files, Convert<std::vector<std::string>>::to(selection.getOthers()),
                        Convert<std::vector<std::string>>::to(selection.getTroubles()));
}

// --- Checking ---------------------------------------------------------------------------------------------------------

using KFA::KFANodeFinding;

py::object toFinding(const KFANodeFinding& finding) {
  const auto orNone = [](std::size_t number) {
    return number == 0 ? py::object(py::none()) : py::int_(number);
  };
  return valuesAttribute("Finding")(toString(finding.severity), toStr(finding.rule), toPath(finding.file),
                                    finding.veid < 0 ? py::object(py::none()) : py::int_(finding.veid),
                                    orNone(finding.line), orNone(finding.column), toStr(finding.text),
                                    toStr(finding.lineText), toStr(finding.related));
}

KFANodeFinding unreadable(const KFA::KFAEnvironmentFile& file) {
  KFANodeFinding finding;
  finding.rule = "unreadable";
  finding.file = file.path;
  finding.veid = file.veid;
  finding.text = KFL::getErrorMessage();
  if (finding.text.starts_with(file.path + ": ")) finding.text.erase(0, file.path.size() + 2);
  return finding;
}

std::set<std::string> textsOf(const py::object& items, const char* name) {
  return Convert<std::set<std::string>>::from(items, {nullptr, name});
}

KFA::KFANodeCheckOptions optionsOf(const py::object& foreignKeys, const py::object& templates,
                                   const KFA::KFANodeResources& node) {
  KFA::KFANodeCheckOptions options;
  if (!foreignKeys.is_none()) options.foreignKeys = textsOf(foreignKeys, "foreign_keys");
  if (!templates.is_none()) options.templates = textsOf(templates, "templates");
  options.node = node;
  return options;
}

KFA::KFANodeResources resourcesOf(const py::object& memory, const py::object& disk, const py::object& cpus,
                                  const std::string& folder) {
  constexpr long long kMost = std::numeric_limits<long long>::max();
  KFA::KFANodeResources node = KFA::KFANodeResources::ofMachine(folder);
  if (!memory.is_none()) node.memory = integerOf(memory, {nullptr, "memory"}, 0, kMost);
  if (!disk.is_none()) node.disk = integerOf(disk, {nullptr, "disk"}, 0, kMost);
  if (!cpus.is_none()) node.cpu = integerOf(cpus, {nullptr, "cpus"}, 0, 1000000) * 10000;
  return node;
}

py::list listOf(std::vector<KFANodeFinding> findings, bool isSorted) {
  if (isSorted) sortBySeverity(findings);
  py::list list;
  for (const KFANodeFinding& finding : findings)
    list.append(toFinding(finding));
  return list;
}

// A file of several that cannot be read is a finding, too, so that it hides no other.
py::list checkFiles(const py::object& files, bool isSingle, const Path& folder, const py::object& foreignKeys,
                    const py::object& templates, const py::object& memory, const py::object& disk,
                    const py::object& cpus) {
  std::vector<KFA::KFAEnvironmentFile> all;
  const Place place{nullptr, "files"};
  for (const py::handle file : itemsOf(files, place))
    all.push_back({pathOf(file, {&place, {}, all.size()}), -1});
  KFA::KFANodeCheck check(currentVocabulary().parser,
                          optionsOf(foreignKeys, templates, resourcesOf(memory, disk, cpus, folder)));
  std::vector<KFANodeFinding> findings;
  std::vector<KFANodeFinding> lost;
  {
    const Unlocked unlocked;
    for (KFA::KFAEnvironmentFile& file : all) {
      std::string text;
      if (KFA::getVeidOfPath(file.path, file.veid) != 0) file.veid = -1;
      if (KFA::KFAConfigFile(file.path).read(text) == 0)
        check.add(file, text);
      else if (isSingle)
        fail(file.path);
      else
        lost.push_back(unreadable(file));
    }
    findings = check.finish();
  }
  findings.insert(findings.end(), lost.begin(), lost.end());
  return listOf(std::move(findings), !isSingle);
}

py::list checkText(const Content& text, const Path& name) {
  KFA::KFAEnvironmentFile file{name, -1};
  if (KFA::getVeidOfPath(name, file.veid) != 0) file.veid = -1;
  KFA::KFANodeCheck check(currentVocabulary().parser, {});
  check.add(file, text);
  return listOf(check.finish(), false);
}

std::set<std::string> readForeignKeys(const std::string& path) {
  const Unlocked unlocked;
  std::string text;
  must(KFA::KFAConfigFile(path).read(text), path);
  return KFA::parseForeignKeys(text);
}

py::list foreignKeysOf(const Path& path) {
  return Convert<std::set<std::string>>::to(readForeignKeys(path));
}

// --- Keys -------------------------------------------------------------------------------------------------------------

py::dict listKeys() {
  const Vocabulary vocabulary = currentVocabulary();
  const KFA::KFAKeyCatalogue catalogue(vocabulary.parser, vocabulary.map);
  py::dict keys;
  for (const auto& [name, key] : catalogue.getKeys())
    keys[toStr(name)] =
        valuesAttribute("Key")(toStr(key.key), toStr(key.form), toStr(key.unit), toStr(key.without),
                               toStr(key.example), toStr(key.description), key.isResource);
  return keys;
}

}  // namespace

void addNode(py::module_& module) {
  module.def("select", &select);
  module.def("default_node", [] { return Path(KFA::KFANodeSelection::defaultFolder()); });
  module.def("check_files", &checkFiles);
  module.def("check_text", &checkText, py::arg("text"), py::arg("name") = "text",
             "What is wrong with the text of an environment file, line by line.");
  module.def("read_foreign_keys", &foreignKeysOf);
  module.def("keys", &listKeys, "Every key of an environment file, by lower-case key.");
}

}  // namespace kfapy
