// SPDX-License-Identifier: Apache-2.0
// The class kfa.Configuration: one table of its properties, and its message form.
#include "Configuration.h"

#include <algorithm>
#include <map>
#include <vector>

#include <KFLMessage/KFLElementLines.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLMessageCheck.h>

#include <KFAFunctionality/files/KFABashConfig.h>

#include "Records.h"
#include "Vocabulary.h"

namespace kfapy {

namespace {

using KFA::KFAEnvConfig;

// --- Disks ------------------------------------------------------------------------------------------------------------

namespace disk = KFA::HardDisk;

class DisksAsList final : public disk::List::Visitor {
 public:
  int visit(const disk::List::KfFS& list) override {
    disks.append(Convert<disk::KfFS>::to(list.getDisk()));
    return 0;
  }
  int visit(const disk::List::Images<disk::Zloop>& list) override { return addAll(list.getImages()); }
  int visit(const disk::List::Images<disk::Loopback>& list) override { return addAll(list.getImages()); }

  py::list disks;

 private:
  template <class Image>
  int addAll(const std::vector<Image>& images) {
    disks = Convert<std::vector<Image>>::to(images);
    return 0;
  }
};

py::object getDisks(const KFAEnvConfig& config) {
  boost::shared_ptr<disk::List::Base> list;
  must(config.getHardDisks(list));
  if (!list) return py::none();
  DisksAsList visitor;
  list->accept(visitor);
  return std::move(visitor.disks);
}

// The disks of a configuration are of one kind, which is that of the first.
void setDisks(KFAEnvConfig& config, py::handle value, const Place& place) {
  if (value.is_none()) return must(config.setHardDisks(nullptr));
  const py::list disks(py::reinterpret_borrow<py::object>(py::list(itemsOf(value, place))));
  const auto isFirst = [&](const char* name) {
    return !disks.empty() && py::isinstance(disks[0], valuesAttribute(name));
  };
  if (isFirst(Fields<disk::KfFS>::name)) {
    if (disks.size() != 1) refuse(place, "a list of one SharedArea", value);
    const disk::List::KfFS list(Convert<disk::KfFS>::from(disks[0], {&place, {}, 0}));
    return must(config.setHardDisks(&list));
  }
  if (isFirst(Fields<disk::Loopback>::name)) {
    const disk::List::Images<disk::Loopback> list(Convert<std::vector<disk::Loopback>>::from(disks, place));
    return must(config.setHardDisks(&list));
  }
  const disk::List::Images<disk::Zloop> list(Convert<std::vector<disk::Zloop>>::from(disks, place));
  must(config.setHardDisks(&list));
}

// --- The table of properties ------------------------------------------------------------------------------------------

struct Property {
  const char* name;
  const char* type;  // as in the stub file
  const char* doc;
  py::object (*get)(const KFAEnvConfig&);
  void (*set)(KFAEnvConfig&, py::handle, const Place&);  // null: the property follows from others
};

template <class Setter>
struct ValueOf;
template <class Class, class Value>
struct ValueOf<int (Class::*)(const Value&)> {
  using Type = Value;
};

// A property that may be unspecified.
template <auto get, auto set, class Leaf = void>
constexpr Property optional(const char* name, const char* type, const char* doc) {
  using Value = typename ValueOf<decltype(set)>::Type;
  return {name, type, doc,
          [](const KFAEnvConfig& config) {
            Value value;
            must((config.*get)(value));
            return Convert<Value, Leaf>::to(value);
          },
          [](KFAEnvConfig& config, py::handle value, const Place& place) {
            must((config.*set)(Convert<Value, Leaf>::from(value, place)));
          }};
}

// A property that the library knows with a value only; its element bears the property's name.
template <auto get, auto set, const char* element>
constexpr Property mandatory(const char* type, const char* doc) {
  using Value = typename ValueOf<decltype(set)>::Type;
  return {element, type, doc,
          [](const KFAEnvConfig& config) {
            Value value{};
            if ((config.*get)(value) == 0) return Convert<Value>::to(value);
            if (config.getIterator().hasChild(element)) fail({});
            return py::object(py::none());
          },
          [](KFAEnvConfig& config, py::handle value, const Place& place) {
            if (!value.is_none()) return must((config.*set)(Convert<Value>::from(value, place)));
            config.getIterator().removeChildren(element);
          }};
}

// A text that follows from other properties.
template <auto get>
constexpr Property derived(const char* name, const char* type, const char* doc) {
  return {name, type, doc,
          [](const KFAEnvConfig& config) {
            std::string value;
            return (config.*get)(value) == 0 ? py::object(toStr(value)) : py::object(py::none());
          },
          nullptr};
}

constexpr char kVeid[] = "veid";
constexpr char kDisabled[] = "disabled";

using C = KFAEnvConfig;

constexpr Property kProperties[] = {
    mandatory<&C::getVeid, &C::setVeid, kVeid>("int | None", "The number of the environment on its node."),
    optional<&C::getName, &C::setName>("name", "str | None", "Its name."),
    optional<&C::getDescription, &C::setDescription>("description", "str | None", "What people say of it."),
    optional<&C::getHostname, &C::setHostname>("hostname", "str | None", "Its host name."),
    optional<&C::getType, &C::setType>("type", "str | None", "The name of its technology."),
    optional<&C::getVEType, &C::setVEType>("ve_type", "EnvironmentType | None", "What it is for."),
    optional<&C::getUUID, &C::setUUID>("uuid", "str | None", "Its identifier, as it is written."),
    optional<&C::getOnBoot, &C::setOnBoot>("on_boot", "bool | None", "Whether it starts with the node."),
    mandatory<&C::getDisabled, &C::setDisabled, kDisabled>("bool | None", "Whether it must not be started."),
    optional<&C::getAllowReboot, &C::setAllowReboot>("allow_reboot", "bool | None",
                                                     "Whether it may restart itself."),
    optional<&C::getOfflineManagement, &C::setOfflineManagement>(
        "offline_management", "bool | None", "Whether its services answer while it is stopped."),
    optional<&C::getOfflineServices, &C::setOfflineServices>("offline_services", "list[str] | None",
                                                             "Those services."),
    optional<&C::getVERootVar, &C::setVERootVar>(
        "ve_root", "str | None", "The path of its root, in which $VEID and ${VEID} stand for its number."),
    derived<&C::getVERoot>("ve_root_path", "str | None", "The same with the number put in."),
    optional<&C::getVEPrivateVar, &C::setVEPrivateVar>("ve_private", "str | None",
                                                       "The path of its files, as ve_root."),
    derived<&C::getVEPrivate>("ve_private_path", "str | None", "The same with the number put in."),
    optional<&C::getOsTemplate, &C::setOsTemplate>("os_template", "Template | None", "What it was made of."),
    optional<&C::getTemplates, &C::setTemplates>("templates", "list[Template] | None",
                                                 "Its application templates."),
    optional<&C::getDistribution, &C::setDistribution>("distribution", "Distribution | None",
                                                       "The distribution in it."),
    optional<&C::getOS, &C::setOS>("os", "OperatingSystem | None", "The operating system in it."),
    optional<&C::getArchitecture, &C::setArchitecture>("architecture", "str | None",
                                                       "The architecture of its programs."),
    optional<&C::getAddresses, &C::setAddresses>("addresses", "list[Address] | None", "Its IP addresses."),
    optional<&C::getNameservers, &C::setNameservers, AddressText>("nameservers", "list[Address] | None",
                                                                  "Its name servers."),
    optional<&C::getWinsServers, &C::setWinsServers>("wins_servers", "list[Address] | None",
                                                     "Its WINS servers."),
    optional<&C::getSearchDomains, &C::setSearchDomains>("search_domains", "list[str] | None",
                                                         "The domains in which names are looked up."),
    optional<&C::getNetVEths, &C::setNetVEths>(
        "net_devices", "list[NetworkDevice] | None",
        "Its network devices; reading a file adds the host-routed venet0 where there are addresses."),
    optional<&C::getIPTables, &C::setIPTables>("iptables", "list[str] | None",
                                               "The packet filter's modules that it may use."),
    optional<&C::getRatesList, &C::setRatesList>("rates", "list[str] | None",
                                                 "Bandwidths as DEVICE:CLASS:KILOBITS."),
    optional<&C::getRateBound, &C::setRateBound>("rate_bound", "bool | None",
                                                 "Whether the rates are the most that it gets."),
    optional<&C::getCapabilities, &C::setCapabilities>("capabilities", "list[Capability] | None",
                                                       "What its processes may do."),
    optional<&C::getSLMMode, &C::setSLMMode>("slm_mode", "str | None", "How its memory is managed."),
    optional<&C::getClassID, &C::setClassID>("class_id", "int | None", "Its class of scheduling."),
    optional<&C::getSample, &C::setSample>("is_sample", "bool | None",
                                           "Whether others are made from this configuration."),
    optional<&C::getOriginSample, &C::setOriginSample>("origin_sample", "str | None",
                                                       "The sample that it was made from."),
    optional<&C::getConfigCustomized, &C::setConfigCustomized>(
        "config_customized", "bool | None", "Whether somebody has changed what the sample gave."),
    optional<&C::getServerRoles, &C::setServerRoles>("server_roles", "list[str] | None",
                                                     "What it serves as."),
    optional<&C::getTSMode, &C::setTSMode>("ts_mode", "int | None", "The mode of its terminal services."),
    optional<&C::getTSLicenseServers, &C::setTSLicenseServers>("ts_license_servers", "list[str] | None",
                                                               "Where these get their licences."),
    {"disks", "list[Disk] | None",
     "Its disks, which are of one kind. Those that are bound to real storage cannot be replaced.", &getDisks,
     &setDisks},
};

// --- Resource parameters ----------------------------------------------------------------------------------------------

using QoS = KFL::KFLOptionalProperty<KFL::KFLQoS>;

py::object getResource(const KFAEnvConfig& config, const Text& id) {
  QoS qos;
  must(config.getQoS(id, qos));
  return Convert<QoS>::to(qos);
}

void setResource(KFAEnvConfig& config, const py::object& resource) {
  must(config.setQoS(Convert<QoS>::from(resource, {nullptr, "resources"})));
}

void removeResource(KFAEnvConfig& config, const Text& id) {
  QoS qos{KFL::KFLQoS(id)};
  qos.setSpecified(false);
  must(config.setQoS(qos));
}

py::list listResources(const KFAEnvConfig& config) {
  KFAEnvConfig::QoSes qoses;
  must(config.getQoSes(qoses));
  py::list ids;
  for (const KFL::KFLQoS& qos : qoses.getValue())
    ids.append(toStr(qos.getID()));
  return ids;
}

// Makes these the only ones; of two with one id the later counts.
void replaceResources(KFAEnvConfig& config, const py::object& resources) {
  const auto all = Convert<std::vector<KFL::KFLQoS>>::from(resources, {nullptr, "resources"});
  must(config.setQoSes(std::set<KFL::KFLQoS>()));
  for (const KFL::KFLQoS& qos : all)
    must(config.setQoS(qos));
}

// --- The message form, and the keys of a file -------------------------------------------------------------------------

Text toMessage(const KFAEnvConfig& config, bool pretty) {
  KFL::KFLMessage message;
  must(message.getIterator().putObject(config, KFAEnvConfig::Writer()));
  const std::string text = pretty ? message.toPrettyString() : message.toString();
  if (text.empty()) fail({});
  return text;
}

// What is wrong with an element, as NAME:LINE: element PATH: TEXT.
[[noreturn]] void refuseElement(const std::string& xml, const std::string& name,
                                const KFL::KFLMessageFinding& fault) {
  const std::size_t line = KFL::KFLElementLines(xml)[fault.element];
  throw Failure{name + ":" + std::to_string(line) + ": element " + fault.path + ": " + fault.text, -1, name};
}

// Refuses what is no configuration, and what has an element that cannot be read.
void checkRoot(const KFL::KFLMessageIterator& root, const std::string& xml, const std::string& name) {
  const KFL::KFLFieldTable& fields = KFAEnvConfig::elements();
  const bool isTagged =
      root.getTypeTag() == fields.typeTag() && root.getTypeNamespace() == fields.namespaceUri();
  if (!isTagged && !(root.getTypeTag().empty() && root.getName() == "venv_config"))
    refuseElement(
        xml, name,
        {root.getPath(), 0,
         "no configuration; an element with the type tag " + std::string(fields.typeTag()) + " is wanted"});
  const KFL::KFLMessageFindings faults = KFL::findFaults(root, &fields, KFL::KFLFaultScope::Any);
  if (!faults.empty()) refuseElement(xml, name, faults.front());
}

ConfigurationPtr fromMessage(const Content& xml, const Text& name) {
  const Unlocked unlocked;
  KFL::KFLMessage message;
  if (message.parse(xml) != 0) throw Failure{name + ": " + KFL::getErrorMessage(), -1, name};
  const KFL::KFLMessageIterator root = message.getIterator();
  checkRoot(root, xml, name);
  auto config = std::make_unique<KFAEnvConfig>();
  must(KFAEnvConfig::Reader()(root, *config), name);
  return config;
}

// The properties that are specified, as plain values: what dataclasses.asdict() makes of records, texts of addresses.
py::dict toDict(const py::object& self) {
  const auto& config = self.cast<const KFAEnvConfig&>();
  py::dict values;
  const py::object plain = py::module_::import("kfa.views").attr("plain");
  for (const Property& property : kProperties) {
    const py::object value = property.set == nullptr ? py::none() : property.get(config);
    if (!value.is_none()) values[property.name] = plain(value);
  }
  values["resources"] = plain(py::module_::import("kfa.views").attr("Resources")(self));
  return values;
}

py::dict toKeys(const KFAEnvConfig& config) {
  const Vocabulary vocabulary = currentVocabulary();
  KFA::KFAEnvConfigBashParser::ParameterParserGet keys(config, *vocabulary.parser);
  py::dict values;
  std::string value;
  for (std::string key; keys.getNext(key, key) == KFA::kParameterDone;) {
    const int result = keys.get(key, value);
    if (result == KFA::kParameterFailed) fail({});
    if (result == KFA::kParameterDone) values[toStr(key)] = toStr(value);
  }
  return values;
}

std::string toRepr(const KFAEnvConfig& config) {
  std::string text = "<kfa.Configuration";
  int veid = 0;
  if (config.getVeid(veid) == 0) text += " veid=" + std::to_string(veid);
  KFAEnvConfig::Text hostname;
  if (config.getHostname(hostname) == 0 && hostname.isSpecified())
    text += " hostname=" + py::repr(toStr(hostname.getValue())).cast<std::string>();
  return text + ">";
}

using Elements = std::map<std::string, std::vector<KFL::KFLMessageIterator>>;

Elements elementsOf(const KFAEnvConfig& config) {
  Elements elements;
  const KFL::KFLMessageIterator it = config.getIterator();
  for (int left = it.firstChild(); left == 0; left = it.nextSibling())
    elements[std::string(it.getName())].push_back(it);
  return elements;
}

// Whether two configurations have the same properties, whatever the order of these.
bool isEqual(const KFAEnvConfig& one, const KFAEnvConfig& two) {
  return std::ranges::equal(elementsOf(one), elementsOf(two), [](const auto& left, const auto& right) {
    return left.first == right.first &&
           std::ranges::equal(left.second, right.second,
                              [](const auto& a, const auto& b) { return a.isEqualTree(b); });
  });
}

ConfigurationPtr copy(const KFAEnvConfig& config) {
  return std::make_unique<KFAEnvConfig>(config);
}

void addProperties(py::class_<KFAEnvConfig>& type) {
  for (const Property& property : kProperties) {
    const std::string doc = std::string(property.type) + ": " + property.doc;
    const py::cpp_function get([&property](const KFAEnvConfig& config) { return property.get(config); });
    py::cpp_function set;
    if (property.set != nullptr)
      set = py::cpp_function(
          [&property](KFAEnvConfig& config, const py::object& value) {
            property.set(config, value, {nullptr, property.name});
          },
          py::is_method(type));
    type.def_property(property.name, get, set, doc.c_str());
  }
}

}  // namespace

void addConfiguration(py::module_& module) {
  py::class_<KFAEnvConfig> type(
      module, "Configuration",
      "The configuration of one environment. A property that is not specified is None.");
  type.def(py::init([] {
    auto config = std::make_unique<KFAEnvConfig>();
    config->initMsg();
    return config;
  }));
  refuseUnmade<KFAEnvConfig>();
  addProperties(type);
  const auto resources = [](const py::object& self) {
    return py::module_::import("kfa.views").attr("Resources")(self);
  };
  type.def_property(
      "resources", resources,
      [resources](const py::object& self, const py::object& values) {
        resources(self).attr("replace")(values);
      },
      "Resources: Its resource parameters, a mapping from their ids.");
  type.def("_resource", &getResource)
      .def("_set_resource", &setResource)
      .def("_remove_resource", &removeResource)
      .def("_replace_resources", &replaceResources)
      .def("_resource_ids", &listResources)
      .def("to_message", &toMessage, py::arg("pretty") = true, "The configuration as an XML message.")
      .def_static("from_message", &fromMessage, py::arg("xml"), py::arg("name") = "message",
                  "The configuration that a message holds; `name` stands for the message in errors.")
      .def("to_dict", &toDict, "The properties that are specified, as plain values: for JSON and the like.")
      .def("to_keys", &toKeys,
           "The values of the keys of an environment file, by lower-case key, as they are written.")
      .def("copy", &copy, "A configuration of its own with the same properties.")
      .def("__copy__", &copy)
      .def("__deepcopy__", [](const KFAEnvConfig& config, const py::dict&) { return copy(config); })
      .def("__eq__",
           [](const KFAEnvConfig& left, const py::object& right) -> py::object {
             if (!py::isinstance<KFAEnvConfig>(right))
               return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             const auto& other = right.cast<const KFAEnvConfig&>();
             return py::bool_(isEqual(left, other));
           })
      .def("__repr__", &toRepr)
      .def(py::pickle([](const KFAEnvConfig& config) { return toMessage(config, false); },
                      [](const Text& xml) { return fromMessage(Content(xml), "pickle"); }));
}

}  // namespace kfapy
