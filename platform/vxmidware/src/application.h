// The name under which the process attached.

#ifndef VXMIDWARE_APPLICATION_H_
#define VXMIDWARE_APPLICATION_H_

#include <string>

namespace vxmw {

void SetApplication(const std::string& name);

// The program's own name until it attached.
std::string Application();

}  // namespace vxmw

#endif  // VXMIDWARE_APPLICATION_H_
