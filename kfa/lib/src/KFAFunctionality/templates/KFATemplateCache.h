// SPDX-License-Identifier: Apache-2.0
// The cache of templates that all agent processes of a node share: the file "template.cache" in the uploads folder
// (KFLFolders.h), under the string IDs of the templates.
//
//   if (const auto cache = KFA::KFATemplateCachePrototype::createInstance()) {
//     cache->putTemplate(object);
//     KFA::KFATemplateCachePrototype::Snapshot snapshot;
//     if (cache->hold(snapshot) == 0) ...
//   }
//
// Any thread and any process. What a cache can do stands in KFLCacheLogic.h and KFLCacheFile.h.
#ifndef KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATECACHE_H
#define KFAFUNCTIONALITY_TEMPLATES_KFATEMPLATECACHE_H

#include <string>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLCommon/KFLLimitedString.h>
#include <KFLCore/KFLCacheLogic.h>
#include <KFLCore/KFLMappedMemoryManager.h>
#include <KFLCore/KFLObjectItem.h>

#include <KFAFunctionality/KFATypes.h>
#include <KFAFunctionality/templates/KFATemplateObject.h>

namespace KFA {

class KFATemplateCachePrototype final
    : public KFLCacheLogic<limited_length_string<256>, KFLObjectItem<KFATemplateObject>,
                           KFLMappedMemoryManager> {
 public:
  // Does not open the file: see initialize().
  explicit KFATemplateCachePrototype(const std::string& path);

  // The cache of this process, opened when it is not: a file that is missing is made, one that is at fault is replaced.
  // Null, with an error text, when there can be none now; the next call tries again.
  static boost::intrusive_ptr<KFATemplateCachePrototype> createInstance();

  // Puts the template under its string ID. As put(), and kCacheBadKey for an ID that is too long for a key.
  int putTemplate(const KFATemplateObject& object);
};

}  // namespace KFA

#endif
