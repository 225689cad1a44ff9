#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include <confd_cdb.h>

#include "platform/confd/src/error.h"
#include "platform/confd/src/format.h"
#include "platform/confd/src/reader.h"
#include "platform/confd/src/sessions.h"

namespace confd {
namespace {

// Runs `read` (int(Reader&)) on a path.
template <typename Read>
int QueryPath(int sock, const char* fmt, va_list args, Read read) noexcept {
  return Guarded([&] {
    Snapshot* snapshot = FindSession(sock);
    if (snapshot == nullptr) return FailNoSession(sock);
    PathBuffer buffer;
    std::string_view path;
    if (!FormatPath(fmt, args, buffer, &path)) return static_cast<int>(CONFD_ERR);
    Reader reader(*snapshot, path);
    return read(reader);
  });
}

// Runs `read` (int(Reader&)) on the node that the path names.
template <typename Read>
int Query(int sock, const char* fmt, va_list args, Read read) noexcept {
  return QueryPath(sock, fmt, args, [&](Reader& reader) {
    return reader.Resolve() ? static_cast<int>(read(reader)) : CONFD_ERR;
  });
}

int Status(bool good) { return good ? CONFD_OK : CONFD_ERR; }

int CountOr(bool good, std::size_t count) { return good ? static_cast<int>(count) : CONFD_ERR; }

bool RequireSizes(const Reader& reader, int n, int first, int entries) {
  return (n >= 0 && first >= 0 && entries >= 0) ||
         reader.Refuse(CONFD_ERR_BADTYPE, "a negative number of values, entries or position");
}

bool CopyText(const Reader& reader, std::string_view text, char* value, int size) {
  if (size <= 0 || text.size() >= static_cast<std::size_t>(size)) {
    return reader.Refuse(CONFD_ERR_BADTYPE, "the string of " + std::to_string(text.size()) +
                                                " bytes and its end do not fit a buffer of " +
                                                std::to_string(size));
  }
  std::memcpy(value, text.data(), text.size());
  value[text.size()] = '\0';
  return true;
}

}  // namespace
}  // namespace confd

using confd::Reader;

int cdb_num_instances(int sock, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::Query(sock, fmt, args, [](Reader& reader) {
    std::size_t count = 0;
    const bool good = reader.CountEntries(&count);
    return confd::CountOr(good, count);
  });
  va_end(args);
  return result;
}

int cdb_exists(int sock, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::QueryPath(sock, fmt, args, [](Reader& reader) {
    bool exists = false;
    return reader.FindOut(&exists) ? static_cast<int>(exists) : CONFD_ERR;
  });
  va_end(args);
  return result;
}

int cdb_get(int sock, confd_value_t* value, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::Query(
      sock, fmt, args, [&](Reader& reader) { return confd::Status(reader.ReadValue(value)); });
  va_end(args);
  return result;
}

int cdb_get_str(int sock, char* value, int size, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::Query(sock, fmt, args, [&](Reader& reader) {
    std::string_view text;
    return confd::Status(reader.ReadText(&text) && confd::CopyText(reader, text, value, size));
  });
  va_end(args);
  return result;
}

int cdb_get_int32(int sock, int32_t* value, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::Query(sock, fmt, args, [&](Reader& reader) {
    confd_value_t leaf;
    if (!reader.ReadLeaf(confd::ValueKind::kInt32, "int32", &leaf)) return CONFD_ERR;
    *value = CONFD_GET_INT32(&leaf);
    return CONFD_OK;
  });
  va_end(args);
  return result;
}

int cdb_get_ipv4_and_plen(int sock, struct confd_ipv4_prefix* value, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::Query(sock, fmt, args, [&](Reader& reader) {
    constexpr auto kKind = confd::ValueKind::kIpv4AndPlen;
    confd_value_t leaf;
    if (!reader.ReadLeaf(kKind, "IPv4 address and prefix length", &leaf)) return CONFD_ERR;
    *value = CONFD_GET_IPV4_AND_PLEN(&leaf);
    return CONFD_OK;
  });
  va_end(args);
  return result;
}

int cdb_get_object(int sock, confd_value_t* values, int n, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::Query(sock, fmt, args, [&](Reader& reader) {
    std::size_t count = 0;
    const bool good = confd::RequireSizes(reader, n, 0, 0) &&
                      reader.ReadObject(values, static_cast<std::size_t>(n), &count);
    return confd::CountOr(good, count);
  });
  va_end(args);
  return result;
}

int cdb_get_objects(int sock, confd_value_t* values, int n, int ix, int nobj, const char* fmt,
                    ...) {
  va_list args;
  va_start(args, fmt);
  const int result = confd::Query(sock, fmt, args, [&](Reader& reader) {
    std::size_t count = 0;
    const bool good =
        confd::RequireSizes(reader, n, ix, nobj) &&
        reader.ReadObjects(values, static_cast<std::size_t>(n), static_cast<std::size_t>(ix),
                           static_cast<std::size_t>(nobj), &count);
    return confd::CountOr(good, count);
  });
  va_end(args);
  return result;
}
