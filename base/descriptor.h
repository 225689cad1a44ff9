// A file descriptor that closes itself.

#ifndef BASE_DESCRIPTOR_H_
#define BASE_DESCRIPTOR_H_

namespace base {

// Owns a file descriptor; -1 is none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

}  // namespace base

#endif  // BASE_DESCRIPTOR_H_
