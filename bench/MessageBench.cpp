// SPDX-License-Identifier: Apache-2.0
// The message tree beside its peers: a message of environments with 40 elements each, about 1.6 KB of text.
//
// Each operation runs over the same message through every library. Targets, for 10,000 environments: build <= 0.7,
// find <= 0.5, print <= 0.9 and memory <= 0.7 times pugixml; parse <= 1.3 times Expat with empty handlers and ahead of
// libxml2. Time per environment stays the same from 1 to 100,000 of them.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <libxml/parser.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLTagVocabulary.h>

namespace {

constexpr const char* kNamespace = "http://kelvarium.internal/webservices/kfa/4.0.0/kfatypes";
constexpr const char* kXsi = "http://www.w3.org/2001/XMLSchema-instance";
constexpr int kEnvironment = 1185;

struct Field {
  int number;
  const char* value;
};

// What one environment holds: elements without a value are opened, 0 closes one.
constexpr Field kFields[] = {
    {1002, "101"},
    {1899, "7d4f3c1e-52a0-4b7e-9d55-0c1b2a3f4e5d"},
    {1026, "web1"},
    {1496,
     "Front end of the shop, second floor, maintained by the web team; ask there before a change, and tell "
     "the shop when one is planned for working hours"},
    {1012, "web1.example.com"},
    {2047, "10.0.0.101/255.255.255.0"},
    {2047, "2001:db8::101/64"},
    {1281, "10.0.0.1"},
    {1281, "10.0.0.2"},
    {1795, "example.com"},
    {1556, "true"},
    {1647, "false"},
    {1549, "/kelvarium/root/$VEID"},
    {1550, "/kelvarium/private/$VEID"},
    {1226, nullptr},
    {1026, "debian-12-x86_64"},
    {1223, "20240101"},
    {0, nullptr},
    {1780, "debian-12"},
    {1463,
     "iptable_filter iptable_mangle ipt_limit ipt_multiport ipt_tos ipt_TOS ipt_REJECT ipt_TCPMSS ipt_tcpmss "
     "ipt_ttl ipt_LOG ipt_length ip_conntrack ip_conntrack_ftp ipt_conntrack ipt_state ipt_helper "
     "iptable_nat ip_nat_ftp"},
    {2053, nullptr},
    {1010, "eth0"},
    {1652, "00:18:51:5E:8B:3A"},
    {2047, "192.168.1.101/24"},
    {1557, "true"},
    {0, nullptr},
    {1479, nullptr},
    {1476, "numproc"},
    {1066, "240"},
    {1067, "240"},
    {0, nullptr},
    {1479, nullptr},
    {1476, "kmemsize"},
    {1066, "14372700"},
    {1067, "14790164"},
    {0, nullptr},
    {1479, nullptr},
    {1476, "privvmpages"},
    {1066, "65536"},
    {1067, "69632"},
    {0, nullptr},
    {1417, "2"},
    {1837, "1"},
    {1786, "NET_ADMIN:on"},
    {2291, "false"},
};

// What a program asks an environment for, spread over its elements.
constexpr int kAsked[] = {1002, 1899, 1026, 1496, 2047, 1556, 1550, 1226, 1780, 1837};

// The number of the environment goes into the fields that tell environments apart.
std::string valueOf(const Field& field, std::size_t environment) {
  std::string value = field.value;
  if (field.number == 1002) return std::to_string(101 + environment);
  if (field.number == 1012) value.insert(3, std::to_string(environment));
  return value;
}

// Values are made beforehand, so that building is all that is measured.
const std::vector<std::string>& valuesOf(std::size_t environment) {
  static const auto sets = [] {
    std::vector<std::vector<std::string>> made(64);
    for (std::size_t i = 0; i < made.size(); ++i) {
      for (const Field& field : kFields)
        made[i].push_back(field.value == nullptr ? "" : valueOf(field, i));
    }
    return made;
  }();
  return sets[environment % sets.size()];
}

// --- Building -------------------------------------------------------------------------------------------------------

void build(KFL::KFLMessage& message, std::size_t environments) {
  KFL::KFLMessageIterator it = message.getIterator();
  it.setName("environments", kNamespace);
  for (std::size_t i = 0; i < environments; ++i) {
    const std::vector<std::string>& values = valuesOf(i);
    it.addChild(kEnvironment);
    it.setTypeByName(kNamespace, "venv_configType");
    for (std::size_t f = 0; f < std::size(kFields); ++f) {
      if (kFields[f].number == 0) {
        it.leaveChild();
      } else if (kFields[f].value == nullptr) {
        it.addChild(kFields[f].number);
      } else {
        it.putValue(values[f], kFields[f].number);
      }
    }
    it.leaveChild();
  }
}

const std::array<const char*, std::size(kFields)>& peerNames() {
  static const auto names = [] {
    std::array<const char*, std::size(kFields)> made{};
    for (std::size_t i = 0; i < made.size(); ++i)
      made[i] = KFL::tagName(kFields[i].number).data();
    return made;
  }();
  return names;
}

void build(pugi::xml_document& document, std::size_t environments) {
  pugi::xml_node at = document.append_child("environments");
  at.append_attribute("xmlns").set_value(kNamespace);
  at.append_attribute("xmlns:xsi").set_value(kXsi);
  const auto& names = peerNames();
  for (std::size_t i = 0; i < environments; ++i) {
    const std::vector<std::string>& values = valuesOf(i);
    at = at.append_child("config");
    at.append_attribute("xsi:type").set_value("venv_configType");
    for (std::size_t f = 0; f < std::size(kFields); ++f) {
      if (kFields[f].number == 0) {
        at = at.parent();
      } else if (kFields[f].value == nullptr) {
        at = at.append_child(names[f]);
      } else {
        at.append_child(names[f]).append_child(pugi::node_pcdata).set_value(values[f].c_str());
      }
    }
    at = at.parent();
  }
}

std::size_t countOf(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

void reportItems(benchmark::State& state, std::size_t bytes = 0) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
  if (bytes != 0) state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void BuildOurs(benchmark::State& state) {
  for (auto _ : state) {
    KFL::KFLMessage message;
    build(message, countOf(state));
    benchmark::DoNotOptimize(message);
  }
  reportItems(state);
}

void BuildPugixml(benchmark::State& state) {
  for (auto _ : state) {
    pugi::xml_document document;
    build(document, countOf(state));
    benchmark::DoNotOptimize(document);
  }
  reportItems(state);
}

// --- Finding --------------------------------------------------------------------------------------------------------

void FindOurs(benchmark::State& state) {
  KFL::KFLMessage message;
  build(message, countOf(state));
  std::size_t found = 0;
  for (auto _ : state) {
    found = 0;
    const KFL::KFLMessageIterator it = message.getIterator();
    for (int more = it.firstChild(); more == 0; more = it.nextSibling()) {
      for (const int number : kAsked) {
        if (it.findChild(number) != 0) continue;
        found += !it.isEmptyElement();
        it.leaveChild();
      }
    }
  }
  if (found != countOf(state) * std::size(kAsked)) state.SkipWithError("elements were not found");
  reportItems(state);
}

void FindPugixml(benchmark::State& state) {
  pugi::xml_document document;
  build(document, countOf(state));
  std::array<const char*, std::size(kAsked)> names{};
  for (std::size_t i = 0; i < names.size(); ++i)
    names[i] = KFL::tagName(kAsked[i]).data();
  std::size_t found = 0;
  for (auto _ : state) {
    found = 0;
    for (const pugi::xml_node environment : document.first_child()) {
      for (const char* const name : names) {
        if (const pugi::xml_node child = environment.child(name)) found += !child.first_child().empty();
      }
    }
  }
  if (found != countOf(state) * std::size(kAsked)) state.SkipWithError("elements were not found");
  reportItems(state);
}

// --- Printing -------------------------------------------------------------------------------------------------------

std::string textOf(std::size_t environments) {
  KFL::KFLMessage message;
  build(message, environments);
  return message.toString();
}

void PrintOurs(benchmark::State& state) {
  KFL::KFLMessage message;
  build(message, countOf(state));
  std::size_t size = 0;
  for (auto _ : state)
    size = message.toString().size();
  reportItems(state, size);
}

struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, std::size_t size) override {
    text.append(static_cast<const char*>(data), size);
  }
};

void PrintPugixml(benchmark::State& state) {
  pugi::xml_document document;
  build(document, countOf(state));
  std::size_t size = 0;
  for (auto _ : state) {
    StringWriter writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration);
    size = writer.text.size();
  }
  if (size != textOf(countOf(state)).size()) state.SkipWithError("the texts differ");
  reportItems(state, size);
}

// --- Parsing --------------------------------------------------------------------------------------------------------

void ParseOurs(benchmark::State& state) {
  const std::string text = textOf(countOf(state));
  for (auto _ : state) {
    KFL::KFLMessage message;
    if (message.parse(text) != 0) state.SkipWithError("the text was refused");
    benchmark::DoNotOptimize(message);
  }
  reportItems(state, text.size());
}

// The floor: Expat in namespace mode with handlers that do nothing, fed as it likes best.
void ParseExpatAlone(benchmark::State& state) {
  const std::string text = textOf(countOf(state));
  const auto piece = static_cast<std::size_t>(state.range(1));
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreateNS("UTF-8", '\x01');
    XML_SetElementHandler(
        parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
    for (std::size_t done = 0; done < text.size(); done += piece) {
      const std::size_t size = std::min(piece, text.size() - done);
      if (XML_Parse(parser, text.data() + done, static_cast<int>(size), done + size == text.size()) !=
          XML_STATUS_OK) {
        state.SkipWithError("the text was refused");
      }
    }
    XML_ParserFree(parser);
  }
  reportItems(state, text.size());
}

void ParseLibxml2(benchmark::State& state) {
  const std::string text = textOf(countOf(state));
  for (auto _ : state) {
    xmlDoc* const document =
        xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, XML_PARSE_HUGE);
    if (document == nullptr) state.SkipWithError("the text was refused");
    xmlFreeDoc(document);
  }
  reportItems(state, text.size());
}

void ParsePugixml(benchmark::State& state) {
  const std::string text = textOf(countOf(state));
  for (auto _ : state) {
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size())) state.SkipWithError("the text was refused");
    benchmark::DoNotOptimize(document);
  }
  reportItems(state, text.size());
}

// --- Memory ---------------------------------------------------------------------------------------------------------

std::size_t pugixmlBytes = 0;

void* countedAllocate(std::size_t size) {
  void* const memory = std::malloc(size);
  pugixmlBytes += malloc_usable_size(memory);
  return memory;
}

void countedFree(void* memory) {
  pugixmlBytes -= malloc_usable_size(memory);
  std::free(memory);
}

// Bytes per environment, as counters of a run that builds (0) or parses (1) the message.
void Memory(benchmark::State& state) {
  const bool isParsed = state.range(1) != 0;
  const std::string text = textOf(countOf(state));
  const auto count = static_cast<double>(countOf(state));
  for (auto _ : state) {
    KFL::KFLMessage message;
    if (!isParsed) build(message, countOf(state));
    if (isParsed && message.parse(text) != 0) state.SkipWithError("the text was refused");
    const auto ours = static_cast<double>(message.memoryUsed());

    pugi::set_memory_management_functions(&countedAllocate, &countedFree);
    {
      pugi::xml_document document;
      if (isParsed) {
        document.load_buffer(text.data(), text.size());
      } else {
        build(document, countOf(state));
      }
      state.counters["ours"] = ours / count;
      state.counters["pugixml"] = static_cast<double>(pugixmlBytes) / count;
      state.counters["ratio"] = ours / static_cast<double>(pugixmlBytes);
    }
    pugi::set_memory_management_functions(&std::malloc, &std::free);
  }
}

constexpr std::int64_t kMessage = 10'000;
constexpr std::int64_t kPieces[] = {std::int64_t{64} * 1024, std::int64_t{1} << 30};

void linearSizes(benchmark::internal::Benchmark* bench) {
  for (std::int64_t count = 1; count <= 100'000; count *= 10)
    bench->Arg(count);
  bench->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BuildOurs)->Apply(linearSizes);
BENCHMARK(BuildPugixml)->Arg(kMessage)->Unit(benchmark::kMicrosecond);
BENCHMARK(FindOurs)->Apply(linearSizes);
BENCHMARK(FindPugixml)->Arg(kMessage)->Unit(benchmark::kMicrosecond);
BENCHMARK(PrintOurs)->Apply(linearSizes);
BENCHMARK(PrintPugixml)->Arg(kMessage)->Arg(10 * kMessage)->Unit(benchmark::kMicrosecond);
BENCHMARK(ParseOurs)->Apply(linearSizes);
BENCHMARK(ParseExpatAlone)
    ->Args({kMessage, kPieces[0]})
    ->Args({kMessage, kPieces[1]})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(ParseLibxml2)->Arg(kMessage)->Unit(benchmark::kMicrosecond);
BENCHMARK(ParsePugixml)->Arg(kMessage)->Unit(benchmark::kMicrosecond);
BENCHMARK(Memory)->Args({kMessage, 0})->Args({kMessage, 1})->Iterations(1);

}  // namespace
