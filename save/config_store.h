// The datastore as the saver uses it: whole configurations, as text.

#ifndef SAVE_CONFIG_STORE_H_
#define SAVE_CONFIG_STORE_H_

#include <string>

#include "datastore/error.h"

namespace save {

// The models do not allow the configuration.
class ConfigurationRefused : public datastore::Error {
 public:
  using datastore::Error::Error;
};

// What has been connected to is not the datastore any more: connect anew.
class DatastoreLost : public datastore::Error {
 public:
  using datastore::Error::Error;
};

// A text is the configuration of all modules as JSON. Two texts are equal when the configurations
// are. Throws datastore::Error, or one of the above.
class ConfigStore {
 public:
  virtual ~ConfigStore() = default;

  // Tells one life of the running datastore from the next. One word.
  virtual std::string Generation() const = 0;

  // Changes with every commit to the running datastore, and with the models. Commits within a few
  // milliseconds of each other may leave it as it is.
  virtual std::string LastModified() = 0;

  virtual std::string Running() = 0;
  virtual std::string Startup() = 0;

  virtual void SetRunning(const std::string& configuration) = 0;

  // On the disk when it returns, in all modules; when it throws, maybe in some. Files that were cut
  // short are emptied first. REQUIRES: the configuration is on the disk elsewhere.
  virtual void SetStartup(const std::string& configuration) = 0;
};

}  // namespace save

#endif  // SAVE_CONFIG_STORE_H_
