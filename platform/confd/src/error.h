// The one place where failures of this library are made.

#ifndef PLATFORM_CONFD_SRC_ERROR_H_
#define PLATFORM_CONFD_SRC_ERROR_H_

#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include <confd_lib.h>

namespace confd {

// Records a failure with the text "<where>: <what>". Returns CONFD_ERR.
int Fail(int code, std::string_view where, std::string_view what);

// Records that `sock` is no open session, and with it the failure that came before: often the
// reason why there is none. Returns CONFD_ERR.
int FailNoSession(int sock);

// Records that memory ran out. Returns CONFD_ERR.
int FailNoMemory() noexcept;

// Records that data could not be read. Returns CONFD_ERR.
int FailUnavailable(const char* reason) noexcept;

// Runs `call` on behalf of a C caller, who must not see an exception. Nothing throws here but the
// allocations of the standard library and the loader of a snapshot.
template <typename Call>
auto Guarded(Call&& call) noexcept -> decltype(call()) {
  try {
    return std::forward<Call>(call)();
  } catch (const std::bad_alloc&) {
    return FailNoMemory();
  } catch (const std::exception& error) {
    return FailUnavailable(error.what());
  }
}

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_ERROR_H_
