// Files of the shared memory under second names, which stay when somebody removes the first.

#ifndef DATASTORE_PINNED_FILES_H_
#define DATASTORE_PINNED_FILES_H_

#include <string>
#include <vector>

namespace datastore {

// The library opens some files by their names and takes for granted that they are there and not
// empty: it crashes when somebody removes the shared memory at that moment, and another process has
// begun to make a new one. In the directory of this they stay what they are.
class PinnedFiles {
 public:
  // Those of `names` that are there and not empty. Throws Error.
  explicit PinnedFiles(const std::vector<std::string>& names);
  ~PinnedFiles();
  PinnedFiles(const PinnedFiles&) = delete;
  PinnedFiles& operator=(const PinnedFiles&) = delete;

  const std::string& directory() const { return directory_; }

  // Whether all are there.
  bool complete() const { return complete_; }

 private:
  bool Pin(const std::string& name) const;

  const std::string directory_;
  bool complete_ = true;
};

// What processes left that were killed while they had pinned files.
void RemovePinnedFilesOfOthers();

}  // namespace datastore

#endif  // DATASTORE_PINNED_FILES_H_
