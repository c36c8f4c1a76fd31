// SPDX-License-Identifier: Apache-2.0
#include <KFAFunctionality/migration/KFAMigratorCloneOptions.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <KFLMessage/KFLRecordRegistry.h>

namespace KFA {

static KFLDerivedParserFactoryT<KFAMigratorCloneOptions, KFLMigratorCloneOptions, std::string,
                                KFAMigratorCloneOptions::Reader, KFAMigratorCloneOptions::Writer>
    factoryKFAMigratorCloneOptions;
static const KFLRecordRegistration<KFAMigratorCloneOptions> recordKFAMigratorCloneOptions(
    "KFAMigratorCloneOptions");

struct KFAMigratorCloneOptions::Binding {
  using R = KFAMigratorCloneOptions;

  static int putKeepSource(KFLMessageIterator& it, const R& options, const KFLField& row) {
    const Flag& keep = options.keepSource_;
    return keep.isSpecified() && keep.getValue() ? it.addEmptyChild(row.id) : 0;
  }
  static int getKeepSource(const KFLMessageIterator& it, R& options, const KFLField& row) {
    options.keepSource_ = it.hasChild(row.id);
    return 0;
  }
  // A flag as in the rows of presence, but one that may be unspecified until it is read.
  static constexpr KFLField keepSourceRow() {
    KFLField row = special<R, bool, &putKeepSource, &getKeepSource>(1857);
    row.shape = KFLFieldShape::Presence;
    row.write = KFLFieldWrite::WhenNotEmpty;
    return row;
  }

  static int putConfig(KFLMessageIterator& it, const R& options, const KFLField& row) {
    return options.config_ ? it.putObj(*options.config_, row.id) : 0;
  }
  static int getConfig(const KFLMessageIterator& it, R& options, const KFLField& row) {
    const bool isThere = it.hasChild(row.id);
    if (!options.config_ || !isThere) options.config_ = boost::make_shared<KFAEnvConfig>();
    return isThere ? it.getObj(*options.config_, row.id) : 1;
  }
};

KFAMigratorCloneOptions::~KFAMigratorCloneOptions() = default;

const KFLFieldTable& KFAMigratorCloneOptions::fields() {
  using R = KFAMigratorCloneOptions;
  using B = Binding;
  static constexpr KFLField config = special<R, KFAEnvConfig, &B::putConfig, &B::getConfig>(1185);
  static constexpr KFLField rows[] = {
      base<R, KFLMigratorCloneOptions>(),
      B::keepSourceRow(),
      config,
      list<R, &R::veids_>(1002),
  };
  // The configuration is the caller's own object: read last, once nothing else can throw.
  static constexpr KFLField readRows[] = {rows[0], rows[1], rows[3], config};
  static constexpr KFLFieldTable table{"KFAMigratorCloneOptions", kRelocatorURI, "clone_optionsType", rows,
                                       readRows};
  return table;
}

}  // namespace KFA
