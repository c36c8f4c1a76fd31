// SPDX-License-Identifier: Apache-2.0
// A walk over the parameters of one category of the vocabulary.
//
// KFLVocMap::readCategory makes iterators and their caller owns them. An iterator keeps the vocabulary's data
// alive, so it may outlive the map. It serves one thread at a time; any number of iterators of one map may be
// used at once. A new iterator stands on no parameter until firstParameter has been called.
//
//   boost::scoped_ptr<KFL::KFLVocIterator> it(map->readCategory("qos"));
//   if (it)
//     for (int left = it->firstParameter(); left == 0; left = it->nextParameter()) ...
#ifndef KFLFUNCTIONALITY_KFLVOCITERATOR_H
#define KFLFUNCTIONALITY_KFLVOCITERATOR_H

#include <cstddef>
#include <string>
#include <string_view>

#include <boost/shared_ptr.hpp>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

struct KFLVocData;

// Numbers of a parameter's attributes.
inline constexpr int kVocFormulaIdentifier = 1007;
inline constexpr int kVocID = 1010;
inline constexpr int kVocComment = 1302;
inline constexpr int kVocKind = 1304;
inline constexpr int kVocExpression = 1307;

class KFLVocIterator {
 public:
  // Move to the first or to the next parameter: 0 when the iterator stands on one afterwards, -1 when there
  // is none.
  int firstParameter();
  int nextParameter();

  // The current parameter's id. 0, or -1 when it has none or the iterator stands on no parameter.
  int getID(std::string& id) const;

  // An attribute of the current parameter by its number, or by the name that it bears in the file. 0, or -1
  // with the target left alone when the parameter lacks it (for integers also when it is no 32-bit number).
  int getStringAttribute(int number, std::string& value) const;
  int getStringAttribute(std::string_view name, std::string& value) const;
  int getIntAttribute(int number, int& value) const;
  int getIntAttribute(std::string_view name, int& value) const;

 private:
  friend class KFLVocMap;
  KFLVocIterator(const boost::shared_ptr<const KFLVocData>& data, std::size_t first, std::size_t end)
      : data_(data), first_(first), end_(end), at_(end) {}

  int readString(std::size_t attribute, std::string& value) const;
  int readInt(std::size_t attribute, int& value) const;

  boost::shared_ptr<const KFLVocData> data_;
  std::size_t first_;
  std::size_t end_;
  std::size_t at_;
};

}  // namespace KFL

#endif
