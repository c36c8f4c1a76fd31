// SPDX-License-Identifier: Apache-2.0
// The template cache. The interpreter is free while others have its lock.
#include <unistd.h>

#include <chrono>

#include <KFLCore/KFLFolders.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLMessageCheck.h>

#include <KFAFunctionality/templates/KFATemplateCache.h>

#include "Files.h"
#include "Records.h"

namespace kfapy {

namespace {

using KFA::KFATemplateObject;
using Prototype = KFA::KFATemplateCachePrototype;
using Item = KFL::KFLObjectItem<KFATemplateObject>;

KFATemplateObject readTemplate(const std::string& xml, const std::string& name) {
  KFL::KFLMessage message;
  if (message.parse(xml) != 0) throw Failure{name + ": " + KFL::getErrorMessage(), -1, name};
  const KFL::KFLMessageIterator root = message.getIterator();
  if (root.getName() != KFATemplateObject::kElement)
    throw Failure{
        name + ": element " + root.getPath() + ": a root named " + KFATemplateObject::kElement + " is wanted",
        -1, name};
  KFATemplateObject object;
  if (KFATemplateObject::Reader()(root, object) != 0)
    throw Failure{name + ": " + KFL::getErrorMessage(), -1, name};
  return object;
}

std::string writeTemplate(const py::object& object) {
  std::string text;
  must(Item::write(Convert<KFATemplateObject>::from(object, {nullptr, "template"}), text));
  return text;
}

class Cache {
 public:
  Cache(const py::object& path, bool create, double timeout) {
    const std::string file = path.is_none() ? KFL::getUploadsFolder() + "/template.cache"
                                            : std::string(pathOf(path, {nullptr, "path"}));
    const Unlocked unlocked;
    if (!create && ::access(file.c_str(), F_OK) != 0)
      throw Failure{file + ": cannot be opened: " + std::strerror(errno), KFL::kCacheNotMapped, file};
    cache_.reset(new Prototype(file));
    cache_->setLockTimeout(std::chrono::milliseconds(static_cast<long long>(timeout * 1000)));
    must(cache_->initialize(true, false), file);
  }

  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;
  // Lets go of the file first, so that a lock which somebody keeps does not end the interpreter.
  ~Cache() {
    const Unlocked unlocked;
    if (cache_) cache_->reinit();
    cache_.reset();
  }

  py::str path() const { return py::str(py::cast(Path(cache_->getPath()))); }

  py::list keys() {
    const Prototype::Snapshot snapshot = hold();
    py::list keys;
    for (std::uint32_t i = 0; i < snapshot.size(); ++i)
      keys.append(toStr(std::string(snapshot.getKey(i))));
    return keys;
  }

  // All of one moment, as pairs.
  py::list items() {
    const Prototype::Snapshot snapshot = hold();
    py::list items;
    for (std::uint32_t i = 0; i < snapshot.size(); ++i) {
      const std::string key(snapshot.getKey(i));
      items.append(py::make_tuple(toStr(key), read(snapshot, i, key)));
    }
    return items;
  }

  std::size_t size() { return hold().size(); }

  py::object get(const Text& key) {
    const Prototype::Snapshot snapshot = hold();
    const std::uint32_t index = snapshot.find(key);
    return index == Prototype::Snapshot::kNone ? py::object(py::none()) : read(snapshot, index, key);
  }

  // Items by key, None for those that are removed. All take effect together.
  void apply(const py::dict& items) {
    KFL::KFLCacheChanges changes;
    for (const auto& [key, object] : items) {
      const std::string name = textOf(key, {nullptr, "key"});
      if (object.is_none())
        changes.remove(name);
      else
        changes.put(name, writeTemplate(py::reinterpret_borrow<py::object>(object)));
    }
    const Unlocked unlocked;
    must(cache_->apply(changes), cache_->getPath());
  }

  void sync() {
    const Unlocked unlocked;
    must(cache_->sync(), cache_->getPath());
  }

  bool repair() {
    const Unlocked unlocked;
    bool alone = false;
    must(cache_->repair(alone), cache_->getPath());
    return alone;
  }

 private:
  Prototype::Snapshot hold() {
    const Unlocked unlocked;
    Prototype::Snapshot snapshot;
    must(cache_->hold(snapshot), cache_->getPath());
    return snapshot;
  }

  py::object read(const Prototype::Snapshot& snapshot, std::uint32_t index, const std::string& key) const {
    const std::string name = cache_->getPath() + ": item " + key;
    return Convert<KFATemplateObject>::to(readTemplate(std::string(snapshot.getText(index)), name));
  }

  boost::intrusive_ptr<Prototype> cache_;
};

}  // namespace

void addCache(py::module_& module) {
  using py::arg;
  py::class_<Cache>(module, "CacheFile")
      .def(py::init<const py::object&, bool, double>(), arg("path"), arg("create"), arg("timeout"))
      .def_property_readonly("path", &Cache::path)
      .def("keys", &Cache::keys)
      .def("items", &Cache::items)
      .def("size", &Cache::size)
      .def("get", &Cache::get)
      .def("apply", &Cache::apply)
      .def("sync", &Cache::sync)
      .def("repair", &Cache::repair);
  refuseUnmade<Cache>();
  module.def("template_id", [](const py::object& object) {
    return toStr(Convert<KFATemplateObject>::from(object, {nullptr, "template"}).getStringID());
  });
  module.def("template_to_message", [](const py::object& object) { return toStr(writeTemplate(object)); });
  module.def("template_from_message", [](const Content& xml, const Text& name) {
    return Convert<KFATemplateObject>::to(readTemplate(xml, name));
  });
}

}  // namespace kfapy
