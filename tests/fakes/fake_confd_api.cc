// The C interface of the configuration database's double.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "tests/fakes/fake_confd.h"
#include "tests/fakes/journal.h"

// Puts the arguments behind `fmt` into the path.
#define EXPAND_PATH(path, fmt)                                      \
  char path##_text[1024] = {};                                      \
  va_list arguments;                                                \
  va_start(arguments, fmt);                                         \
  std::vsnprintf(path##_text, sizeof(path##_text), fmt, arguments); \
  va_end(arguments);                                                \
  const std::string path = path##_text

extern "C" {

int confd_errno = 0;

// Both change errno, as a library may.
const char* confd_lasterr(void) {
  fakes::Journal::Get().Add("confd_lasterr");
  errno = EDOM;
  return fakes::Confd::Get().LastError();
}

const char* confd_strerror(int code) {
  fakes::Journal::Get().Add("confd_strerror " + std::to_string(code));
  errno = EDOM;
  switch (code) {
    case CONFD_ERR_NOEXISTS:
      return "Item does not exist";
    case CONFD_ERR_NOSESSION:
      return "No session";
    default:
      return "Other error";
  }
}

int confd_pp_value(char* buf, int size, const confd_value_t* value) {
  return fakes::Confd::Get().PrintValue(buf, size, value);
}

int confd_pp_kpath(char* buf, int size, const confd_hkeypath_t* path) {
  return fakes::Confd::Get().PrintPath(buf, size, path);
}

void confd_free_value(confd_value_t* value) { fakes::Confd::Get().FreeValue(value); }

int cdb_num_instances(int sock, const char* fmt, ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().NumInstances(sock, path);
}

int cdb_exists(int sock, const char* fmt, ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().Exists(sock, path);
}

int cdb_get(int sock, confd_value_t* value, const char* fmt, ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().GetValue(sock, path, value);
}

int cdb_get_str(int sock, char* value, int size, const char* fmt, ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().GetStr(sock, path, value, size);
}

int cdb_get_int32(int sock, int32_t* value, const char* fmt, ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().GetInt32(sock, path, value);
}

int cdb_get_ipv4_and_plen(int sock, struct confd_ipv4_prefix* value, const char* fmt, ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().GetPrefix(sock, path, value);
}

int cdb_get_object(int sock, confd_value_t* values, int n, const char* fmt, ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().GetObject(sock, path, values, n);
}

int cdb_get_objects(int sock, confd_value_t* values, int n, int ix, int nobj, const char* fmt,
                    ...) {
  EXPAND_PATH(path, fmt);
  return fakes::Confd::Get().GetObjects(sock, path, values, n, ix, nobj);
}

}  // extern "C"
