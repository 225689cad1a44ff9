// The datastore that the environment names, with a saver that has started.

#ifndef SAVE_CONNECTED_H_
#define SAVE_CONNECTED_H_

#include <string>

#include "save/pending_file.h"
#include "save/saver.h"
#include "save/sysrepo_store.h"

namespace save {

// Beside the datastore's own files, so that it stays with these.
PendingFile PendingFileOfDatastore();

// A log line and a fault.
void ReportFault(const std::string& text);

class Connected {
 public:
  // Throws what Saver::Start throws.
  explicit Connected(const PendingFile& pending);

  ConfigStore& store() { return store_; }
  Saver& saver() { return saver_; }

 private:
  const PendingFile pending_;
  SysrepoStore store_;
  Saver saver_;
};

// Saves what a datastore in shared memory holds; does nothing when there is none. Throws as above.
void SaveOnce();

// Makes the datastore hold what is pending, if anything is. What cannot be written to the startup
// datastore stays pending, and is reported. Throws as above.
void Recover();

}  // namespace save

#endif  // SAVE_CONNECTED_H_
