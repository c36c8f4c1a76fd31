// Template objects as messages: what the cache commands take, keep and give.
#ifndef KFACTL_CACHETEMPLATE_H
#define KFACTL_CACHETEMPLATE_H

#include <string>

#include <KFAFunctionality/templates/KFATemplateObject.h>

#include "Input.h"

namespace kfactl {

// Reads a message whose root `template_object` holds one template object. A Trouble names the element at fault.
KFA::KFATemplateObject readTemplate(const Input& input);

// Why readTemplate() would refuse the message; empty when it would not.
std::string templateFault(const Input& input);

}  // namespace kfactl

#endif
