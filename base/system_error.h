// The one place where the error of a system call becomes an exception.

#ifndef BASE_SYSTEM_ERROR_H_
#define BASE_SYSTEM_ERROR_H_

#include <cerrno>
#include <string>
#include <system_error>

namespace base {

// "what: reason". `error` is an errno value; `what` says what failed and on what.
std::system_error SystemError(const std::string& what, int error = errno);

[[noreturn]] void ThrowSystemError(const std::string& what, int error = errno);

}  // namespace base

#endif  // BASE_SYSTEM_ERROR_H_
