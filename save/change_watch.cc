#include "save/change_watch.h"

#include <utility>

namespace save {

ChangeWatch::Task ChangeWatch::Look(const std::string& modified, Clock::time_point now) {
  if (modified == saved_) return now - saved_at_ < kSettleDelay ? Task::kNone : Task::kSettle;
  if (!std::exchange(gathering_, true)) gathering_since_ = now;
  certain_ = modified == noticed_;
  noticed_ = modified;
  return certain_ || now - gathering_since_ >= kLongestGathering ? Task::kSave : Task::kGather;
}

void ChangeWatch::Saved(Clock::time_point now) {
  gathering_ = false;
  saved_at_ = now;
  // Else the next look finds a change, and what it reads counts.
  if (certain_) saved_ = noticed_;
}

}  // namespace save
