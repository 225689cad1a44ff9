#include "platform/confd/src/error.h"

#include <new>
#include <string>
#include <utility>

#include <confd/session.h>

int confd_errno = 0;

namespace confd {
namespace {

struct LastError {
  std::string text;
  std::string cause;        // what failed before the first of the latest no-session failures
  bool no_session = false;  // the latest failure was one of these
};

LastError& Last() noexcept {
  static LastError last;
  return last;
}

}  // namespace

void SetLastError(int code, std::string text) {
  confd_errno = code;
  Last().text = std::move(text);
  Last().no_session = false;
}

int Fail(int code, std::string_view where, std::string_view what) {
  std::string text;
  text.reserve(where.size() + what.size() + 2);
  text.append(where).append(": ").append(what);
  SetLastError(code, std::move(text));
  return CONFD_ERR;
}

int FailNoSession(int sock) {
  LastError& last = Last();
  if (!last.no_session) last.cause = confd_errno != 0 ? last.text : std::string();
  std::string text = "no session on socket " + std::to_string(sock);
  if (!last.cause.empty()) text += " (previous error: " + last.cause + ")";
  SetLastError(CONFD_ERR_NOSESSION, std::move(text));
  last.no_session = true;
  return CONFD_ERR;
}

int FailNoMemory() noexcept {
  // Short enough for a string to hold it without an allocation.
  SetLastError(CONFD_ERR_MALLOC, "out of memory");
  return CONFD_ERR;
}

int FailUnavailable(const char* reason) noexcept {
  try {
    SetLastError(CONFD_ERR_UNAVAILABLE, reason);
    return CONFD_ERR;
  } catch (const std::bad_alloc&) {
    return FailNoMemory();
  }
}

}  // namespace confd

const char* confd_lasterr() { return confd::Last().text.c_str(); }

const char* confd_strerror(int code) {
  switch (code) {
    case 0:
      return "no error";
    case CONFD_ERR_NOEXISTS:
      return "item does not exist";
    case CONFD_ERR_BADTYPE:
      return "bad type";
    case CONFD_ERR_BADPATH:
      return "bad path";
    case CONFD_ERR_LOCKED:
      return "locked by another session";
    case CONFD_ERR_MALLOC:
      return "out of memory";
    case CONFD_ERR_NOSESSION:
      return "no session";
    case CONFD_ERR_OS:
      return "operating system error";
    case CONFD_ERR_UNAVAILABLE:
      return "datastore unavailable";
    default:
      return "unknown error";
  }
}
