// The system calls that the manager is left with once it runs.

#ifndef DHCP_MANAGER_SYSTEM_CALLS_H_
#define DHCP_MANAGER_SYSTEM_CALLS_H_

namespace dhcp_manager {

// Refuses this process, for good, every system call that relaying does not need:
// - One that only an intruder makes, such as execve, ptrace or mount, ends the process with SIGSYS.
// - Every other that is not needed fails with ENOSYS, as if the kernel did not have it: so a C
//   library that tries a newer call first takes the older one, and relaying goes on.
// The kernel logs either (audit record of type 1326). REQUIRES: no_new_privs, or CAP_SYS_ADMIN.
// Throws std::runtime_error.
void FilterSystemCalls();

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_SYSTEM_CALLS_H_
