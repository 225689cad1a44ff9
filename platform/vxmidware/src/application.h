// The name under which the process attached.

#ifndef PLATFORM_VXMIDWARE_SRC_APPLICATION_H_
#define PLATFORM_VXMIDWARE_SRC_APPLICATION_H_

#include <string>

namespace vxmw {

void SetApplication(const std::string& name);

// The program's own name until it attached.
std::string Application();

}  // namespace vxmw

#endif  // PLATFORM_VXMIDWARE_SRC_APPLICATION_H_
