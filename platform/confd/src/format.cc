#include "platform/confd/src/format.h"

#include <charconv>
#include <cstring>
#include <string>

#include "platform/confd/src/error.h"

namespace confd {
namespace {

// Text with a tail of "..." in place of what error texts can do without.
std::string Shortened(std::string_view text) {
  constexpr std::size_t kEnough = 80;
  if (text.size() <= kEnough) return std::string(text);
  return std::string(text.substr(0, kEnough)) + "...";
}

bool FailTooLong(std::string_view fmt) {
  Fail(CONFD_ERR_BADPATH, Shortened(fmt),
       "the path is longer than " + std::to_string(kMaxPathLength) + " bytes");
  return false;
}

template <typename Integer>
bool AppendNumber(PathBuffer& buffer, Integer number, int base) {
  std::array<char, 16> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
  return buffer.Append({digits.data(), static_cast<std::size_t>(end - digits.data())});
}

class Formatter {
 public:
  // A list of its own: what one conversion takes from a list that is handed on, the next would take
  // again where va_list is a structure.
  Formatter(std::string_view fmt, va_list args, PathBuffer& buffer) : fmt_(fmt), buffer_(buffer) {
    va_copy(args_, args);
  }
  ~Formatter() { va_end(args_); }
  Formatter(const Formatter&) = delete;
  Formatter& operator=(const Formatter&) = delete;

  bool Run() {
    std::size_t at = 0;
    while (at < fmt_.size()) {
      const std::size_t percent = std::min(fmt_.find('%', at), fmt_.size());
      if (!buffer_.Append(fmt_.substr(at, percent - at))) return FailTooLong(fmt_);
      if (percent == fmt_.size()) break;
      if (!Convert(percent + 1 < fmt_.size() ? fmt_[percent + 1] : '\0')) return false;
      at = percent + 2;
    }
    return true;
  }

 private:
  bool Convert(char conversion) {
    switch (conversion) {
      case 's':
        return ConvertString(va_arg(args_, const char*));
      case 'd':
      case 'i':
        return Fits(AppendNumber(buffer_, va_arg(args_, int), 10));
      case 'u':
        return Fits(AppendNumber(buffer_, va_arg(args_, unsigned int), 10));
      case 'x':
        return Fits(AppendNumber(buffer_, va_arg(args_, unsigned int), 16));
      case '%':
        return Fits(buffer_.Append("%"));
      default:
        return FailConversion(conversion);
    }
  }

  bool ConvertString(const char* text) {
    if (text != nullptr) return Fits(buffer_.Append(text));
    Fail(CONFD_ERR_BADPATH, Shortened(fmt_), "the argument of a %s is null");
    return false;
  }

  bool Fits(bool fits) const { return fits || FailTooLong(fmt_); }

  bool FailConversion(char conversion) const {
    const std::string name = conversion == '\0'
                                 ? "a '%' at the end"
                                 : std::string("the conversion '%") + conversion + "'";
    Fail(CONFD_ERR_BADPATH, Shortened(fmt_),
         name + " is not supported; paths take %s %d %i %u %x %%");
    return false;
  }

  std::string_view fmt_;
  va_list args_;
  PathBuffer& buffer_;
};

}  // namespace

bool PathBuffer::Append(std::string_view text) {
  if (text.size() > data_.size() - size_) return false;
  std::memcpy(data_.data() + size_, text.data(), text.size());
  size_ += text.size();
  return true;
}

bool FormatPath(const char* fmt, va_list args, PathBuffer& buffer, std::string_view* path) {
  if (fmt == nullptr) {
    Fail(CONFD_ERR_BADPATH, "(null)", "the path is null");
    return false;
  }
  const std::string_view text = fmt;
  if (text.find('%') == std::string_view::npos) {
    *path = text;  // nothing to expand, nothing to copy
    return text.size() <= kMaxPathLength || FailTooLong(text);
  }
  if (!Formatter(text, args, buffer).Run()) return false;
  *path = buffer.text();
  return true;
}

}  // namespace confd
