// Names of tag hashes. A key path holds hashes only; every hash in one was computed by TagHash,
// which notes the name here.

#ifndef PLATFORM_CONFD_SRC_TAGS_H_
#define PLATFORM_CONFD_SRC_TAGS_H_

#include <cstdint>
#include <string>

namespace confd {

// The name of the first node whose tag had this hash, or '#' and eight hexadecimal digits.
std::string TagName(std::uint32_t tag);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_TAGS_H_
