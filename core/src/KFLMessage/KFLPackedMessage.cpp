// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLPackedMessage.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLXMLReader.h>
#include <KFLMessage/KFLXMLWriter.h>

namespace KFL {

namespace {

using Spelling = std::uint32_t;  // a place in the table of spellings, from 1; 0 is none

// What stands before an element: its spelling above these two bits. Without a spelling it is no element.
constexpr std::uint32_t kIsRich = 1;  // namespace, type and attributes follow
constexpr std::uint32_t kHoldsElements = 2;
constexpr std::uint32_t kHeadBits = 2;
constexpr std::uint32_t kEnd = 0;
constexpr std::uint32_t kText = 1;

constexpr std::string_view kXmlns = "xmlns";

// --- Packing --------------------------------------------------------------------------------------------------------

class Packer {
 public:
  Packer(const KFLMessageTree& tree, std::string& out) : tree_(tree), out_(out) {}

  // False when something in the tree cannot stand in a message.
  bool pack() {
    if (!packNodes()) return false;
    out_.push_back(kPackedMark);
    putNumber(out_, spellings_.size());
    for (const std::string_view spelling : spellings_)
      putText(out_, spelling);
    out_ += nodes_;
    return true;
  }

 private:
  static constexpr KFLNodeIndex kRoot = KFLMessageTree::kRoot;
  static constexpr KFLNodeIndex kNone = KFLMessageTree::kNone;

  static void putNumber(std::string& to, std::size_t number) {
    for (; number >= 0x80; number >>= 7U)
      to.push_back(static_cast<char>(number | 0x80));
    to.push_back(static_cast<char>(number));
  }
  static void putText(std::string& to, std::string_view text) {
    putNumber(to, text.size());
    to += text;
  }
  void putNumber(std::size_t number) { putNumber(nodes_, number); }

  bool packNodes() {
    for (KFLNodeIndex index = kRoot;;) {
      if (!packNode(index)) return false;
      if (const KFLNodeIndex first = tree_.at(index).first; first != kNone) {
        index = first;
        continue;
      }
      while (index != kRoot && tree_.at(index).next == kNone) {
        index = tree_.at(index).parent;
        putNumber(kEnd);
      }
      if (index == kRoot) return true;
      index = tree_.at(index).next;
    }
  }

  bool packNode(KFLNodeIndex index) {
    const KFLMessageNode& node = tree_.at(index);
    const std::string_view text = KFLMessageTree::textOf(node);
    if (faultOfXmlText(text) != nullptr) return false;
    if (tree_.isText(index)) {
      putNumber(kText);
      putText(nodes_, text);
      return true;
    }
    const std::uint32_t ns = tree_.effectiveNamespace(index);
    const std::uint32_t nsAbove = index == kRoot ? 0 : tree_.effectiveNamespace(node.parent);
    const bool isRich = ns != nsAbove || node.type != 0 || node.hasAttributes;
    const Spelling name = node.name != 0 ? spellName(node.name) : spellRoot();
    if (name == 0) return false;
    putNumber(name << kHeadBits | (isRich ? kIsRich : 0U) | (node.first != kNone ? kHoldsElements : 0U));
    if (isRich && !packRich(index, node, ns)) return false;
    putText(nodes_, text);
    return true;
  }

  bool packRich(KFLNodeIndex index, const KFLMessageNode& node, std::uint32_t ns) {
    if (!putNamespace(ns)) return false;
    if (node.type == 0) {
      putNumber(0);
    } else {
      const KFLMessageTree::Type type = tree_.type(node.type);
      const Spelling tag = spellName(type.tag);
      if (tag == 0) return false;
      putNumber(tag);
      if (!putNamespace(type.ns)) return false;
    }
    const KFLMessageAttributes* const attributes = node.hasAttributes ? tree_.attributes(index) : nullptr;
    putNumber(attributes == nullptr ? 0 : attributes->size());
    return attributes == nullptr ||
           std::all_of(attributes->begin(), attributes->end(), [this](const auto& one) {
             const Spelling name = spellName(one.name);
             putNumber(name);
             if (name == 0 || !putNamespace(one.ns) || faultOfXmlText(one.value) != nullptr) return false;
             putText(nodes_, one.value);
             return true;
           });
  }

  bool putNamespace(std::uint32_t ns) {
    Spelling spelling = 0;
    if (ns != 0) {
      if (ofNamespaces_.size() <= ns) ofNamespaces_.resize(tree_.namespaceCount() + 1);
      const std::string_view uri = tree_.namespaceText(ns);
      if (ofNamespaces_[ns] == 0) {
        if (uri == kXmlnsNamespace || faultOfXmlText(uri) != nullptr) return false;
        ofNamespaces_[ns] = spell(uri);
      }
      spelling = ofNamespaces_[ns];
    }
    putNumber(spelling);
    return true;
  }

  // 0 for what is no name in XML.
  Spelling spellName(std::uint32_t name) {
    if (ofNames_.size() <= name)
      ofNames_.resize(std::max<std::size_t>(name + 1, KFLMessageTree::kLastFixedName + 33));
    Spelling& spelling = ofNames_[name];
    if (spelling == 0 && tree_.isXmlName(name)) spelling = spell(tree_.nameText(name));
    return spelling;
  }
  Spelling spellRoot() {
    const std::string_view name = tree_.effectiveName(kRoot);
    return isXmlName(name) ? spell(name) : 0;
  }
  Spelling spell(std::string_view text) {
    spellings_.push_back(text);
    return static_cast<Spelling>(spellings_.size());
  }

  const KFLMessageTree& tree_;
  std::string& out_;
  std::string nodes_;
  std::vector<std::string_view> spellings_;
  std::vector<Spelling> ofNames_;  // by the numbers of the tree
  std::vector<Spelling> ofNamespaces_;
};

// --- Unpacking ------------------------------------------------------------------------------------------------------

class Unpacker {
 public:
  Unpacker(std::string_view packed, KFLMessageTree& tree) : packed_(packed), tree_(tree) {}

  int unpack() {
    if (unpackAll()) return 0;
    setErrorMessage("byte %zu: %s", at_, fault_);
    return -1;
  }

 private:
  static constexpr KFLNodeIndex kNone = KFLMessageTree::kNone;

  struct Known {
    std::string_view text;
    std::uint32_t name = 0;  // in the tree, once it was asked for
    std::uint32_t ns = 0;
  };

  bool refuse(const char* fault) {
    fault_ = fault;
    return false;
  }

  bool unpackAll() {
    if (!packed_.starts_with(kPackedMark))
      return refuse("this is no packed message, which begins with the byte 1");
    at_ = 1;
    if (!unpackSpellings()) return false;
    do {
      if (!unpackNode()) return false;
    } while (depth_ != 0);
    return at_ == packed_.size() || refuse("something follows the root element; a message is one element");
  }

  bool takeNumber(std::uint32_t& number) {
    number = 0;
    for (std::uint32_t shift = 0; at_ < packed_.size(); shift += 7) {
      const auto byte = static_cast<unsigned char>(packed_[at_]);
      if (shift == 28 && byte > 0x0F) return refuse("a number has more than 32 bits");
      ++at_;
      number |= (byte & 0x7FU) << shift;
      if (byte < 0x80) return true;
    }
    return refuse("the message ends within a number");
  }
  bool takeBytes(std::string_view& bytes) {
    std::uint32_t size = 0;
    if (!takeNumber(size)) return false;
    if (size > packed_.size() - at_) return refuse("the message ends within a text");
    bytes = packed_.substr(at_, size);
    at_ += size;
    return true;
  }
  bool takeText(std::string_view& text) {
    if (!takeBytes(text)) return false;
    const char* const fault = faultOfXmlText(text);
    return fault == nullptr || refuse(fault);
  }

  bool unpackSpellings() {
    std::uint32_t count = 0;
    if (!takeNumber(count)) return false;
    if (count > (packed_.size() - at_) / 2) return refuse("the message ends within its spellings");
    known_.resize(count + 1);
    for (std::uint32_t i = 1; i <= count; ++i) {
      if (!takeText(known_[i].text)) return false;
      if (known_[i].text.empty()) return refuse("a spelling is empty");
    }
    return true;
  }

  bool takeSpelling(Spelling& spelling) {
    return takeNumber(spelling) && (spelling < known_.size() || refuse("the message has no such spelling"));
  }
  bool takeName(Spelling spelling, std::uint32_t& name) {
    if (spelling == 0 || spelling >= known_.size()) return refuse("the message has no such spelling");
    Known& known = known_[spelling];
    if (known.name == 0) {
      known.name = tree_.internName(known.text);
      if (!tree_.isXmlName(known.name)) return refuse("a name is none in XML");
    }
    name = known.name;
    return true;
  }
  bool takeNamespace(std::uint32_t& ns) {
    Spelling spelling = 0;
    if (!takeSpelling(spelling)) return false;
    Known& known = known_[spelling];
    if (known.ns == 0 && spelling != 0) {
      if (known.text == kXmlnsNamespace)
        return refuse("a namespace is XML's own; another one would be right");
      known.ns = tree_.internNamespace(known.text);
    }
    ns = known.ns;
    return true;
  }

  bool unpackNode() {
    std::uint32_t head = 0;
    if (!takeNumber(head)) return false;
    if (head >> kHeadBits != 0) return unpackElement(head);
    if (depth_ == 0) return refuse("there is no root element; a message is one element");
    if (head == kEnd) {
      current_ = tree_.at(current_).parent;
      --depth_;
      return true;
    }
    if (head != kText) return refuse("this is neither an element nor a text nor an end");
    std::string_view text;
    if (!takeText(text)) return false;
    if (!isBlankText(text)) tree_.appendMixedText(current_, text);
    return true;
  }

  bool unpackElement(std::uint32_t head) {
    if (depth_ == kDeepestElement) return refuse("elements are nested too deeply; 256 levels are taken");
    std::uint32_t name = 0;
    if (!takeName(head >> kHeadBits, name)) return false;
    KFLNodeIndex element = KFLMessageTree::kRoot;
    if (depth_ == 0) {
      tree_.at(element).name = name & 0x7FFFFFFFU;
    } else {
      element = tree_.append(current_, name, tree_.at(current_).ns);
    }
    if ((head & kIsRich) && !unpackRich(element)) return false;
    std::string_view text;
    if (!takeText(text)) return false;
    const bool holdsElements = (head & kHoldsElements) != 0;
    if (!text.empty() && !(holdsElements && isBlankText(text))) tree_.setText(element, text);
    if (holdsElements) {
      current_ = element;
      ++depth_;
    }
    return true;
  }

  bool unpackRich(KFLNodeIndex element) {
    std::uint32_t ns = 0;
    if (!takeNamespace(ns)) return false;
    tree_.at(element).ns = ns;
    Spelling tag = 0;
    if (!takeSpelling(tag)) return false;
    if (tag != 0) {
      KFLMessageTree::Type type;
      if (!takeName(tag, type.tag) || !takeNamespace(type.ns)) return false;
      tree_.at(element).type = tree_.internType(type);
    }
    std::uint32_t count = 0;
    if (!takeNumber(count)) return false;
    KFLMessageAttributes attributes;
    for (; count != 0; --count) {
      if (!unpackAttribute(attributes)) return false;
    }
    if (hasTwins(attributes)) return refuse("an attribute stands twice; each stands once in an element");
    tree_.setAttributes(element, std::move(attributes));
    return true;
  }

  static bool hasTwins(const KFLMessageAttributes& attributes) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> names;
    for (const KFLMessageAttribute& one : attributes)
      names.emplace_back(one.ns, one.name);
    std::sort(names.begin(), names.end());
    return std::adjacent_find(names.begin(), names.end()) != names.end();
  }
  bool unpackAttribute(KFLMessageAttributes& attributes) {
    KFLMessageAttribute one{};
    Spelling spelling = 0;
    std::string_view value;
    if (!takeSpelling(spelling) || !takeName(spelling, one.name) || !takeNamespace(one.ns) ||
        !takeText(value))
      return false;
    const std::string_view name = tree_.nameText(one.name);
    const bool isOwn =
        (one.ns == 0 && name == kXmlns) || (name == "type" && tree_.namespaceText(one.ns) == kXsiNamespace);
    if (isOwn) return refuse("an attribute is XML's own; another name would be right");
    one.value = value;
    attributes.push_back(std::move(one));
    return true;
  }

  std::string_view packed_;
  std::size_t at_ = 0;
  KFLMessageTree& tree_;
  std::vector<Known> known_;
  KFLNodeIndex current_ = kNone;
  std::size_t depth_ = 0;
  const char* fault_ = "";
};

}  // namespace

int packTree(const KFLMessageTree& tree, std::string& out) {
  out.clear();
  try {
    if (Packer(tree, out).pack()) return 0;
    // The text's writer refuses the same, and says what it is.
    if (writeXml(tree, KFLMessageTree::kRoot, KFLXMLLayout::Compact, out) != 0) return -1;
    setErrorMessage("the message has no packed form");
  } catch (...) {
    out.clear();
    throw;
  }
  out.clear();
  return -1;
}

int unpackTree(std::string_view packed, KFLMessageTree& tree) {
  return Unpacker(packed, tree).unpack();
}

}  // namespace KFL
