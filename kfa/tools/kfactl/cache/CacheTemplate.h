// SPDX-License-Identifier: Apache-2.0
// Template objects as messages, which the cache commands take and give, and the cache that keeps them.
#ifndef KFACTL_CACHETEMPLATE_H
#define KFACTL_CACHETEMPLATE_H

#include <string>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFAFunctionality/templates/KFATemplateCache.h>
#include <KFAFunctionality/templates/KFATemplateObject.h>

#include "terminal/Input.h"

namespace kfactl {

// An open cache. It closes the file first, so that a lock which somebody keeps ends no command but with a text.
class Cache {
 public:
  explicit Cache(KFA::KFATemplateCachePrototype* made) : cache_(made) {}
  Cache(Cache&& other) noexcept { cache_.swap(other.cache_); }
  Cache& operator=(Cache&&) = delete;
  ~Cache() {
    if (cache_) cache_->reinit();
  }
  KFA::KFATemplateCachePrototype* operator->() const { return cache_.get(); }

 private:
  boost::intrusive_ptr<KFA::KFATemplateCachePrototype> cache_;
};

// Opens a cache file for changes; a file that is missing is made. One that cannot be opened stays as it is.
Cache openCache(const std::string& path);

// Reads a message whose root `template_object` holds one template object. A Trouble names the element at fault.
KFA::KFATemplateObject readTemplate(const Input& input);

// Why readTemplate() would refuse the message; empty when it would not.
std::string templateFault(const Input& input);

}  // namespace kfactl

#endif
