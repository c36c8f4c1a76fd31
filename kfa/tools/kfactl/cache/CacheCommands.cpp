// SPDX-License-Identifier: Apache-2.0
// kfactl cache: the template cache that the agents of a node share.
#include <fnmatch.h>
#include <sys/stat.h>

#include <map>
#include <memory>
#include <set>
#include <utility>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <KFAFunctionality/node/KFAChangeList.h>

#include "cache/CacheImage.h"
#include "cache/CacheRepair.h"
#include "cache/CacheReport.h"
#include "cache/CacheTemplate.h"
#include "environments/RecordView.h"
#include "message/MessageCheck.h"
#include "message/MessageStream.h"
#include "terminal/Cli.h"
#include "terminal/Document.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

using KFA::KFATemplateObject;

bool isThere(const std::string& path) {
  struct stat file {};
  return ::lstat(path.c_str(), &file) == 0;
}

// Opens a file for changes. One that is missing or at fault is refused, and stays as it is.
Cache openSound(const std::string& path) {
  CacheImage(path, {KFL::KFLProofScope::Kept}).mustBeSound();
  return openCache(path);
}

int create(Session& session) {
  const std::string& path = session.argument(0);
  if (isThere(path)) throw Trouble(path + ": there is such a file already; remove it first");
  openCache(path);
  return kFine;
}

// --- list, get

// The items of a file as messages under their keys.
using Items = std::map<std::string, Input>;

Items readItems(const std::string& path) {
  CacheImage image(path, {KFL::KFLProofScope::Kept});
  image.mustBeSound();
  const KFL::KFLSnapshotView snapshot = image.snapshot();
  Items items;
  for (std::uint32_t index = 0; index < snapshot.size(); ++index) {
    const std::string key(snapshot.getKey(index));
    std::string name = path + ": item ";
    name += key;
    items[key] = {std::move(name), std::string(snapshot.getText(index))};
  }
  return items;
}

const char* wordFor(bool value) {
  return value ? "yes" : "no";
}

// The items that cannot be read: each is named, and the others are shown.
class Damages {
 public:
  explicit Damages(const std::string& path) : path_(KFA::quoteForShell(path)) {}

  template <class Part>
  void collect(Part part) {
    isAny_ = !troubles_.collect(part) || isAny_;
  }
  // The exit status, and what helps.
  int finish(int otherwise) const {
    if (isAny_)
      printNote("'kfactl cache verify " + path_ + "' shows all that is damaged, 'kfactl cache repair " +
                path_ + "' keeps the rest");
    return troubles_.status(otherwise);
  }

 private:
  std::string path_;
  bool isAny_ = false;
  Troubles troubles_;
};

Document describe(const std::string& key, const KFATemplateObject& object) {
  return {{"key", key},
          {"name", object.getName()},
          {"version", object.getVersion().getValue()},
          {"architecture", object.getArchitecture()},
          {"os_template", object.getOsTemplate()},
          {"cached", object.getCached()},
          {"up_to_date", object.getUpToDate()},
          {"environments", object.getEnvironments().size()}};
}

int list(Session& session) {
  Table table({"KEY", "NAME", "VERSION", "ARCHITECTURE", "OS TEMPLATE", "CACHED", "UP TO DATE", "USED BY"});
  Document document = Document::array();
  Damages damages(session.argument(0));
  for (const auto& item : readItems(session.argument(0))) {
    damages.collect([&] {
      const KFATemplateObject object = readTemplate(item.second);
      if (session.format() != Format::Table) return document.push_back(describe(item.first, object));
      table.add({item.first, object.getName(), object.getVersion().getValue(), object.getArchitecture(),
                 wordFor(object.getOsTemplate()), wordFor(object.getCached()), wordFor(object.getUpToDate()),
                 std::to_string(object.getEnvironments().size())});
    });
  }
  if (session.format() == Format::Table)
    table.print(session.out());
  else
    printDocument(session, document, "templates", "template");
  return damages.finish(kFine);
}

// The words behind the cache file.
std::vector<std::string> askedWords(const Session& session) {
  return {session.arguments().begin() + 1, session.arguments().end()};
}

// What of a file the words stand for: a key, or a shell's pattern over keys. In the order of the words, each key once.
struct Choice {
  std::vector<std::string> keys;
  std::vector<std::string> missing;
};

Choice choose(const std::vector<std::string>& words, const std::set<std::string>& keys) {
  Choice choice;
  std::set<std::string> taken;
  const auto take = [&](const std::string& key) {
    if (taken.insert(key).second) choice.keys.push_back(key);
  };
  for (const std::string& word : words) {
    bool isFound = keys.count(word) != 0;
    if (isFound) {
      take(word);
    } else {
      for (const std::string& key : keys) {
        if (fnmatch(word.c_str(), key.c_str(), 0) != 0) continue;
        take(key);
        isFound = true;
      }
    }
    if (!isFound) choice.missing.push_back(word);
  }
  return choice;
}

// Status 1, with a line on standard error, when there are some.
int reportMissing(const std::string& path, const std::vector<std::string>& missing) {
  if (missing.empty()) return kFine;
  std::string text = path + ": no item ";
  for (const std::string& key : missing)
    text += (&key == &missing.front() ? "" : ", ") + key;
  printError(text);
  return kFinding;
}

// Items of former builds have a root without a namespace.
void completeRoot(KFL::KFLMessage& message) {
  KFL::KFLMessageIterator root = message.getIterator();
  if (root.getNamespace().empty())
    root.setName(KFATemplateObject::kElement, KFATemplateObject::fields().namespaceUri());
}

std::vector<std::string> wordsToGet(const Session& session, bool isAll) {
  std::vector<std::string> words = askedWords(session);
  if (isAll != words.empty())
    throw Trouble(isAll ? "--all stands for every key; leave it or '" + words.front() + "' out"
                        : "KEY is missing; name keys or patterns such as 'debian*', or give --all");
  if (isAll) words.emplace_back("*");
  return words;
}

int get(Session& session, bool isAll) {
  const std::vector<std::string> words = wordsToGet(session, isAll);
  const Items items = readItems(session.argument(0));
  std::set<std::string> keys;
  for (const auto& item : items)
    keys.insert(item.first);
  Choice choice = choose(words, keys);
  if (isAll) choice.missing.clear();
  Document document = Document::object();
  Damages damages(session.argument(0));
  for (const std::string& key : choice.keys) {
    damages.collect([&] {
      const Input& input = items.at(key);
      readTemplate(input);
      KFL::KFLMessage message;
      parseMessage(input, message);
      completeRoot(message);
      if (session.format() == Format::Json)
        document[key] = describeElement(message.getIterator(), fieldTableOf("KFATemplateObject"));
      else
        session.out().add(message.toPrettyString());
    });
  }
  if (session.format() == Format::Json) printDocument(session, document, "templates");
  return damages.finish(reportMissing(session.argument(0), choice.missing));
}

Action prepareGet(CLI::App& app) {
  const auto isAll = std::make_shared<bool>(false);
  app.add_flag("--all", *isAll, "All templates of the file");
  return [isAll](Session& session) { return get(session, *isAll); };
}

// --- put, remove

// Whether the path is that of an environment's id, or leads below one.
bool isOfEnvironment(std::string_view path) {
  constexpr std::string_view kPath = "/template_object/eid";
  return path.starts_with(kPath) &&
         (path.size() == kPath.size() || path[kPath.size()] == '[' || path[kPath.size()] == '/');
}

// Says what the record does not keep of the message, and refuses one of whose environments some would be lost: the key
// has the first.
void warnOfLosses(const Input& message) {
  const MessageCheck check = checkMessage(message, "KFATemplateObject");
  for (const auto& [line, element, text] : check.findings) {
    if (isOfEnvironment(element)) throw Trouble(elementText(message.name, line, element, text));
  }
  for (const auto& [line, element, text] : check.findings)
    printError(message.name + ":" + std::to_string(line) + ": warning: element " + element + ": " + text);
}

// The templates to put, in the order of their messages.
class Batch {
 public:
  using Entries = std::vector<KFA::KFATemplateCachePrototype::Entry>;

  void add(const Input& message, const std::string& where) {
    const KFATemplateObject object = readTemplate(message);
    warnOfLosses(message);
    const std::string key = object.getStringID();
    if (!Key::fits(key))
      throw Trouble(where + ": its key " + key.substr(0, 40) + "... has " + std::to_string(key.size()) +
                    " bytes; a key has at most " + std::to_string(Key::kMaxLength));
    const auto [other, isNew] = sources_.emplace(key, where);
    if (!isNew) throw Trouble(where + ": has the key of " + other->second + ": " + key);
    entries_.emplace_back(Key(key), object);
  }
  const Entries& entries() const { return entries_; }

 private:
  using Key = KFL::limited_length_string<KFL::kCacheKeySize>;

  std::map<std::string, std::string> sources_;
  Entries entries_;
};

// All messages are read before the first is put; they take effect together.
int put(Session& session) {
  Batch batch;
  for (const std::string& path : askedWords(session)) {
    eachMessage(readInput(path),
                [&batch](const Input& message, const std::string& where) { batch.add(message, where); });
  }
  const Cache cache = openSound(session.argument(0));
  must(cache->put(batch.entries()));
  must(cache->sync());
  for (const auto& [key, object] : batch.entries())
    session.out().addLine(printable(key.view()));
  return kFine;
}

int remove(Session& session) {
  const Cache cache = openSound(session.argument(0));
  KFA::KFATemplateCachePrototype::Snapshot snapshot;
  must(cache->hold(snapshot));
  std::set<std::string> keys;
  for (std::uint32_t index = 0; index < snapshot.size(); ++index)
    keys.emplace(snapshot.getKey(index));
  snapshot.release();
  const Choice choice = choose(askedWords(session), keys);
  KFL::KFLCacheChanges changes;
  for (const std::string& key : choice.keys)
    changes.remove(key);
  must(cache->apply(changes));
  must(cache->sync());
  return reportMissing(session.argument(0), choice.missing);
}

constexpr Command kCommands[] = {
    {"create", "FILE", "Make an empty cache file",
     "A file that is there already is left alone, with status 2.\n\n"
     "Examples:\n"
     "  kfactl cache create /var/lib/kfa/uploads/template.cache",
     withoutOptions<create>, kTableOnly},
    {"list", "FILE", "List the templates of a cache file by their keys",
     "The file is only read; agents may go on using it.\n\n"
     "Examples:\n"
     "  kfactl cache list template.cache\n"
     "  kfactl --format json cache list template.cache",
     withoutOptions<list>},
    {"get", "FILE [KEY...]", "Print the templates under the keys as XML messages",
     "One message after the other, as put takes them. KEY may be a shell's pattern over keys. JSON: an "
     "object from key to\n"
     "template. Status 1 when a key has no template, 2 when a template is damaged, which hides no other.\n\n"
     "Examples:\n"
     "  kfactl cache get template.cache debian-12.os.x86_64..20261101 > debian-12.xml\n"
     "  kfactl cache get template.cache 'debian-*' | kfactl cache put other.cache -\n"
     "  kfactl --format json cache get --all template.cache",
     prepareGet},
    {"put", "FILE XML...", "Put templates into a cache file, and print their keys",
     "Each message has the root template_object and holds one template object; a file may have several, one "
     "behind the\n"
     "other. The key is made from its fields. A template that the cache has under the same key is replaced. "
     "All are put, or\n"
     "none. What is not kept of a message is a warning on standard error, but one that loses an "
     "environment's id "
     "is refused.\n\n"
     "Examples:\n"
     "  kfactl cache put template.cache debian-12.xml\n"
     "  kfactl cache put template.cache *.xml",
     withoutOptions<put>, kTableOnly},
    {"remove", "FILE KEY...", "Remove templates from a cache file",
     "KEY may be a shell's pattern over keys. Status 1 when a key has no template; the others are removed "
     "all the same.\n\n"
     "Examples:\n"
     "  kfactl cache remove template.cache debian-12.os.x86_64..20261101",
     withoutOptions<remove>, kTableOnly},
    {"verify", "FILE", "Look for faults in a cache file, and draw its heap",
     "Walks header, heap, snapshot and items. Each fault is named with its offset in bytes and its code, and "
     "gives status 1.\n"
     "The file is only read.\n\n"
     "Examples:\n"
     "  kfactl cache verify template.cache\n"
     "  kfactl --format json cache verify template.cache",
     withoutOptions<verifyCache>},
    {"stats", "FILE", "Print the figures of a cache file",
     "Sizes in bytes; free space is fragmented by what lies outside its largest block; kept is what former "
     "snapshots need,\n"
     "or what processes left when they ended. The file is only read.\n\n"
     "Examples:\n"
     "  kfactl cache stats template.cache\n"
     "  kfactl --format json cache stats template.cache",
     withoutOptions<printCacheStats>},
    {"repair", "FILE", "Give back what nobody holds, and rebuild what can be kept",
     "Of a file at fault, every template that can still be read goes into a new file, which takes its place; "
     "the old one\n"
     "stays beside it under its name with .damaged behind. Status 1 when some could not be read, or when "
     "nobody "
     "can tell\n"
     "how many the file had.\n\n"
     "Examples:\n"
     "  kfactl cache repair template.cache",
     withoutOptions<repairCache>, kTableOnly},
};

}  // namespace

extern const Group cacheGroup;
const Group cacheGroup{"cache", "The template cache that agents share", kCommands,
                       "  kfactl cache list /var/lib/kfa/uploads/template.cache\n"
                       "  kfactl cache verify /var/lib/kfa/uploads/template.cache"};

}  // namespace kfactl
