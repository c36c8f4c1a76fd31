// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLMessage.h>

#include <atomic>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessageTree.h>
#include <KFLMessage/KFLPackedMessage.h>
#include <KFLMessage/KFLXMLReader.h>
#include <KFLMessage/KFLXMLWriter.h>

namespace KFL {

namespace {

std::atomic<std::size_t> sizeLimit{std::size_t{256} << 20U};

}  // namespace

KFLMessage::KFLMessage() = default;

KFLMessage::KFLMessage(const std::string& rootName) {
  KFLMessageTree& fresh = tree();
  fresh.at(KFLMessageTree::kRoot).name = fresh.internName(std::string_view(rootName)) & 0x7FFFFFFFU;
}

KFLMessage::KFLMessage(const KFLMessage& other) {
  *this = other;
}

KFLMessage::KFLMessage(KFLMessage&& other) noexcept = default;

KFLMessage& KFLMessage::operator=(const KFLMessage& other) {
  if (this == &other) return *this;
  const boost::intrusive_ptr<KFLMessageTree> copy(new KFLMessageTree);
  const KFLMessageNode& root = other.tree().at(KFLMessageTree::kRoot);
  const std::uint32_t name = copy->internName(other.tree().nameText(root.name));
  copy->at(KFLMessageTree::kRoot).name = name & 0x7FFFFFFFU;
  copy->at(KFLMessageTree::kRoot).ns = copy->internNamespace(other.tree().namespaceText(root.ns));
  if (!other.tree().isRootOpen()) copy->closeRoot();
  copy->copyContent(KFLMessageTree::kRoot, other.tree(), KFLMessageTree::kRoot);
  tree_ = copy;
  return *this;
}

KFLMessage& KFLMessage::operator=(KFLMessage&& other) noexcept = default;

KFLMessage::~KFLMessage() = default;

KFLMessageTree& KFLMessage::tree() const {
  if (!tree_) tree_.reset(new KFLMessageTree);
  return *tree_;
}

int KFLMessage::parse(const std::string& xml) {
  if (xml.size() > getSizeLimit()) {
    setErrorMessage("line 1, column 1: the text has %zu bytes; at most %zu are taken", xml.size(),
                    getSizeLimit());
    return -1;
  }
  const boost::intrusive_ptr<KFLMessageTree> fresh(new KFLMessageTree);
  if (readXml(xml, *fresh) != 0) return -1;
  fresh->closeRoot();
  tree_ = fresh;
  return 0;
}

std::string KFLMessage::toString() const {
  std::string out;
  print(out);
  return out;
}

std::string KFLMessage::toPrettyString() const {
  std::string out;
  writeXml(tree(), KFLMessageTree::kRoot, KFLXMLLayout::Indented, out);
  return out;
}

int KFLMessage::print(std::string& out) const {
  return writeXml(tree(), KFLMessageTree::kRoot, KFLXMLLayout::Compact, out);
}

int KFLMessage::pack(std::string& out) const {
  return packTree(tree(), out);
}

int KFLMessage::unpack(std::string_view packed) {
  if (packed.size() > getSizeLimit()) {
    setErrorMessage("byte 0: there are %zu bytes; at most %zu are taken", packed.size(), getSizeLimit());
    return -1;
  }
  const boost::intrusive_ptr<KFLMessageTree> fresh(new KFLMessageTree);
  if (unpackTree(packed, *fresh) != 0) return -1;
  fresh->closeRoot();
  tree_ = fresh;
  return 0;
}

bool KFLMessage::isPacked(std::string_view bytes) {
  return bytes.starts_with(kPackedMark);
}

KFLMessageIterator KFLMessage::getIterator() {
  return {&tree(), KFLMessageTree::kRoot};
}

const KFLMessageIterator KFLMessage::getIterator() const {  // NOLINT(readability-const-return-type)
  return {&tree(), KFLMessageTree::kRoot};
}

void KFLMessage::setSizeLimit(std::size_t bytes) {
  sizeLimit.store(bytes, std::memory_order_relaxed);
}

std::size_t KFLMessage::getSizeLimit() {
  return sizeLimit.load(std::memory_order_relaxed);
}

std::size_t KFLMessage::memoryUsed() const {
  return tree_ ? tree_->memoryUsed() : 0;
}

}  // namespace KFL
