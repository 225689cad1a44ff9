// A datastore in the test's hands.

#ifndef TESTS_UNIT_SAVE_SCRIPTED_STORE_H_
#define TESTS_UNIT_SAVE_SCRIPTED_STORE_H_

#include <string>

#include "save/config_store.h"

namespace tests {

class ScriptedStore : public save::ConfigStore {
 public:
  std::string Generation() const override { return generation; }
  std::string LastModified() override { return running; }
  std::string Running() override {
    if (lost) throw save::DatastoreLost("gone");
    return running;
  }
  std::string Startup() override {
    if (damaged) throw datastore::Error("cut short");
    return startup;
  }
  void SetRunning(const std::string& configuration) override {
    if (refuses) throw save::ConfigurationRefused("the models have changed");
    running = configuration;
  }
  void SetStartup(const std::string& configuration) override {
    ++writes;
    if (full) throw datastore::Error("no space");
    damaged = false;
    startup = cut_short ? configuration.substr(1) : configuration;
  }

  std::string generation = "g1";
  std::string running;
  std::string startup;
  int writes = 0;  // of the startup datastore
  bool lost = false;
  bool damaged = false;    // the startup datastore
  bool full = false;       // its disk
  bool cut_short = false;  // what is written to it, without a word
  bool refuses = false;
};

}  // namespace tests

#endif  // TESTS_UNIT_SAVE_SCRIPTED_STORE_H_
