// The trace service of the process.

#ifndef VXMIDWARE_TRACE_H_
#define VXMIDWARE_TRACE_H_

namespace vxmw {

// Reads the trace configuration again; a broken one leaves everything as it is and says so on
// standard error. Does nothing before the service was started.
void ReloadTrace();

}  // namespace vxmw

#endif  // VXMIDWARE_TRACE_H_
