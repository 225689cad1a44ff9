#include "save/saver.h"

#include <system_error>
#include <utility>

namespace save {

Source Decide(bool continued, bool untouched) {
  if (continued) return Source::kRunning;
  return untouched ? Source::kPending : Source::kConflict;
}

Saver::Saver(ConfigStore& store, PendingFile pending, Report report)
    : store_(store), pending_(std::move(pending)), report_(std::move(report)) {}

void Saver::Start() {
  const std::optional<Pending> pending = pending_.Read();
  const std::optional<std::string> startup = ReadStartup();
  if (pending) Resolve(*pending, startup);
  const std::string running = store_.Running();
  settled_ = startup == running;
  if (settled_) {
    pending_.Remove();
  } else if (!pending || running != pending->configuration) {
    WritePending(running);
  }
  saved_ = running;
}

std::optional<std::string> Saver::ReadStartup() {
  try {
    return store_.Startup();
  } catch (const DatastoreLost&) {
    throw;
  } catch (const datastore::Error&) {
    return std::nullopt;  // cut short by a power cut or a full disk; what it lacks is pending
  }
}

void Saver::Resolve(const Pending& pending, const std::optional<std::string>& startup) {
  const std::string running = store_.Running();
  if (running == pending.configuration) return;
  const bool continued = pending.generation == store_.Generation();
  switch (Decide(continued, !startup || running == *startup)) {
    case Source::kRunning:
      break;
    case Source::kPending:
      Restore(pending);
      break;
    case Source::kConflict:
      SetAside("commits were made to an older configuration than the one saved last");
      break;
  }
}

void Saver::Restore(const Pending& pending) {
  try {
    store_.SetRunning(pending.configuration);
  } catch (const ConfigurationRefused& error) {
    SetAside(error.what());
    return;
  }
  report_("the configuration that was saved last is restored");
  try {
    WritePending(pending.configuration);
  } catch (const std::system_error&) {
    // The same configuration is still there, under the earlier generation.
  }
}

void Saver::SetAside(const std::string& why) {
  report_(why + "; what was saved is kept in " + pending_.SetAside().string());
}

void Saver::WritePending(const std::string& configuration) {
  pending_.Write({store_.Generation(), configuration});
}

bool Saver::Save() {
  std::string running = store_.Running();
  if (running == saved_) return false;
  WritePending(running);
  saved_ = std::move(running);
  settled_ = false;
  return true;
}

void Saver::Settle() {
  if (settled_) return;
  store_.SetStartup(saved_);
  // The datastore takes no notice of a disk that is full.
  if (store_.Startup() != saved_) {
    throw datastore::Error("the startup datastore does not hold what was written to it");
  }
  pending_.Remove();
  settled_ = true;
}

}  // namespace save
