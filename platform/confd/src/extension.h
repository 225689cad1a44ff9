// The extensions by which the data model tells programs what they need to know of it.

#ifndef PLATFORM_CONFD_SRC_EXTENSION_H_
#define PLATFORM_CONFD_SRC_EXTENSION_H_

#include <string_view>

struct lysc_ext_instance;

namespace confd {

// The argument of an instance of the module vx-schema's extension `name`; null for any other.
const char* ArgumentOf(const lysc_ext_instance& extension, std::string_view name);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_EXTENSION_H_
