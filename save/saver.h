// Keeps the startup datastore in step with the running one.
//
// In two steps. A save brings the running configuration to the pending file: from then on it
// survives everything. Settling brings it to the startup datastore, which takes longer, and removes
// the pending file; it is done when no more commits come.

#ifndef SAVE_SAVER_H_
#define SAVE_SAVER_H_

#include <functional>
#include <optional>
#include <string>

#include "save/config_store.h"
#include "save/pending_file.h"

namespace save {

// Which configuration counts when there is a pending one at a start.
enum class Source {
  kRunning,
  kPending,  // the running one was made of startup data that is older
  kConflict  // commits were made to older data while the pending one waited: the running one counts
};

// `continued`: the running datastore is the one that the pending configuration was read from.
// `untouched`: it is as the startup datastore has it, or that cannot be read.
Source Decide(bool continued, bool untouched);

class Saver {
 public:
  // For what an operator must know of.
  using Report = std::function<void(const std::string& text)>;

  // `store` must outlive it.
  Saver(ConfigStore& store, PendingFile pending, Report report);

  // To be called first. Makes the running datastore hold what is pending, if that counts; else
  // saves. Throws what ConfigStore and PendingFile throw.
  void Start();

  // Brings the running configuration to the disk, unless it is there. True when it was not. Throws
  // as above.
  bool Save();

  // False while the pending file has what the startup datastore lacks.
  bool settled() const { return settled_; }

  // Brings what was saved to the startup datastore. Throws as above; then it is still pending.
  void Settle();

 private:
  std::optional<std::string> ReadStartup();
  void Resolve(const Pending& pending, const std::optional<std::string>& startup);
  void Restore(const Pending& pending);
  void SetAside(const std::string& why);
  void WritePending(const std::string& configuration);

  ConfigStore& store_;
  const PendingFile pending_;
  const Report report_;
  std::string saved_;
  bool settled_ = false;
};

}  // namespace save

#endif  // SAVE_SAVER_H_
