// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLMessageIterator.h>

#include <array>
#include <charconv>
#include <utility>

#include <KFLCommon/KFLCheck.h>
#include <KFLCommon/KFLClassName.h>
#include <KFLCommon/KFLError.h>
#include <KFLCommon/KFLText.h>
#include <KFLMessage/KFLMessageTree.h>
#include <KFLMessage/KFLRootName.h>
#include <KFLMessage/KFLTagVocabulary.h>
#include <KFLMessage/KFLXMLWriter.h>

namespace KFL {

KFLMessageIterator::KFLMessageIterator(boost::intrusive_ptr<KFLMessageTree> tree, std::uint32_t element)
    : tree_(std::move(tree)), element_(element) {}

// --- Namespace and type ---------------------------------------------------------------------------------------------

void KFLMessageIterator::selectNamespace(std::string_view uri) {
  if (tree_) namespace_ = tree_->internNamespace(uri);
}

void KFLMessageIterator::selectNamespaceId(int id) {
  if (id == 0) {
    namespace_ = 0;
  } else {
    selectNamespace(namespaceName(id));
  }
}

void KFLMessageIterator::setTypeByName(std::string_view namespaceUri, std::string_view tag) {
  if (!tree_ || tag.empty() || tree_->at(element_).type != 0) return;
  const KFLMessageTree::Type type{tree_->internNamespace(namespaceUri), tree_->internName(tag)};
  tree_->at(element_).type = tree_->internType(type);
}

void KFLMessageIterator::setTypeById(int namespaceId, int typeId) {
  setTypeByName(namespaceName(namespaceId), typeName(typeId));
}

void KFLMessageIterator::setItemNSType(int namespaceId) {
  const std::string_view uri = namespaceName(namespaceId);
  if (tree_ && !uri.empty()) tree_->at(element_).ns = tree_->internNamespace(uri);
}

void KFLMessageIterator::getTypeName(std::string& out) const {
  out = getTypeNamespace();
  if (!out.empty()) out += ':';
  out += getTypeTag();
}

std::string_view KFLMessageIterator::getTypeTag() const {
  return tree_ ? tree_->nameText(tree_->type(tree_->at(element_).type).tag) : std::string_view();
}

std::string_view KFLMessageIterator::getTypeNamespace() const {
  return tree_ ? tree_->namespaceText(tree_->type(tree_->at(element_).type).ns) : std::string_view();
}

void KFLMessageIterator::completeRoot(int namespaceId, std::string_view namespaceUri,
                                      const std::type_info* untyped) {
  if (element_ != KFLMessageTree::kRoot || !tree_->isRootOpen()) return;
  KFLMessageNode& root = tree_->at(element_);
  if (root.name == 0 && root.type == 0 && untyped != nullptr)
    root.name = tree_->internName(std::string_view(rootNameOf(shortClassNameOf(*untyped)))) & 0x7FFFFFFFU;
  if (namespaceId != 0) namespaceUri = namespaceName(namespaceId);
  if (namespaceUri.empty()) return;
  root.ns = tree_->internNamespace(namespaceUri);
  tree_->closeRoot();
}

// --- Moving ---------------------------------------------------------------------------------------------------------

int KFLMessageIterator::moveTo(std::uint32_t element) const {
  if (element == KFLMessageTree::kNone) return -1;
  element_ = element;
  return 0;
}

int KFLMessageIterator::findChild(KFLElementID id) const {
  const std::uint32_t name = findNameKey(id);
  return name == 0 ? -1 : moveTo(tree_->findChild(element_, name));
}

int KFLMessageIterator::findNextChild(KFLElementID id) const {
  const std::uint32_t name = findNameKey(id);
  return name == 0 ? -1 : moveTo(tree_->findNext(element_, name));
}

int KFLMessageIterator::firstChild() const {
  return tree_ ? moveTo(tree_->firstElement(element_)) : -1;
}

int KFLMessageIterator::nextSibling() const {
  return tree_ ? moveTo(tree_->nextElement(element_)) : -1;
}

void KFLMessageIterator::leaveChild() const {
  if (tree_) moveTo(tree_->at(element_).parent);
}

bool KFLMessageIterator::hasChild(KFLElementID id) const {
  const std::uint32_t name = findNameKey(id);
  return name != 0 && tree_->findChild(element_, name) != KFLMessageTree::kNone;
}

// --- Changing -------------------------------------------------------------------------------------------------------

// Whether addChild() takes the id.
bool KFLMessageIterator::canBeAdded(KFLElementID id) const {
  return id.number() != 0 ? tagPosition(id.number()) != 0 : !id.isEmpty();
}

std::uint32_t KFLMessageIterator::insertChild(KFLElementID id) {
  const std::uint32_t name = tree_->internName(id);
  KFL_CHECK(name != 0, "KFLMessage", "KFLMessageIterator");
  std::uint32_t ns = namespace_;
  if (ns == 0 && element_ == scopeElement_) ns = scopeNamespace_;
  if (ns == 0) ns = tree_->defaultNamespaceBelow(element_);
  return tree_->insert(element_, name, ns, insertParent_ == element_ ? insertBefore_ : KFLMessageTree::kNone);
}

void KFLMessageIterator::addChild(KFLElementID id) {
  if (tree_) element_ = insertChild(id);
}

int KFLMessageIterator::addEmptyChild(KFLElementID id) {
  if (!tree_ || !canBeAdded(id)) return failToAdd(id);
  insertChild(id);
  return 0;
}

void KFLMessageIterator::removeCurrent() {
  if (!tree_) return;
  if (element_ == KFLMessageTree::kRoot) return tree_->clear(element_);
  const std::uint32_t parent = tree_->at(element_).parent;
  tree_->remove(element_);
  element_ = parent;
}

KFLMessageIterator KFLMessageIterator::childOf(KFLElementID id) const {
  if (!hasChild(id)) return {};
  return {tree_, elementOf(id)};
}

void KFLMessageIterator::removeElement(const KFLMessageIterator& child) {
  if (child.tree_ && child.tree_ == tree_) tree_->remove(child.element_);
}

std::size_t KFLMessageIterator::removeChildren(KFLElementID id) {
  const std::uint32_t name = findNameKey(id);
  return name == 0 ? 0 : tree_->removeChildren(element_, name);
}

void KFLMessageIterator::clear() {
  if (tree_) tree_->clear(element_);
}

void KFLMessageIterator::setInsertionPoint(const KFLMessageIterator& sibling) {
  insertParent_ = element_;
  insertBefore_ = sibling.element_;
}

void KFLMessageIterator::clearInsertionPoint() {
  insertParent_ = insertBefore_ = KFLMessageTree::kNone;
}

// --- Values ---------------------------------------------------------------------------------------------------------

int KFLMessageIterator::putText(std::string_view text, KFLElementID id) {
  if (!tree_ || (!id.isEmpty() && !canBeAdded(id))) return failToAdd(id);
  if (id.isEmpty())
    tree_->setText(element_, text);
  else
    tree_->setFirstText(insertChild(id), text);
  return 0;
}

int KFLMessageIterator::putInteger(long long value, KFLElementID id) {
  std::array<char, 24> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  return putText({digits.data(), static_cast<std::size_t>(end - digits.data())}, id);
}

std::uint32_t KFLMessageIterator::elementOf(KFLElementID id) const {
  if (!tree_) return KFLMessageTree::kNone;
  if (id.isEmpty()) return element_;
  const std::uint32_t name = tree_->findName(id);
  return name == 0 ? KFLMessageTree::kNone : tree_->findChild(element_, name);
}

bool KFLMessageIterator::getTextOf(KFLElementID id, std::string_view& text) const {
  const std::uint32_t element = elementOf(id);
  if (element == KFLMessageTree::kNone) return false;
  text = tree_->text(element);
  return true;
}

int KFLMessageIterator::findValue(std::string& value, KFLElementID id) const {
  std::string_view text;
  if (!getTextOf(id, text)) return 1;
  value.assign(text);
  return 0;
}

int KFLMessageIterator::findValue(bool& value, KFLElementID id) const {
  std::string_view text;
  if (!getTextOf(id, text)) return 1;
  const bool isTrue = text == "true" || text == "1";
  if (!isTrue && text != "false" && text != "0")
    return failAt(id, "'" + std::string(text) + "' is no truth value; true or false is wanted");
  value = isTrue;
  return 0;
}

int KFLMessageIterator::findInteger(long long& value, const IntegerRange& range, KFLElementID id) const {
  std::string_view text;
  if (!getTextOf(id, text)) return 1;
  long long wide = 0;
  if (parseInteger(text, wide) == 0 && wide >= range.least && wide <= range.most) {
    value = wide;
    return 0;
  }
  return failAt(id, "'" + std::string(text) + "' is no " + std::to_string(range.bits) +
                        "-bit number; one from " + std::to_string(range.least) + " to " +
                        std::to_string(range.most) + " is wanted");
}

bool KFLMessageIterator::isEmptyElement() const {
  if (!tree_) return true;
  const KFLMessageNode& node = tree_->at(element_);
  return node.textSize == 0 && node.first == KFLMessageTree::kNone;
}

// --- What stands here -----------------------------------------------------------------------------------------------

std::string_view KFLMessageIterator::getName() const {
  return tree_ ? tree_->nameText(tree_->at(element_).name) : std::string_view();
}

std::string_view KFLMessageIterator::getNamespace() const {
  return tree_ ? tree_->namespaceText(tree_->at(element_).ns) : std::string_view();
}

std::string_view KFLMessageIterator::getText() const {
  return tree_ ? tree_->text(element_) : std::string_view();
}

void KFLMessageIterator::setName(std::string_view name, std::string_view namespaceUri) {
  if (!tree_) return;
  const std::uint32_t number = tree_->internName(name);
  const std::uint32_t ns = tree_->internNamespace(namespaceUri);
  tree_->at(element_).name = number & 0x7FFFFFFFU;
  tree_->at(element_).ns = ns;
  tree_->noteChange();
  if (element_ == KFLMessageTree::kRoot) tree_->closeRoot();
}

std::uint32_t KFLMessageIterator::getNameKey() const {
  return tree_ ? tree_->at(element_).name : 0;
}

std::uint32_t KFLMessageIterator::findNameKey(KFLElementID id) const {
  return tree_ && !id.isEmpty() ? tree_->findName(id) : 0;
}

std::string KFLMessageIterator::getPath() const {
  return tree_ ? tree_->path(element_) : std::string();
}

bool KFLMessageIterator::isSameElement(const KFLMessageIterator& other) const {
  return tree_ == other.tree_ && element_ == other.element_;
}

std::size_t KFLMessageIterator::countChildren() const {
  std::size_t count = 0;
  if (!tree_) return count;
  for (auto child = tree_->firstElement(element_); child != KFLMessageTree::kNone;
       child = tree_->nextElement(child))
    ++count;
  return count;
}

int KFLMessageIterator::getAttribute(std::size_t index, std::string& namespaceUri, std::string& name,
                                     std::string& value) const {
  const KFLMessageAttributes* const attributes = tree_ ? tree_->attributes(element_) : nullptr;
  if (attributes == nullptr || index >= attributes->size()) return -1;
  const KFLMessageAttribute& attribute = (*attributes)[index];
  namespaceUri = tree_->namespaceText(attribute.ns);
  name = tree_->nameText(attribute.name);
  value = attribute.value;
  return 0;
}

// --- Whole subtrees -------------------------------------------------------------------------------------------------

int KFLMessageIterator::copyContent(const KFLMessageIterator& source) {
  if (!tree_ || !source.tree_) return fail("nothing can be copied");
  tree_->copyContent(element_, *source.tree_, source.element_);
  return 0;
}

int KFLMessageIterator::print(std::string& out) const {
  if (tree_) return writeXml(*tree_, element_, KFLXMLLayout::Compact, out);
  out.clear();
  return fail("nothing can be printed");
}

bool KFLMessageIterator::isEqualTree(const KFLMessageIterator& other) const {
  if (!tree_ || !other.tree_) return tree_ == other.tree_;
  return tree_->isEqual(element_, *other.tree_, other.element_);
}

// --- Refusing -------------------------------------------------------------------------------------------------------

int KFLMessageIterator::fail(std::string_view reason) const {
  const std::string text(reason);
  if (tree_)
    setErrorMessage("%s: %s", getPath().c_str(), text.c_str());
  else
    setErrorMessage("the cursor stands on no element, so %s", text.c_str());
  return -1;
}

int KFLMessageIterator::failAt(KFLElementID id, std::string_view reason) const {
  const std::uint32_t element = elementOf(id);
  return element == KFLMessageTree::kNone ? failMissing(id) : KFLMessageIterator(tree_, element).fail(reason);
}

int KFLMessageIterator::failMissing(KFLElementID id) const {
  if (id.isEmpty() || !tree_) return fail("nothing can be read");
  if (!canBeAdded(id)) return failToAdd(id);
  const std::string_view name = id.number() != 0 ? tagName(id.number()) : id.name();
  return fail("element " + std::string(name) + " is missing");
}

int KFLMessageIterator::failTooLarge(KFLElementID id) const {
  const std::string_view name = id.number() != 0 ? tagName(id.number()) : id.name();
  return fail((name.empty() ? "a number" : "the number of " + std::string(name)) +
              std::string(" is beyond 9223372036854775807, which a message cannot carry"));
}

// Says why no child with this id can be made.
int KFLMessageIterator::failToAdd(KFLElementID id) const {
  if (!tree_) return fail("nothing can be written");
  if (id.isEmpty()) return fail("an element without a name cannot be added");
  return fail("the vocabulary has no element " + std::to_string(id.number()));
}

// --- Guards ---------------------------------------------------------------------------------------------------------

KFLWriteGuard::KFLWriteGuard(KFLMessageIterator& it)
    : it_(it),
      namespace_(it.namespace_),
      insertParent_(it.insertParent_),
      insertBefore_(it.insertBefore_),
      scopeElement_(it.scopeElement_),
      scopeNamespace_(it.scopeNamespace_) {
  if (it.tree_)
    mark_ = it.tree_->mark(it.element_, insertParent_ == it.element_ ? insertBefore_ : KFLMessageTree::kNone);
  else
    isKept_ = true;
}

void KFLWriteGuard::keep() {
  if (!isKept_) it_.tree_->forget(mark_);
  isKept_ = true;
}

void KFLWriteGuard::undo() noexcept {
  it_.tree_->undo(mark_);
  it_.tree_->noteChange();
  it_.element_ = mark_.element;
  it_.namespace_ = namespace_;
  it_.insertParent_ = insertParent_;
  it_.insertBefore_ = insertBefore_;
  it_.scopeElement_ = scopeElement_;
  it_.scopeNamespace_ = scopeNamespace_;
}

KFLContentGuard::KFLContentGuard(const KFLMessageIterator& it) : tree_(it.tree_), element_(it.element_) {
  if (!tree_) return;
  copy_ = tree_->copyApart(element_);
  removed_ = static_cast<std::uint32_t>(tree_->removedCount());
}

KFLContentGuard::~KFLContentGuard() {
  if (!tree_) return;
  if (!isKept_) {
    tree_->putBack(removed_);
    tree_->swapContent(element_, copy_);
  }
  tree_->freeApart(copy_);
}

// --- Holds ----------------------------------------------------------------------------------------------------------

KFLElementHold::KFLElementHold(const KFLMessageIterator& it) {
  if (!it.tree_ || it.element_ == KFLMessageTree::kRoot) return;
  tree_ = it.tree_;
  element_ = it.element_;
  tree_->hold(element_);
}

KFLElementHold& KFLElementHold::operator=(KFLElementHold&& other) noexcept {
  if (this == &other) return *this;
  release();
  tree_ = std::move(other.tree_);
  element_ = other.element_;
  return *this;
}

void KFLElementHold::release() {
  if (tree_) tree_->release(element_);
  tree_.reset();
}

}  // namespace KFL
