// SPDX-License-Identifier: Apache-2.0
#include <KFLFunctionality/KFLEnvConfig.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>
#include <typeinfo>
#include <utility>

#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLEnvCoreBasic.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordElements.h>
#include <KFLMessage/KFLRecordRegistry.h>
#include <KFLMessage/KFLTagIndex.h>

KFL_DERIVED_REGISTRY(KFL::KFLEnvConfig)

namespace KFL {

static const KFLRecordRegistration<KFLEnvConfig> recordKFLEnvConfig("KFLEnvConfig");

namespace {

// The properties in the order of their elements.
constexpr int kName = 1026;
constexpr int kDescription = 1496;
constexpr const char* kHostname = "hostname";
constexpr int kAddress = 1652;
constexpr int kNameserver = 1281;
constexpr const char* kSearchDomain = "search_domain";
constexpr const char* kArchitecture = "architecture";
constexpr const char* kOS = "os";
constexpr const char* kType = "type";

constexpr KFLField kElements[] = {
    element<std::string>(kName),           element<std::string>(kDescription),
    element<std::string>(kHostname),       elementList<KFLIPAddress>(kAddress),
    elementList<std::string>(kNameserver), elementList<std::string>(kSearchDomain),
    element<std::string>(kArchitecture),   element<KFLOS>(kOS),
    element<std::string>(kType),
};

std::string_view nameOf(KFLElementID id) {
  return id.number() != 0 ? tagName(id.number()) : id.name();
}

}  // namespace

// --- The message -------------------------------------------------------------------------------------------

KFLEnvConfig::KFLEnvConfig(const KFLMessageIterator* it, EnvConfigType kind) : kind_(kind) {
  if (it != nullptr) bind(*it);
}

KFLEnvConfig::~KFLEnvConfig() = default;

void KFLEnvConfig::bind(const KFLMessageIterator& it) {
  KFLElementHold hold(it);
  it_ = it;
  it_.clearInsertionPoint();
  it_.selectNamespaceId(0);
  hold_ = std::move(hold);
}

int KFLEnvConfig::failWithoutMessage() {
  setErrorMessage("the configuration has no message; what is set makes one");
  return -1;
}

KFLEnvConfig::KFLEnvConfig(const boost::shared_ptr<KFLEnvCoreBasic>& core)
    : KFLEnvConfig(core ? &core->virtualConfig : nullptr, EnvConfigVirtual) {}

KFLEnvConfig::KFLEnvConfig(const KFLEnvConfig& other) : kind_(other.kind_) {
  if (!other.hasMsg()) return;
  initMsg();
  it_.copyContent(other.it_);
}

KFLEnvConfig& KFLEnvConfig::operator=(const KFLEnvConfig& other) {
  if (this != &other) *this = KFLEnvConfig(other);
  return *this;
}

void KFLEnvConfig::initMsg() {
  if (!hasMsg()) it_ = KFLMessage().getIterator();
}

int KFLEnvConfig::Writer::operator()(KFLMessageIterator& it, const KFLEnvConfig& config) const {
  return config.hasMsg() ? it.copyContent(config.it_) : 0;
}

int KFLEnvConfig::Reader::operator()(const KFLMessageIterator& it, KFLEnvConfig& config) const {
  if (!it.isValid()) return it.fail("there is no configuration to read");
  config.bind(it);
  return 0;
}

// --- Order of the elements ---------------------------------------------------------------------------------

int KFLEnvConfig::getPositionOfTheTag(const std::string& tag) const {
  const auto* const found =
      std::ranges::find_if(kElements, [&tag](const KFLField& row) { return row.elementName() == tag; });
  return found == std::end(kElements) ? -1 : static_cast<int>(found - std::begin(kElements));
}

const KFLFieldTable& KFLEnvConfig::elements() {
  static constexpr auto table =
      KFLFieldTable{"KFLEnvConfig", kTypesNamespaceURI, "env_configType", kElements}.inAnyOrder();
  return table;
}

KFLEnvConfig::Placement::Placement(KFLEnvConfig& config, const KFLEnvProperty& property)
    : it_(prepare(config, property)), scope_(it_) {}

KFLMessageIterator& KFLEnvConfig::Placement::prepare(KFLEnvConfig& config, const KFLEnvProperty& property) {
  const KFLMessageIterator place = config.findPlace(property.id);
  config.it_.selectNamespace(property.uri);
  if (place.isValid()) config.it_.setInsertionPoint(place);
  return config.it_;
}

KFLEnvConfig::Placement::~Placement() {
  it_.clearInsertionPoint();
  it_.selectNamespaceId(0);
}

// One object for each class of configurations, filled as names are met, kept for good. The names that every
// tree knows have the same key in each; any other name is asked for anew.
class KFLEnvConfig::Ranks {
 public:
  explicit Ranks(const std::type_info& type) : type_(&type), typeName_(type.name()) {}

  bool isOf(const std::type_info& type) const { return type_ == &type; }

  // Those of the class.
  static Ranks& find(const std::type_info& type) {
    static std::atomic<Ranks*> first{nullptr};
    for (;;) {
      Ranks* const known = first.load(std::memory_order_acquire);
      for (Ranks* ranks = known; ranks != nullptr; ranks = ranks->next_) {
        // The address alone may have been that of a class whose library is gone.
        if (ranks->isOf(type) && ranks->typeName_ == type.name()) return *ranks;
      }
      auto fresh = std::make_unique<Ranks>(type);
      fresh->next_ = known;
      Ranks* expected = known;
      if (first.compare_exchange_strong(expected, fresh.get(), std::memory_order_release,
                                        std::memory_order_relaxed))
        return *fresh.release();
    }
  }

  int get(const KFLEnvConfig& config, std::uint32_t key, KFLElementID id) {
    if (key == 0 || key >= kTagPositionLimit) return ask(config, id);
    const int known = byKey_[key].load(std::memory_order_relaxed);
    if (known != kUnknown) return known;
    const int rank = ask(config, id);
    byKey_[key].store(rank, std::memory_order_relaxed);
    return rank;
  }
  int getOf(const KFLEnvConfig& config, const KFLMessageIterator& it) {
    const std::uint32_t key = it.getNameKey();
    const int known = key < kTagPositionLimit ? byKey_[key].load(std::memory_order_relaxed) : kUnknown;
    return known != kUnknown ? known : get(config, key, it.getName());
  }

  static constexpr int kLast = std::numeric_limits<int>::max();

 private:
  static constexpr int kUnknown = 0;

  // From 1 on, so that what was never asked for is unknown.
  static int ask(const KFLEnvConfig& config, KFLElementID id) {
    const int position = config.getPositionOfTheTag(std::string(nameOf(id)));
    return position < 0 ? kLast : position + 1;
  }

  const std::type_info* type_;
  std::string typeName_;
  Ranks* next_ = nullptr;
  std::array<std::atomic<int>, kTagPositionLimit> byKey_{};
};

KFLEnvConfig::Ranks& KFLEnvConfig::ranks() {
  if (ranks_ == nullptr || !ranks_->isOf(typeid(*this))) ranks_ = &Ranks::find(typeid(*this));
  return *ranks_;
}

// The first child that ranks behind the element.
KFLMessageIterator KFLEnvConfig::findPlace(KFLElementID id) {
  if (filling_ != nullptr && filling_->expects_) return it_.childOf(filling_->place());
  filling_ = nullptr;
  Ranks& known = ranks();
  const int rank = known.get(*this, it_.findNameKey(id), id);
  if (rank == Ranks::kLast) return {};
  KFLMessageIterator sibling(it_);
  for (int left = sibling.firstChild(); left == 0; left = sibling.nextSibling()) {
    if (known.getOf(*this, sibling) > rank) return sibling;
  }
  return {};
}

std::vector<KFLMessageIterator> KFLEnvConfig::elementsNamed(KFLElementID id) const {
  std::vector<KFLMessageIterator> elements;
  const KFLMessageIterator it(it_);
  for (int found = it.findChild(id); found == 0; found = it.findNextChild(id))
    elements.push_back(it);
  return elements;
}

// --- Filling -----------------------------------------------------------------------------------------------

KFLEnvConfig::Filling::Filling(KFLEnvConfig& config) : config_(config) {
  if (config.hasMsg() && config.it_.isEmptyElement()) config.filling_ = this;
}

bool KFLEnvConfig::Filling::lacks(int rank, std::uint32_t nameKey) const {
  if (rank < kRanks) return (ranks_ >> rank & 1U) == 0;
  const auto* const end = others_.begin() + otherCount_;
  return std::find(others_.begin(), end, nameKey) == end;
}

bool KFLEnvConfig::Filling::expect(int rank, std::uint32_t nameKey, KFLElementID id) {
  rank_ = rank;
  id_ = id;
  if (rank >= kRanks) {
    if (rank != Ranks::kLast || nameKey == 0 || otherCount_ == kOthers) return false;
    others_[otherCount_] = nameKey;
  }
  expects_ = true;
  return true;
}

// What was set stands in the order of the ranks, so the next rank that is taken tells the place.
KFLElementID KFLEnvConfig::Filling::place() {
  expects_ = false;
  if (rank_ >= kRanks) return {};
  const std::uint64_t higher = ranks_ >> rank_ >> 1;
  return higher == 0 ? firstOther_ : byRank_[static_cast<unsigned>(rank_ + 1 + std::countr_zero(higher))];
}

void KFLEnvConfig::Filling::note() {
  if (rank_ < kRanks) {
    ranks_ |= std::uint64_t{1} << rank_;
    byRank_[static_cast<std::size_t>(rank_)] = id_;
  } else if (otherCount_++ == 0) {
    firstOther_ = id_;
  }
}

bool KFLEnvConfig::isKnownToLack(KFLElementID id) {
  if (filling_ == nullptr) return false;
  const std::uint32_t key = it_.findNameKey(id);
  if (filling_->lacks(ranks().get(*this, key, id), key)) return true;
  filling_ = nullptr;
  return false;
}

bool KFLEnvConfig::isFilledWith(KFLElementID id) {
  if (filling_ == nullptr) return false;
  const std::uint32_t key = it_.findNameKey(id);
  const int rank = ranks().get(*this, key, id);
  if (filling_->lacks(rank, key) && filling_->expect(rank, key, id)) return true;
  filling_ = nullptr;
  return false;
}

void KFLEnvConfig::noteFirst() {
  filling_->note();
}

// --- Properties --------------------------------------------------------------------------------------------

void KFLEnvConfig::removeElement(KFLElementID id) {
  if (isKnownToLack(id)) return;
  initMsg();
  it_.removeChildren(id);
}

int KFLEnvConfig::getName(Text& name) const {
  return getProperty({kName}, name);
}
int KFLEnvConfig::setName(const Text& name) {
  return setProperty({kName}, name);
}
int KFLEnvConfig::getDescription(Text& description) const {
  return getProperty({kDescription}, description);
}
int KFLEnvConfig::setDescription(const Text& description) {
  return setProperty({kDescription}, description);
}
int KFLEnvConfig::getHostname(Text& hostname) const {
  return getProperty({kHostname}, hostname);
}
int KFLEnvConfig::setHostname(const Text& hostname) {
  return setProperty({kHostname}, hostname);
}
int KFLEnvConfig::getAddresses(Addresses& addresses) const {
  return getListProperty({kAddress}, addresses);
}
int KFLEnvConfig::setAddresses(const Addresses& addresses) {
  return setListProperty({kAddress}, addresses);
}
int KFLEnvConfig::getNameservers(Texts& servers) const {
  return getListProperty({kNameserver}, servers);
}
int KFLEnvConfig::setNameservers(const Texts& servers) {
  return setListProperty({kNameserver}, servers);
}
int KFLEnvConfig::getSearchDomains(TextSet& domains) const {
  return getListProperty({kSearchDomain}, domains);
}
int KFLEnvConfig::setSearchDomains(const TextSet& domains) {
  return setListProperty({kSearchDomain}, domains);
}
int KFLEnvConfig::getArchitecture(Text& architecture) const {
  return getProperty({kArchitecture}, architecture);
}
int KFLEnvConfig::setArchitecture(const Text& architecture) {
  return setProperty({kArchitecture}, architecture);
}
int KFLEnvConfig::getOS(KFLOptionalProperty<KFLOS>& os) const {
  return getProperty({kOS}, os);
}
int KFLEnvConfig::setOS(const KFLOptionalProperty<KFLOS>& os) {
  return setProperty({kOS}, os);
}
int KFLEnvConfig::getType(Text& type) const {
  return getProperty({kType}, type);
}
int KFLEnvConfig::setType(const Text& type) {
  return setProperty({kType}, type);
}

}  // namespace KFL
