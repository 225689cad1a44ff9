// Whether commits are being saved: told by dhcp-relay-saved in a small file, read by whoever asks.
//
// The file is in the saver's runtime directory, in memory, and is replaced as a whole. Beside it is
// a lock, which the saver holds while it lives, so that a saver that was killed is not taken for
// one that works. The lock is for the saver's user and group.

#ifndef PROTOCOL_SAVING_SAVE_STATUS_H_
#define PROTOCOL_SAVING_SAVE_STATUS_H_

#include <filesystem>
#include <optional>
#include <string>

#include "base/descriptor.h"

namespace dhcp_relay::saving {

// The saver's runtime directory: DHCP_RELAY_SAVED_DIR, else /run/dhcp-relay-saved.
std::filesystem::path RuntimeDirectory();

enum class SaveState {
  kNotRunning,
  kSaving,  // a commit is being brought to the disk
  kSaved,   // every commit seen is on the disk
  kFailed,  // it cannot be brought there; tried again
  kUnknown  // this process may not read the file
};

// The state's name, such as "not-running".
std::string Name(SaveState state);

struct SaveStatus {
  SaveState state = SaveState::kNotRunning;
  std::string reason;  // of kFailed and kUnknown

  // Whether commits are being saved.
  bool good() const { return state == SaveState::kSaving || state == SaveState::kSaved; }
  bool operator==(const SaveStatus&) const = default;
};

// Never throws: what cannot be read is kUnknown.
SaveStatus ReadSaveStatus(const std::filesystem::path& directory);

// The saver's side.
class StatusFile {
 public:
  // Makes the directory and takes the lock. Throws std::system_error, or std::runtime_error when
  // another saver holds the lock.
  explicit StatusFile(std::filesystem::path directory);

  // Does nothing when nothing changes. Throws std::system_error.
  void Publish(const SaveStatus& status);

 private:
  std::filesystem::path directory_;
  base::Descriptor lock_;
  std::optional<SaveStatus> published_;
};

}  // namespace dhcp_relay::saving

#endif  // PROTOCOL_SAVING_SAVE_STATUS_H_
