// SPDX-License-Identifier: Apache-2.0
// The agent's vocabulary: which resource parameters there are, and which formulas tune them.
//
// It is read from an XML file of categories. A category is named by a set of words and holds parameters; a
// parameter has attributes, addressed by number or by name:
//
//   <vocabulary version="1">
//     <category words="kelvarium qos">
//       <parameter id="numproc" kind="2" value_type="1">
//         <description>Processes and threads.</description>
//       </parameter>
//     </category>
//     <category words="kelvarium tune">
//       <parameter number="101">
//         <expression>numproc.soft &lt;= numproc.hard</expression>
//         <comment>The barrier of numproc lies above its limit.</comment>
//       </parameter>
//     </category>
//   </vocabulary>
//
// A map never changes once it is loaded; any threads may read it. Ids that stand twice in a category are kept
// as they stand. The trap: readCategory gives an iterator that the caller must delete.
#ifndef KFLFUNCTIONALITY_KFLVOCMAP_H
#define KFLFUNCTIONALITY_KFLVOCMAP_H

#include <initializer_list>
#include <set>
#include <string>
#include <string_view>

#include <boost/shared_ptr.hpp>

#include <KFLFunctionality/KFLVocIterator.h>

namespace KFL {

class KFLVocMap {
 public:
  // Reads a vocabulary file. Empty when it cannot be read or is malformed; the error text then names file,
  // line and column, and says what would be right.
  static boost::shared_ptr<KFLVocMap> load(const std::string& path);

  // The same from a text; name stands for the file in error texts.
  static boost::shared_ptr<KFLVocMap> loadFromText(std::string_view xml, const std::string& name);

  // Where the vocabulary of this machine stands: the file that KFA_VOCABULARY names, or else the installed
  // one; relative to the library, so that an installation may be moved as a whole.
  static std::string defaultPath();

  // A new iterator over the category whose words contain all the words asked for; of several, the one with
  // the fewest words, and of those the one that comes first in the file. Null when there is none, or when no
  // word is asked for. The caller owns the iterator.
  KFLVocIterator* readCategory(const std::string& word) const;
  KFLVocIterator* readCategory(const std::set<std::string>& words) const;
  KFLVocIterator* readCategory(std::initializer_list<std::string_view> words) const;

 private:
  explicit KFLVocMap(const boost::shared_ptr<const KFLVocData>& data) : data_(data) {}

  template <class Words>
  KFLVocIterator* find(const Words& words) const;

  boost::shared_ptr<const KFLVocData> data_;
};

using KFLVocMapSP = boost::shared_ptr<KFLVocMap>;

}  // namespace KFL

#endif
