// SPDX-License-Identifier: Apache-2.0
// Environment files: read, written, changed, compared. The interpreter is free while files are read and replaced.
#include "Files.h"

#include <unistd.h>

#include <vector>

#include <KFLCommon/KFLText.h>
#include <KFLCommon/KFLThreads.h>

#include <KFAFunctionality/files/KFABashConfig.h>
#include <KFAFunctionality/files/KFAConfigFile.h>
#include <KFAFunctionality/node/KFAChangeList.h>
#include <KFAFunctionality/node/KFAConfigFix.h>
#include <KFAFunctionality/node/KFAConfigMerge.h>
#include <KFAFunctionality/node/KFAEnvironmentDiff.h>
#include <KFAFunctionality/node/KFAEnvironmentText.h>
#include <KFAFunctionality/node/KFANodeChange.h>

#include "Changes.h"
#include "Configuration.h"
#include "Convert.h"
#include "Vocabulary.h"

namespace kfapy {

namespace {

using KFA::KFAConfigFile;
using KFA::KFAEnvConfig;

std::string readText(const std::string& path) {
  std::string text;
  must(KFAConfigFile(path).read(text), path);
  return text;
}

// The number that was asked for, or else -1.
int veidOf(const py::object& veid) {
  return veid.is_none() ? -1 : static_cast<int>(integerOf(veid, {nullptr, "veid"}, 0, 0x7FFFFFFF));
}

ConfigurationPtr parse(const std::string& text, const std::string& name, int veid,
                       const Vocabulary& vocabulary) {
  auto config = std::make_unique<KFAEnvConfig>();
  must(KFA::readEnvironment(*vocabulary.parser, text, name, *config), name);
  if (veid >= 0) must(config->setVeid(veid));
  return config;
}

ConfigurationPtr readConfig(const Path& path, const py::object& veid) {
  const int number = veidOf(veid);
  const Vocabulary vocabulary = currentVocabulary();
  const Unlocked unlocked;
  return parse(readText(path), path, number, vocabulary);
}

ConfigurationPtr parseConfig(const Content& text, const Text& name, const py::object& veid) {
  return parse(text, name, veidOf(veid), currentVocabulary());
}

// --- Writing ----------------------------------------------------------------------------------------------------------

// What a file is to hold, taken from a configuration that others may change meanwhile.
class Writing {
 public:
  Writing(const KFAEnvConfig& config, bool allowUnsafe, bool force, const std::string& name)
      : parser_(currentVocabulary().parser),
        config_(KFA::withoutCompletion(*parser_, config)),
        options_{allowUnsafe, force} {
    must(KFA::checkWritable(*parser_, config_, options_, name), name);
  }

  int write(const std::string* existing, const std::string& name, std::string& result) const {
    return KFA::writeEnvironment(*parser_, config_, options_, existing, name, result);
  }

 private:
  boost::shared_ptr<const KFA::KFAEnvConfigBashParser> parser_;
  KFAEnvConfig config_;
  KFA::KFASetOptions options_;
};

py::str formatConfig(const KFAEnvConfig& config, bool allowUnsafe) {
  std::string text;
  must(Writing(config, allowUnsafe, false, "configuration").write(nullptr, "configuration", text));
  return toStr(text);
}

void writeConfig(const Path& path, const KFAEnvConfig& config, bool merge, bool allowUnsafe, bool force,
                 const Text& backup, bool hardLinks) {
  const Writing writing(config, allowUnsafe, force, path);
  KFA::KFAReplaceOptions how;
  how.backupSuffix = backup;
  how.hardLinks = hardLinks;
  const Unlocked unlocked;
  if (merge && ::access(path.c_str(), F_OK) == 0)
    return must(
        KFAConfigFile(path).update([&](const std::string& before,
                                       std::string& after) { return writing.write(&before, path, after); },
                                   how),
        path);
  std::string text;
  must(writing.write(nullptr, path, text), path);
  must(KFAConfigFile(path).replace(text, how), path);
}

// --- Changes ----------------------------------------------------------------------------------------------------------

using KFA::KFANodeChange;

std::string checkedKey(const KFA::KFAEnvConfigBashParser& parser, const std::string& key) {
  if (key.empty() || !parser.isKey(key))
    throw Failure{"'" + KFL::toUpper(key) + "' is no key of an environment file", -1, {}};
  return key;
}

const char* nameOf(KFANodeChange::File::State state) {
  constexpr const char* kNames[] = {"unchanged", "changed",  "refused",     "replaced",
                                    "failed",    "restored", "not restored"};
  return kNames[static_cast<std::size_t>(state)];
}

// Files brought to disk at the same time share the waiting.
void runInThreads(std::size_t count, const KFANodeChange::Work& work) {
  KFL::runInThreads(count, 16, work);
}

struct ChangeOptions {
  bool dryRun;
  bool keepGoing;
  bool create;
};

void judgeAndApply(KFANodeChange& change, const std::vector<std::string>& paths,
                   const ChangeOptions& options) {
  for (const std::string& path : paths)
    options.create ? change.judgeNew(path, {}) : change.judge(path);
  if (!options.dryRun && (change.isSound() || options.keepGoing))
    change.apply(options.keepGoing, &runInThreads);
}

py::list describe(const KFANodeChange& change) {
  py::list files;
  for (const KFANodeChange::File& file : change.getFiles())
    files.append(valuesAttribute("FileChange")(py::cast(Path(file.path)), nameOf(file.state),
                                               toStr(file.before), toStr(file.after), toStr(file.error)));
  return files;
}

std::vector<std::string> pathsOf(const py::object& files) {
  const Place place{nullptr, "files"};
  std::vector<std::string> paths;
  for (const py::handle file : itemsOf(files, place))
    paths.push_back(pathOf(file, {&place, {}, paths.size()}));
  return paths;
}

// Changes the files, all or none, and tells what became of each.
py::list changeFiles(const py::object& files, const py::object& changes, bool dryRun, bool keepGoing,
                     bool create, bool allowUnsafe, bool force, const Text& backup, bool hardLinks) {
  const std::vector<std::string> paths = pathsOf(files);
  const KFA::KFAChangeList list = changesFrom(changes);
  const Vocabulary vocabulary = currentVocabulary();
  for (const KFA::KFAChange& one : list)
    checkedKey(*vocabulary.parser, one.key);
  const KFA::KFAEnvConfigRules rules(vocabulary.parser);
  const KFA::KFASetOptions options{allowUnsafe, force};
  KFA::KFAReplaceOptions how;
  how.backupSuffix = backup;
  how.hardLinks = hardLinks;
  KFANodeChange change(
      [&](const std::string& name, const std::string& before, std::string& after) {
        return KFA::applyChanges(rules, list, options, before, name, after);
      },
      how);
  {
    const Unlocked unlocked;
    judgeAndApply(change, paths, {dryRun, keepGoing, create});
  }
  return describe(change);
}

// --- Keys and differences ---------------------------------------------------------------------------------------------

std::set<std::string> keysFrom(const py::object& keys, const KFA::KFAEnvConfigBashParser& parser) {
  std::set<std::string> wanted;
  for (const py::handle key : itemsOf(keys, {nullptr, "keys"}))
    wanted.insert(checkedKey(parser, KFL::toLower(textOf(key, {nullptr, "keys"}))));
  return wanted;
}

py::dict getValues(const Path& path, const py::object& keys) {
  const Vocabulary vocabulary = currentVocabulary();
  const bool isAll = keys.is_none();
  const std::set<std::string> wanted = isAll ? std::set<std::string>() : keysFrom(keys, *vocabulary.parser);
  KFA::KFAEnvironmentKeys file(vocabulary.parser);
  if (!isAll) file.want(wanted);
  {
    const Unlocked unlocked;
    must(file.read(readText(path), path), path);
  }
  py::dict values;
  const KFAEnvConfig empty;
  KFA::KFAEnvConfigBashParser::ParameterParserGet order(empty, *vocabulary.parser);
  std::string value;
  for (std::string key; order.getNext(key, key) == KFA::kParameterDone;) {
    const bool has = (isAll || wanted.count(key) != 0) && file.getOrText(key, value);
    if (has || wanted.count(key) != 0) values[toStr(key)] = has ? py::object(toStr(value)) : py::none();
  }
  return values;
}

void readSide(KFA::KFAEnvironmentKeys& keys, const py::object& side, const Place& place) {
  std::string text;
  std::string name = "configuration";
  if (py::isinstance<KFAEnvConfig>(side)) {
    text = formatConfig(side.cast<const KFAEnvConfig&>(), true).cast<Text>();
  } else {
    name = pathOf(side, place);
    const Unlocked unlocked;
    text = readText(name);
  }
  must(keys.read(text, name), name);
}

py::list compare(const py::object& before, const py::object& after) {
  const Vocabulary vocabulary = currentVocabulary();
  KFA::KFAEnvironmentKeys old(vocabulary.parser);
  KFA::KFAEnvironmentKeys now(vocabulary.parser);
  readSide(old, before, {nullptr, "before"});
  readSide(now, after, {nullptr, "after"});
  return toList(compareEnvironments(old, now));
}

py::list parseChanges(const Content& text, const Text& name) {
  KFA::KFAChangeList changes;
  must(KFA::parseChangeList(text, name, changes), name);
  return toList(changes);
}

py::tuple fixText(const Content& text) {
  std::vector<KFA::KFAConfigFix> fixes;
  const std::string fixed = fixConfig(KFA::KFAEnvConfigRules(currentVocabulary().parser), text, fixes);
  py::list list;
  for (const KFA::KFAConfigFix& fix : fixes)
    list.append(py::make_tuple(fix.line, toStr(fix.what)));
  return py::make_tuple(toStr(fixed), list);
}

py::tuple mergeTexts(const Content& base, const Content& ours, const Content& theirs) {
  const KFA::KFAConfigMerge merge = KFA::mergeConfig(base, ours, theirs);
  return py::make_tuple(toStr(merge.text), Convert<std::vector<std::string>>::to(merge.conflicts));
}

}  // namespace

void addFiles(py::module_& module) {
  using py::arg;
  module.def("read_config", &readConfig, arg("path"), py::kw_only(), arg("veid") = py::none(),
             "Reads an environment file. Its number is `veid`, or else that of a name such as 101.conf.");
  module.def("parse_config", &parseConfig, arg("text"), arg("name") = "text", py::kw_only(),
             arg("veid") = py::none(),
             "Reads the text of an environment file; `name` stands for the file in errors.");
  module.def("format_config", &formatConfig, arg("config"), py::kw_only(), arg("allow_unsafe") = false,
             "The configuration as the text of a file.");
  module.def(
      "write_config", &writeConfig, arg("path"), arg("config"), py::kw_only(), arg("merge") = true,
      arg("allow_unsafe") = false, arg("force") = false, arg("backup") = "", arg("hard_links") = false,
      "Writes the whole configuration to a file, in one step. With `merge` the file's other lines stay.");
  module.def("change_files", &changeFiles);
  module.def(
      "get_values", &getValues, arg("path"), arg("keys") = py::none(),
      "The values of the keys of a file, by lower-case key, as a record gives them back: of all that have "
      "one, or of these, None for those without.");
  module.def("compare", &compare, arg("before"), arg("after"),
             "The changes of keys that make one environment of the other: of files or configurations.");
  module.def("parse_changes", &parseChanges, arg("text"), arg("name") = "text",
             "Reads a list of changes as str() of changes and `kfactl config diff` give it.");
  module.def("fix_text", &fixText);
  module.def("merge_texts", &mergeTexts);
}

}  // namespace kfapy
