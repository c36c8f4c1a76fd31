// SPDX-License-Identifier: Apache-2.0
// A list of updates of all classes, written into a message and read back, beside the same tree built and walked by
// hand with pugixml. Targets, for 10,000 updates: writing and reading each <= 2 times pugixml.
//
// By hand means without any record: the builder has its texts ready and adds nodes, the walker asks each node for the
// fields of its type and copies what it finds into one plain struct. Ours goes through factories and field tables.
#include <benchmark/benchmark.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFAFunctionality/updates/KFAUpdate.h>
#include <KFLMessage/KFLMessage.h>

namespace {

using namespace KFA;

// --- The updates ----------------------------------------------------------------------------------------------------

constexpr std::array<const char*, 8> kTags = {
    "updateType",          "system_updateType",      "windows_system_updateType", "tqa_updateType",
    "template_updateType", "os_template_updateType", "ez_template_updateType",    "app_template_updateType",
};
constexpr std::size_t kAppTemplates = 2;

bool isSystem(std::size_t kind) {
  return kind == 1 || kind == 2;
}
bool isTemplate(std::size_t kind) {
  return kind >= 4 && kind <= 6;
}

boost::shared_ptr<KFAUpdate> made(std::size_t kind) {
  switch (kind) {
    case 1:
      return boost::make_shared<KFASystemUpdate>();
    case 2:
      return boost::make_shared<KFAWindowsSystemUpdate>();
    case 3:
      return boost::make_shared<KFATQAUpdate>();
    case 4:
      return boost::make_shared<KFATemplateUpdate>();
    case 5:
      return boost::make_shared<KFAOsTemplateUpdate>();
    case 6:
      return boost::make_shared<KFAEzTemplateUpdate>();
    case 7:
      return boost::make_shared<KFAAppTemplateUpdate>();
    default:
      return boost::make_shared<KFAUpdate>();
  }
}

const std::string kDescription = "Keeps a full disk from stopping the node; restart wanted";
const std::string kSummary = "Contains all former fixes";

void fillBase(KFAUpdate& update, std::size_t i) {
  update.setID("KU-" + std::to_string(i));
  update.setName("update number " + std::to_string(i));
  update.setDescription(kDescription);
  update.setSize(static_cast<long long>(i) * 4096);
  update.setInstalled(i % 2 == 0);
  update.setVersion("5.14.0-" + std::to_string(i));
  update.setInstalledVersion("5.13.0-" + std::to_string(i));
  update.setRelease(static_cast<int>(i));
}

boost::shared_ptr<KFAUpdate> filled(std::size_t i) {
  boost::shared_ptr<KFAUpdate> update = made(i % kTags.size());
  fillBase(*update, i);
  if (auto* const system = dynamic_cast<KFASystemUpdate*>(update.get())) {
    system->setType(KFASystemUpdate::ServicePack);
    system->setSummary(kSummary);
    system->setDetails(kDescription);
  }
  if (auto* const windows = dynamic_cast<KFAWindowsSystemUpdate*>(update.get()))
    windows->setProduct(std::string("server"));
  if (auto* const agent = dynamic_cast<KFATQAUpdate*>(update.get())) agent->setSummary(kSummary);
  if (auto* const collection = dynamic_cast<KFATemplateUpdate*>(update.get())) {
    KFAUpdateList apps;
    for (std::size_t app = 0; app < kAppTemplates; ++app) {
      apps.push_back(made(7));
      fillBase(*apps.back(), i + app);
    }
    collection->setAppTemplates(apps);
  }
  return update;
}

KFAUpdateList updates(std::size_t count) {
  KFAUpdateList list;
  for (std::size_t i = 0; i < count; ++i)
    list.push_back(filled(i));
  return list;
}

std::size_t countOf(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

// --- Writing --------------------------------------------------------------------------------------------------------

void write(KFLMessage& message, const KFAUpdateList& list) {
  KFLMessageIterator it = message.getIterator();
  it.setName("updates", kUp2dateURI);
  it.putObj(list);
}

void WriteOurs(benchmark::State& state) {
  const KFAUpdateList list = updates(countOf(state));
  for (auto _ : state) {
    KFLMessage message;
    write(message, list);
    benchmark::DoNotOptimize(message);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

using Text = KFAUpdate::Text;

void add(pugi::xml_node to, const char* name, const Text& text) {
  to.append_child(name).append_child(pugi::node_pcdata).set_value(text.getValue().c_str());
}

template <class Number>
void add(pugi::xml_node to, const char* name, Number number) {
  std::array<char, 24> digits{};
  std::to_chars(digits.data(), digits.data() + digits.size(), number);
  to.append_child(name).append_child(pugi::node_pcdata).set_value(digits.data());
}

void addBase(pugi::xml_node to, const KFAUpdate& update) {
  add(to, "id", update.getID());
  add(to, "name", update.getName());
  add(to, "description", update.getDescription());
  add(to, "size", update.getSize().getValue());
  if (update.getInstalled()) to.append_child("is_installed");
  add(to, "version", update.getVersion());
  add(to, "installed_version", update.getInstalledVersion());
  add(to, "release", update.getRelease().getValue());
}

void addUpdate(pugi::xml_node to, const KFAUpdate& update, std::size_t kind) {
  to.append_attribute("xsi:type").set_value(kTags[kind]);
  addBase(to, update);
  if (isSystem(kind)) {
    const auto& system = static_cast<const KFASystemUpdate&>(update);
    to.append_child("kind").append_child(pugi::node_pcdata).set_value("servicepack");
    add(to, "summary", system.getSummary());
    add(to, "details", system.getDetails());
  }
  if (kind == 2) add(to, "product", static_cast<const KFAWindowsSystemUpdate&>(update).getProduct());
  if (kind == 3) add(to, "summary", static_cast<const KFATQAUpdate&>(update).getSummary());
  if (!isTemplate(kind)) return;
  for (const auto& app : static_cast<const KFATemplateUpdate&>(update).getAppTemplates())
    addUpdate(to.append_child("app_template"), *app, 7);
}

void build(pugi::xml_document& document, const KFAUpdateList& list) {
  pugi::xml_node root = document.append_child("updates");
  root.append_attribute("xmlns").set_value(kUp2dateURI);
  root.append_attribute("xmlns:xsi").set_value("http://www.w3.org/2001/XMLSchema-instance");
  for (std::size_t i = 0; i < list.size(); ++i)
    addUpdate(root.append_child("update"), *list[i], i % kTags.size());
}

std::string textOf(const pugi::xml_document& document) {
  std::ostringstream text;
  document.save(text, "", pugi::format_raw | pugi::format_no_declaration);
  return text.str();
}

void WritePugixml(benchmark::State& state) {
  const KFAUpdateList list = updates(countOf(state));
  KFLMessage message;
  write(message, list);
  for (auto _ : state) {
    pugi::xml_document document;
    build(document, list);
    benchmark::DoNotOptimize(document);
  }
  pugi::xml_document ours;
  pugi::xml_document peer;
  build(peer, list);
  if (!ours.load_string(message.toString().c_str()) || textOf(ours) != textOf(peer))
    state.SkipWithError("the trees differ");
}

// --- Reading --------------------------------------------------------------------------------------------------------

void ReadOurs(benchmark::State& state) {
  KFLMessage message;
  write(message, updates(countOf(state)));
  for (auto _ : state) {
    KFAUpdateList list;
    if (message.getIterator().getObj(list) != 0 || list.size() != countOf(state))
      state.SkipWithError("the list was not read");
    benchmark::DoNotOptimize(list);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

struct Plain {
  std::string id, name, description, version, installedVersion, kind, summary, details, product;
  long long size = 0;
  int release = 0;
  bool installed = false;
  std::vector<Plain> apps;
};

Plain walk(pugi::xml_node node) {
  Plain plain;
  const std::string_view tag = node.attribute("xsi:type").value();
  plain.id = node.child("id").child_value();
  plain.name = node.child("name").child_value();
  plain.description = node.child("description").child_value();
  plain.size = node.child("size").text().as_llong();
  plain.installed = !node.child("is_installed").empty();
  plain.version = node.child("version").child_value();
  plain.installedVersion = node.child("installed_version").child_value();
  plain.release = node.child("release").text().as_int();
  if (tag == kTags[1] || tag == kTags[2]) {
    plain.kind = node.child("kind").child_value();
    plain.details = node.child("details").child_value();
  }
  if (tag == kTags[1] || tag == kTags[2] || tag == kTags[3])
    plain.summary = node.child("summary").child_value();
  if (tag == kTags[2]) plain.product = node.child("product").child_value();
  if (tag == kTags[4] || tag == kTags[5] || tag == kTags[6]) {
    for (const pugi::xml_node app : node.children("app_template"))
      plain.apps.push_back(walk(app));
  }
  return plain;
}

void ReadPugixml(benchmark::State& state) {
  pugi::xml_document document;
  build(document, updates(countOf(state)));
  for (auto _ : state) {
    std::vector<Plain> list;
    for (const pugi::xml_node node : document.document_element().children("update"))
      list.push_back(walk(node));
    if (list.size() != countOf(state)) state.SkipWithError("the list was not walked");
    benchmark::DoNotOptimize(list);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

constexpr std::int64_t kUpdates = 10'000;

BENCHMARK(WriteOurs)->Arg(1)->Arg(100)->Arg(kUpdates)->Unit(benchmark::kMicrosecond);
BENCHMARK(WritePugixml)->Arg(kUpdates)->Unit(benchmark::kMicrosecond);
BENCHMARK(ReadOurs)->Arg(1)->Arg(100)->Arg(kUpdates)->Unit(benchmark::kMicrosecond);
BENCHMARK(ReadPugixml)->Arg(kUpdates)->Unit(benchmark::kMicrosecond);

}  // namespace
