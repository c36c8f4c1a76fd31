// SPDX-License-Identifier: Apache-2.0
// The per-environment configuration file as a record, and back.
//
// 27 fixed keys stand for properties of KFAEnvConfig; the keys of resource parameters come from the vocabulary. A
// parser object never changes after getInstance: any threads may share it. Reading completes the network list by the
// host-routed device venet0; writing puts the addresses of the first host-routed device into IP_ADDRESS.
#ifndef KFAFUNCTIONALITY_FILES_KFAENVCONFIGBASHPARSER_H
#define KFAFUNCTIONALITY_FILES_KFAENVCONFIGBASHPARSER_H

#include <cstddef>
#include <istream>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <KFLCommon/KFLProperty.h>
#include <KFLFunctionality/KFLQoS.h>
#include <KFLFunctionality/KFLVocMap.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/files/KFABashParse.h>
#include <KFAFunctionality/files/KFAKeyIndex.h>

namespace KFA {

class KFAEnvConfig;

class KFAEnvConfigBashParser {
 public:
  // A resource parameter's key and how its value is written.
  struct QoSDefinition {
    std::string lowerName;
    std::string upperName;
    int kind = 2;       // 2: barrier and limit; 1: a single value
    int valueType = 1;  // 1: integer; 0: fractional, held in hundredths
    std::string id;     // as the vocabulary spells it, and so does a record that was read
  };
  // How the value of a resource parameter is written.
  struct ValueForm {
    int kind = 2;
    int valueType = 1;
    std::string id;
    std::size_t place = 0;  // among all ids, in their order
  };
  using QoSMap = std::map<std::string, QoSDefinition>;
  using KeyTable = std::map<std::string, boost::shared_ptr<KFABashParse>>;

  // A new parser with the vocabulary's resource keys; empty, with a logged error text, when there are none.
  static boost::shared_ptr<KFAEnvConfigBashParser> getInstance(
      const boost::shared_ptr<KFL::KFLVocMap>& vocabulary);

  // Fills the map of resource keys from the category "qos": 0, or -1 with an error text.
  int initQoSMap(const boost::shared_ptr<KFL::KFLVocMap>& vocabulary);

  // 0, or -1 with an error text at a malformed line; then the record keeps what the lines before it put there. After
  // std::bad_alloc the record is as before; so it is for the functions below.
  int getConfig(std::istream& in, KFAEnvConfig& record) const;
  // The writer's result (KFABashConfig.h). What throws may have written part of the file.
  int putConfig(const KFAEnvConfig& record, std::ostream& out, std::istream* existing, bool merge) const;
  // Appends the keys whose values differ, lower case, with the values after. Always 0.
  int diffConfig(const KFAEnvConfig& before, const KFAEnvConfig& after,
                 std::vector<std::pair<std::string, std::string>>& changes) const;
  // Makes the addresses of the first host-routed device, if there is one, the record's own. Always 0.
  static int updateIp(KFAEnvConfig* record);

  // The resource keys, by lower-case key.
  const QoSMap& getQoSMap() const { return qosMap_; }
  // The fixed keys; the empty key, without a parser, is one of them.
  static const KeyTable& getKeyTable();
  // Whether the key, in lower case, is one of this file's.
  bool isKey(const std::string& key) const;

  class ParameterParserPut {
   public:
    ParameterParserPut(KFAEnvConfig& record, const KFAEnvConfigBashParser& parser)
        : record_(record), parser_(parser) {}
    int put(const std::string& key, const char* value);
    // The resource values put so far.
    KFL::KFLOptionalProperty<std::set<KFL::KFLQoS>>& getQoSes() { return qoses_; }

   private:
    int putQoS(const ValueForm& form, const char* value);

    KFAEnvConfig& record_;
    const KFAEnvConfigBashParser& parser_;
    KFL::KFLOptionalProperty<std::set<KFL::KFLQoS>> qoses_;
  };

  class ParameterParserGet {
   public:
    ParameterParserGet(const KFAEnvConfig& record, const KFAEnvConfigBashParser& parser);
    int get(const std::string& key, std::string& value);
    // The first resource key, the fixed keys in ascending order, the other resource keys.
    int getNext(const std::string& previous, std::string& next);

   private:
    const KFAEnvConfig& record_;
    const KFAEnvConfigBashParser& parser_;
    KeyTable::const_iterator nextKey_;
    QoSMap::const_iterator nextQoS_;
  };

 private:
  class FileParser;

  // Takes the map, and makes what is derived from it.
  void take(QoSMap map);
  int fill(std::istream& in, KFAEnvConfig& record) const;

  QoSMap qosMap_;
  // How the values of the resource keys are written, for the lines of a file.
  KFAKeyIndex<ValueForm> qosForms_;
  std::size_t qosCount_ = 0;  // of different ids
};

}  // namespace KFA

#endif
