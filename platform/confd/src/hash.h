// 32-bit FNV-1a.

#ifndef PLATFORM_CONFD_SRC_HASH_H_
#define PLATFORM_CONFD_SRC_HASH_H_

#include <cstdint>
#include <string_view>

namespace confd {

class Fnv1a {
 public:
  void Add(std::string_view text) {
    for (const char c : text) Add(c);
  }
  void Add(char c) { value_ = (value_ ^ static_cast<unsigned char>(c)) * 16777619U; }
  std::uint32_t value() const { return value_; }

 private:
  std::uint32_t value_ = 2166136261U;
};

inline std::uint32_t HashText(std::string_view text) {
  Fnv1a hash;
  hash.Add(text);
  return hash.value();
}

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_HASH_H_
