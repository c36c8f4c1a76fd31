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

using Cache = boost::intrusive_ptr<KFA::KFATemplateCachePrototype>;

// Opens a cache file for changes; a file that is missing is made. One that cannot be opened stays as it is.
Cache openCache(const std::string& path);

// Reads a message whose root `template_object` holds one template object. A Trouble names the element at fault.
KFA::KFATemplateObject readTemplate(const Input& input);

// Why readTemplate() would refuse the message; empty when it would not.
std::string templateFault(const Input& input);

}  // namespace kfactl

#endif
