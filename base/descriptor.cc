#include "base/descriptor.h"

#include <unistd.h>

#include <utility>

namespace base {

Descriptor::~Descriptor() {
  if (fd_ >= 0) close(fd_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

}  // namespace base
