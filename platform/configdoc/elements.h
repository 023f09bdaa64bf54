// What whole elements of configuration documents are asked for at once, without an object for each of their
// nodes: for those who go through thousands of them. Statuses, and elements of others, are as in configdoc.h.
// Namespace declarations are no attributes here.
#pragma once

#include "platform/configdoc/configdoc.h"

namespace platform {

// Gives an element the attributes of another one: new ones, or other texts. Its own others stay.
MORROW_PLATFORM_API HRESULT CopyAttributes(IConfigElement* to, IConfigElement* from);

// Puts deep copies of all child elements of one element behind the children of another.
MORROW_PLATFORM_API HRESULT CopyChildren(IConfigElement* to, IConfigElement* from);

// Has the second element what the first one has? S_OK for yes, S_FALSE for no: name, value and attributes,
// and with `deep` the same of their child elements, one by one. Attributes that the second one alone has do
// not count.
MORROW_PLATFORM_API HRESULT CompareElements(IConfigElement* first, IConfigElement* second, bool deep);

} // namespace platform
