// The files in which the datastore keeps its startup data, one for each module.
//
// The datastore replaces them without syncing them, and takes no notice when the disk is full: a
// file may end in the middle after a power cut or on a full disk. What has to be there is still in
// the pending file then.

#ifndef SAVE_STARTUP_FILES_H_
#define SAVE_STARTUP_FILES_H_

#include <cstddef>

namespace save {

// Throws std::system_error when the disk has no room for a configuration of that many bytes.
void RequireRoomForStartupFiles(std::size_t bytes);

// Brings them to the disk. Throws std::system_error.
void SyncStartupFiles();

// Makes those that are not whole empty configurations, since the datastore cannot even be connected
// to otherwise. Returns how many. Throws std::system_error.
int ResetDamagedStartupFiles();

}  // namespace save

#endif  // SAVE_STARTUP_FILES_H_
