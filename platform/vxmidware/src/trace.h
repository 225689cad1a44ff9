// The trace service of the process.

#ifndef PLATFORM_VXMIDWARE_SRC_TRACE_H_
#define PLATFORM_VXMIDWARE_SRC_TRACE_H_

#include <string>

namespace vxmw {

// The configuration file to use: what VXMW_TRACE_CONF names, else `installed` if it exists, else
// none (empty), which stands for the configuration built in.
std::string TraceConfiguration(const std::string& installed);

// Reads the trace configuration again; a broken one leaves everything as it is and says so on
// standard error. Does nothing before the service was started.
void ReloadTrace();

}  // namespace vxmw

#endif  // PLATFORM_VXMIDWARE_SRC_TRACE_H_
