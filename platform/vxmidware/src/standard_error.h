// Standard error, without waiting for who reads it.

#ifndef PLATFORM_VXMIDWARE_SRC_STANDARD_ERROR_H_
#define PLATFORM_VXMIDWARE_SRC_STANDARD_ERROR_H_

#include <string_view>

namespace vxmw {

// Writes `text` as far as standard error takes it at once; a full pipe loses the rest.
void WriteToStandardError(std::string_view text) noexcept;

}  // namespace vxmw

#endif  // PLATFORM_VXMIDWARE_SRC_STANDARD_ERROR_H_
