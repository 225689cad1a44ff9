// A sysrepo repository of this process's own. The datastore library reads its environment once, so
// there is one for the whole process; every test of a binary runs in a process of its own.

#ifndef TESTS_SUPPORT_PRIVATE_REPOSITORY_H_
#define TESTS_SUPPORT_PRIVATE_REPOSITORY_H_

#include <filesystem>
#include <string>

namespace tests {

class PrivateRepository {
 public:
  // Sets the environment of this process and of the tools it runs. Nothing is installed yet.
  PrivateRepository();
  ~PrivateRepository();
  PrivateRepository(const PrivateRepository&) = delete;
  PrivateRepository& operator=(const PrivateRepository&) = delete;

  const std::filesystem::path& directory() const { return directory_; }

  // Installs the relay's models. Throws std::runtime_error when a tool fails, as all of these.
  void InstallModels() const;

  // The same, with a JSON document as their first data, in one step for whoever watches.
  void InstallModelsWithConfiguration(const std::string& json) const;

  // Installs one model from its text, for tests that change the relay's with deviations.
  void InstallModel(const std::string& name, const std::string& yang) const;

  // Merges a JSON document into the running datastore.
  void Edit(const std::string& json) const;

  // The records of faults that processes with this environment raised.
  std::string Faults() const;

  // What a power cut does to the running datastore.
  static void RemoveSharedMemory();

 private:
  std::filesystem::path Write(const std::string& name, const std::string& text) const;

  std::filesystem::path directory_;
};

}  // namespace tests

#endif  // TESTS_SUPPORT_PRIVATE_REPOSITORY_H_
