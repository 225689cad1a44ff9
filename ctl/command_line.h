// The command line of dhcp-relayctl.

#ifndef CTL_COMMAND_LINE_H_
#define CTL_COMMAND_LINE_H_

#include <filesystem>
#include <string>

#include "base/runtime_directory.h"

namespace relayctl {

struct CommandLine {
  std::filesystem::path directory = base::RuntimeDirectory();
  std::string command;
  std::string topic;  // of the command; empty: none
  bool json = false;
  int wait = 0;  // seconds
};

// Ends the process after printing help or version, and as Refuse does when there is no command or
// more than a command and its topic.
CommandLine ParseCommandLine(int argc, char** argv);

// Ends the process with the exit status of a usage error.
[[noreturn]] void Refuse(const std::string& reason);

}  // namespace relayctl

#endif  // CTL_COMMAND_LINE_H_
