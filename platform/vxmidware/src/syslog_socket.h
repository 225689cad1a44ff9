// Messages to syslog that wait for nobody.

#ifndef PLATFORM_VXMIDWARE_SRC_SYSLOG_SOCKET_H_
#define PLATFORM_VXMIDWARE_SRC_SYSLOG_SOCKET_H_

#include <string>

namespace vxmw {

// Sends one message to the datagram socket that VXMW_SYSLOG_SOCKET names (/dev/log if unset), in
// the name of the program. `priority` is a severity and a facility as of <syslog.h>. False when
// there is no such socket or the message finds no room in it: the C library's syslog() would wait
// then, for as long as the service that reads the socket is stopped.
bool SendToSyslog(int priority, const std::string& text);

}  // namespace vxmw

#endif  // PLATFORM_VXMIDWARE_SRC_SYSLOG_SOCKET_H_
