#include "platform/confd/src/extension.h"

#include <libyang/libyang.h>
#include <libyang/plugins_exts.h>

namespace confd {

const char* ArgumentOf(const lysc_ext_instance& extension, std::string_view name) {
  constexpr std::string_view kModule = "vx-schema";
  const bool is_it = name == extension.def->name && kModule == extension.def->module->name;
  return is_it ? extension.argument : nullptr;
}

}  // namespace confd
