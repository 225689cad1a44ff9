// Decides from the time of the latest change when to save.

#ifndef SAVE_CHANGE_WATCH_H_
#define SAVE_CHANGE_WATCH_H_

#include <chrono>
#include <string>

namespace save {

class ChangeWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // Commits of this time are gathered, so that a row of them is saved together. It is longer than a
  // tick of the clock that times changes, too: two commits within a tick have one time, and only
  // what is read a tick later holds both for certain.
  static constexpr std::chrono::milliseconds kGatherTime{60};
  // After this, what there is is saved although more commits come.
  static constexpr std::chrono::milliseconds kLongestGathering{250};
  // Without a commit for so long, the startup datastore is brought in step.
  static constexpr std::chrono::milliseconds kSettleDelay{1000};

  enum class Task {
    kNone,
    kGather,  // look again after kGatherTime
    kSave,
    kSettle  // if that has not been done since the last save
  };

  // `modified` is the time of the latest change, as a text that is the same as long as it is.
  Task Look(const std::string& modified, Clock::time_point now);

  // What was there when the latest Look said kSave, or later, has been saved.
  void Saved(Clock::time_point now);

  // Nothing counts as saved.
  void Forget() { saved_.clear(); }

 private:
  std::string noticed_;
  Clock::time_point gathering_since_;
  bool gathering_ = false;
  bool certain_ = false;  // the latest change was a tick ago
  std::string saved_;
  Clock::time_point saved_at_;
};

}  // namespace save

#endif  // SAVE_CHANGE_WATCH_H_
