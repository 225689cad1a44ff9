#include "save/connected.h"

#include <exception>
#include <filesystem>

#include <vxmw/vxmw.h>

#include "base/service/log.h"
#include "base/severity.h"
#include "datastore/shared_memory.h"
#include "save/startup_files.h"

namespace save {
namespace {

constexpr char kPendingFile[] = "dhcp-relay-saved.pending";

// A datastore whose shared memory is not there yet is made of its startup files.
const PendingFile& Prepare(const PendingFile& pending) {
  if (!datastore::FindSharedMemory() && pending.Read()) ResetDamagedStartupFiles();
  return pending;
}

}  // namespace

PendingFile PendingFileOfDatastore() {
  return PendingFile(std::filesystem::path(sr_get_repo_path()) / kPendingFile);
}

void ReportFault(const std::string& text) {
  base::LogError(text);
  vxmw_gen_fault(base::kFaultCritical, __func__, __FILE__, __LINE__, text.c_str());
}

Connected::Connected(const PendingFile& pending)
    : pending_(Prepare(pending)), saver_(store_, pending_, ReportFault) {
  saver_.Start();
}

void SaveOnce() {
  if (!datastore::FindSharedMemory()) return;
  Connected datastore(PendingFileOfDatastore());
  datastore.saver().Settle();
}

void Recover() {
  const PendingFile pending = PendingFileOfDatastore();
  if (!pending.Read()) return;
  Connected datastore(pending);
  try {
    datastore.saver().Settle();
  } catch (const std::exception& error) {
    ReportFault(std::string("the restored configuration is not saved: ") + error.what());
  }
}

}  // namespace save
