// The configuration that is on its way to the startup datastore.
//
// The startup datastore keeps a file for each module, and these cannot be replaced in one step. So
// the whole configuration is first written to one file, which is removed when the startup datastore
// holds it. If the file is there at a start, its content counts.

#ifndef SAVE_PENDING_FILE_H_
#define SAVE_PENDING_FILE_H_

#include <filesystem>
#include <optional>
#include <string>

namespace save {

struct Pending {
  std::string generation;  // of the running datastore that it was read from
  std::string configuration;

  bool operator==(const Pending&) const = default;
};

class PendingFile {
 public:
  explicit PendingFile(std::filesystem::path path);

  const std::filesystem::path& path() const { return path_; }

  // On the disk when it returns. Throws std::system_error; what was pending before then stays.
  void Write(const Pending& pending) const;

  // Nothing when there is none, or when it is not whole. Throws std::system_error when it is there
  // but cannot be read.
  std::optional<Pending> Read() const;

  // Throws std::system_error.
  void Remove() const;

  // Keeps it beside, for an operator to look at; replaces what was kept before. Returns the path of
  // the copy. Throws std::system_error.
  std::filesystem::path SetAside() const;

 private:
  std::filesystem::path path_;
};

}  // namespace save

#endif  // SAVE_PENDING_FILE_H_
