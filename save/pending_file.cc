#include "save/pending_file.h"

#include <cerrno>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "base/system_error.h"
#include "save/durable_file.h"

namespace save {
namespace {

constexpr char kTitle[] = "dhcp-relay-saved 1";

// The first line: title, generation, and the size of what follows.
std::optional<Pending> Parse(std::istream& file) {
  std::string line;
  if (!std::getline(file, line) || !line.starts_with(kTitle)) return std::nullopt;
  std::istringstream words(line.substr(sizeof(kTitle) - 1));
  Pending pending;
  std::size_t size = 0;
  if (!(words >> pending.generation >> size)) return std::nullopt;
  pending.configuration.assign(std::istreambuf_iterator<char>(file), {});
  if (pending.configuration.size() != size) return std::nullopt;
  return pending;
}

}  // namespace

PendingFile::PendingFile(std::filesystem::path path) : path_(std::move(path)) {}

void PendingFile::Write(const Pending& pending) const {
  WriteDurably(path_, std::string(kTitle) + " " + pending.generation + " " +
                          std::to_string(pending.configuration.size()) + "\n" +
                          pending.configuration);
}

std::optional<Pending> PendingFile::Read() const {
  errno = 0;
  std::ifstream file(path_);
  if (file) return Parse(file);
  if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
  base::ThrowSystemError("cannot open " + path_.string());
}

void PendingFile::Remove() const { RemoveDurably(path_); }

std::filesystem::path PendingFile::SetAside() const {
  std::filesystem::path copy = path_.string() + ".lost";
  std::filesystem::rename(path_, copy);
  Sync(path_.parent_path());
  return copy;
}

}  // namespace save
