// SPDX-License-Identifier: Apache-2.0
// kfactl cache: the template cache that the agents of a node share.
#include <sys/stat.h>

#include <map>
#include <utility>

#include <nlohmann/json.hpp>

#include "cache/CacheImage.h"
#include "cache/CacheRepair.h"
#include "cache/CacheReport.h"
#include "cache/CacheTemplate.h"
#include "environments/RecordView.h"
#include "message/MessageCheck.h"
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

int list(Session& session) {
  Table table({"KEY", "NAME", "VERSION", "ARCHITECTURE", "OS TEMPLATE", "CACHED", "UP TO DATE", "USED BY"});
  Document document = Document::array();
  for (const auto& [key, input] : readItems(session.argument(0))) {
    const KFATemplateObject object = readTemplate(input);
    const std::size_t users = object.getEnvironments().size();
    if (session.format() == Format::Table)
      table.add({key, object.getName(), object.getVersion().getValue(), object.getArchitecture(),
                 wordFor(object.getOsTemplate()), wordFor(object.getCached()), wordFor(object.getUpToDate()),
                 std::to_string(users)});
    else
      document.push_back({{"key", key},
                          {"name", object.getName()},
                          {"version", object.getVersion().getValue()},
                          {"architecture", object.getArchitecture()},
                          {"os_template", object.getOsTemplate()},
                          {"cached", object.getCached()},
                          {"up_to_date", object.getUpToDate()},
                          {"environments", users}});
  }
  if (session.format() == Format::Table)
    table.print(session.out());
  else
    printDocument(session, document, "templates", "template");
  return kFine;
}

// The keys among the session's arguments.
std::vector<std::string> askedKeys(const Session& session) {
  return {session.arguments().begin() + 1, session.arguments().end()};
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

int get(Session& session) {
  const Items items = readItems(session.argument(0));
  std::vector<std::string> missing;
  Document document = Document::object();
  for (const std::string& key : askedKeys(session)) {
    const auto found = items.find(key);
    if (found == items.end()) {
      missing.push_back(key);
      continue;
    }
    readTemplate(found->second);
    KFL::KFLMessage message;
    parseMessage(found->second, message);
    completeRoot(message);
    if (session.format() == Format::Json)
      document[key] = describeElement(message.getIterator(), fieldTableOf("KFATemplateObject"));
    else
      session.out().add(message.toPrettyString());
  }
  if (session.format() == Format::Json) printDocument(session, document, "templates");
  return reportMissing(session.argument(0), missing);
}

// --- put, remove

// All messages are read before the first is put; they take effect together.
int put(Session& session) {
  using Key = KFL::limited_length_string<KFL::kCacheKeySize>;
  std::map<std::string, std::string> sources;
  std::vector<KFA::KFATemplateCachePrototype::Entry> entries;
  for (const std::string& path : askedKeys(session)) {
    const Input input = readInput(path);
    const KFATemplateObject object = readTemplate(input);
    const std::string key = object.getStringID();
    if (!Key::fits(key))
      throw Trouble(input.name + ": its key " + key.substr(0, 40) + "... has " + std::to_string(key.size()) +
                    " bytes; a key has at most " + std::to_string(Key::kMaxLength));
    const auto [other, isNew] = sources.emplace(key, input.name);
    if (!isNew) throw Trouble(input.name + ": has the key of " + other->second + ": " + key);
    entries.emplace_back(Key(key), object);
  }
  const Cache cache = openSound(session.argument(0));
  must(cache->put(entries));
  must(cache->sync());
  for (const auto& [key, object] : entries)
    session.out().addLine(printable(key.view()));
  return kFine;
}

int remove(Session& session) {
  const Cache cache = openSound(session.argument(0));
  KFA::KFATemplateCachePrototype::Snapshot snapshot;
  must(cache->hold(snapshot));
  KFL::KFLCacheChanges changes;
  std::vector<std::string> missing;
  for (const std::string& key : askedKeys(session)) {
    if (snapshot.find(key) == KFA::KFATemplateCachePrototype::Snapshot::kNone)
      missing.push_back(key);
    else
      changes.remove(key);
  }
  snapshot.release();
  must(cache->apply(changes));
  must(cache->sync());
  return reportMissing(session.argument(0), missing);
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
    {"get", "FILE KEY...", "Print the templates under the keys as XML messages",
     "One message after the other, as put takes them. JSON: an object from key to template. Status 1 when a "
     "key has no\n"
     "template.\n\n"
     "Examples:\n"
     "  kfactl cache get template.cache debian-12.os.x86_64..20261101 > debian-12.xml\n"
     "  kfactl --format json cache get template.cache debian-12.os.x86_64..20261101",
     withoutOptions<get>},
    {"put", "FILE XML...", "Put templates into a cache file, and print their keys",
     "Each message has the root template_object and holds one template object; the key is made from its "
     "fields. A template\n"
     "that the file has under the same key is replaced. All are put, or none.\n\n"
     "Examples:\n"
     "  kfactl cache put template.cache debian-12.xml\n"
     "  kfactl cache put template.cache *.xml",
     withoutOptions<put>, kTableOnly},
    {"remove", "FILE KEY...", "Remove templates from a cache file",
     "Status 1 when a key has no template; the others are removed all the same.\n\n"
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
     "stays beside it under its name with .damaged behind.\n\n"
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
