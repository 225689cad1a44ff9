#include "dhcp_manager/system_calls.h"

#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>

namespace dhcp_manager {
namespace {

// Older and newer calls of one kind are both here: the C library decides which it makes.
constexpr std::array kFiles{
    SCMP_SYS(access),     SCMP_SYS(chmod),       SCMP_SYS(close),     SCMP_SYS(dup),
    SCMP_SYS(dup2),       SCMP_SYS(dup3),        SCMP_SYS(faccessat), SCMP_SYS(faccessat2),
    SCMP_SYS(fallocate),  SCMP_SYS(fchmod),      SCMP_SYS(fchmodat),  SCMP_SYS(fchown),
    SCMP_SYS(fcntl),      SCMP_SYS(fcntl64),     SCMP_SYS(fdatasync), SCMP_SYS(flock),
    SCMP_SYS(fstat),      SCMP_SYS(fstat64),     SCMP_SYS(fstatat64), SCMP_SYS(fsync),
    SCMP_SYS(ftruncate),  SCMP_SYS(ftruncate64), SCMP_SYS(getcwd),    SCMP_SYS(getdents64),
    SCMP_SYS(ioctl),      SCMP_SYS(link),        SCMP_SYS(linkat),    SCMP_SYS(lseek),
    SCMP_SYS(_llseek),    SCMP_SYS(lstat),       SCMP_SYS(lstat64),   SCMP_SYS(mkdir),
    SCMP_SYS(mkdirat),    SCMP_SYS(newfstatat),  SCMP_SYS(open),      SCMP_SYS(openat),
    SCMP_SYS(pread64),    SCMP_SYS(pwrite64),    SCMP_SYS(read),      SCMP_SYS(readlink),
    SCMP_SYS(readlinkat), SCMP_SYS(readv),       SCMP_SYS(rename),    SCMP_SYS(renameat),
    SCMP_SYS(renameat2),  SCMP_SYS(stat),        SCMP_SYS(stat64),    SCMP_SYS(statx),
    SCMP_SYS(umask),      SCMP_SYS(unlink),      SCMP_SYS(unlinkat),  SCMP_SYS(write),
    SCMP_SYS(writev)};

// Making sockets is limited to some families, further down.
constexpr std::array kSockets{
    SCMP_SYS(accept),      SCMP_SYS(accept4),     SCMP_SYS(bind),       SCMP_SYS(connect),
    SCMP_SYS(getpeername), SCMP_SYS(getsockname), SCMP_SYS(getsockopt), SCMP_SYS(listen),
    SCMP_SYS(recv),        SCMP_SYS(recvfrom),    SCMP_SYS(recvmmsg),   SCMP_SYS(recvmmsg_time64),
    SCMP_SYS(recvmsg),     SCMP_SYS(send),        SCMP_SYS(sendmmsg),   SCMP_SYS(sendmsg),
    SCMP_SYS(sendto),      SCMP_SYS(setsockopt),  SCMP_SYS(shutdown)};

constexpr std::array kEvents{SCMP_SYS(epoll_create),    SCMP_SYS(epoll_create1),
                             SCMP_SYS(epoll_ctl),       SCMP_SYS(epoll_pwait),
                             SCMP_SYS(epoll_pwait2),    SCMP_SYS(epoll_wait),
                             SCMP_SYS(eventfd2),        SCMP_SYS(poll),
                             SCMP_SYS(ppoll),           SCMP_SYS(ppoll_time64),
                             SCMP_SYS(signalfd4),       SCMP_SYS(timerfd_create),
                             SCMP_SYS(timerfd_gettime), SCMP_SYS(timerfd_gettime64),
                             SCMP_SYS(timerfd_settime), SCMP_SYS(timerfd_settime64)};

constexpr std::array kTime{
    SCMP_SYS(clock_getres),    SCMP_SYS(clock_getres_time64), SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_gettime64), SCMP_SYS(clock_nanosleep),     SCMP_SYS(clock_nanosleep_time64),
    SCMP_SYS(gettimeofday),    SCMP_SYS(nanosleep),           SCMP_SYS(time)};

// Memory that can be executed is refused, further down.
constexpr std::array kProcess{SCMP_SYS(brk),
                              SCMP_SYS(madvise),
                              SCMP_SYS(mremap),
                              SCMP_SYS(munmap),
                              SCMP_SYS(exit),
                              SCMP_SYS(exit_group),
                              SCMP_SYS(futex),
                              SCMP_SYS(futex_time64),
                              SCMP_SYS(get_robust_list),
                              SCMP_SYS(getcpu),
                              SCMP_SYS(getegid),
                              SCMP_SYS(getegid32),
                              SCMP_SYS(geteuid),
                              SCMP_SYS(geteuid32),
                              SCMP_SYS(getgid),
                              SCMP_SYS(getgid32),
                              SCMP_SYS(getpid),
                              SCMP_SYS(getppid),
                              SCMP_SYS(getrandom),
                              SCMP_SYS(getrlimit),
                              SCMP_SYS(getrusage),
                              SCMP_SYS(gettid),
                              SCMP_SYS(getuid),
                              SCMP_SYS(getuid32),
                              SCMP_SYS(membarrier),
                              SCMP_SYS(restart_syscall),
                              SCMP_SYS(rseq),
                              SCMP_SYS(rt_sigaction),
                              SCMP_SYS(rt_sigpending),
                              SCMP_SYS(rt_sigprocmask),
                              SCMP_SYS(rt_sigreturn),
                              SCMP_SYS(rt_sigtimedwait),
                              SCMP_SYS(rt_sigtimedwait_time64),
                              SCMP_SYS(sched_getaffinity),
                              SCMP_SYS(sched_yield),
                              SCMP_SYS(set_robust_list),
                              SCMP_SYS(sigaltstack),
                              SCMP_SYS(sigreturn),
                              SCMP_SYS(sysinfo),
                              SCMP_SYS(uname)};

// Unix: daemon, operators, service manager, syslog. Inet: servers. Packet: clients.
constexpr std::array kFamilies{AF_UNIX, AF_INET, AF_PACKET, AF_NETLINK};

constexpr std::array kControls{PR_SET_NAME, PR_GET_NAME, PR_SET_TIMERSLACK, PR_GET_TIMERSLACK};

// Nothing in the manager or its libraries makes these: whoever does has taken the process over.
constexpr std::array kIntrusions{SCMP_SYS(acct),
                                 SCMP_SYS(add_key),
                                 SCMP_SYS(chroot),
                                 SCMP_SYS(clock_settime),
                                 SCMP_SYS(delete_module),
                                 SCMP_SYS(execve),
                                 SCMP_SYS(execveat),
                                 SCMP_SYS(finit_module),
                                 SCMP_SYS(fsmount),
                                 SCMP_SYS(fsopen),
                                 SCMP_SYS(init_module),
                                 SCMP_SYS(ioperm),
                                 SCMP_SYS(iopl),
                                 SCMP_SYS(kexec_file_load),
                                 SCMP_SYS(kexec_load),
                                 SCMP_SYS(keyctl),
                                 SCMP_SYS(mount),
                                 SCMP_SYS(move_mount),
                                 SCMP_SYS(open_by_handle_at),
                                 SCMP_SYS(open_tree),
                                 SCMP_SYS(perf_event_open),
                                 SCMP_SYS(pidfd_getfd),
                                 SCMP_SYS(pivot_root),
                                 SCMP_SYS(process_vm_readv),
                                 SCMP_SYS(process_vm_writev),
                                 SCMP_SYS(ptrace),
                                 SCMP_SYS(reboot),
                                 SCMP_SYS(request_key),
                                 SCMP_SYS(setns),
                                 SCMP_SYS(settimeofday),
                                 SCMP_SYS(swapoff),
                                 SCMP_SYS(swapon),
                                 SCMP_SYS(umount2),
                                 SCMP_SYS(unshare),
                                 SCMP_SYS(userfaultfd)};

void Check(int result, const char* what) {
  if (result >= 0) return;
  throw std::runtime_error(std::string("cannot filter system calls (") + what +
                           "): " + std::generic_category().message(-result) +
                           "; --keep-rights runs without the filter");
}

class Filter {
 public:
  Filter() : context_(seccomp_init(SCMP_ACT_ERRNO(ENOSYS))) {
    if (!context_) throw std::runtime_error("cannot filter system calls");
    Check(seccomp_attr_set(context_.get(), SCMP_FLTATR_CTL_LOG, 1), "log");
    // A sorted search of the calls instead of one comparison each.
    Check(seccomp_attr_set(context_.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2), "optimise");
  }

  void Add(std::uint32_t action, std::span<const int> calls) {
    for (const int call : calls) Check(seccomp_rule_add(context_.get(), action, call, 0), "rule");
  }

  // The call is allowed if that holds for its argument; several rules for a call add up.
  void Allow(int call, const scmp_arg_cmp& argument) {
    Check(seccomp_rule_add_array(context_.get(), SCMP_ACT_ALLOW, call, 1, &argument), "argument");
  }

  void Load() { Check(seccomp_load(context_.get()), "load"); }

 private:
  struct Release {
    void operator()(scmp_filter_ctx context) const { seccomp_release(context); }
  };
  std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, Release> context_;
};

scmp_arg_cmp Equals(unsigned argument, std::uint64_t value) {
  return {.arg = argument, .op = SCMP_CMP_EQ, .datum_a = value, .datum_b = 0};
}

// Of two operands: the first one is a mask.
scmp_arg_cmp Without(unsigned argument, std::uint64_t flag) {
  return {.arg = argument, .op = SCMP_CMP_MASKED_EQ, .datum_a = flag, .datum_b = 0};
}

void AllowByArgument(Filter& filter) {
  constexpr unsigned kProtection = 2;
  for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mmap2), SCMP_SYS(mprotect)}) {
    filter.Allow(call, Without(kProtection, PROT_EXEC));
  }
  for (const int family : kFamilies) {
    filter.Allow(SCMP_SYS(socket), Equals(0, static_cast<std::uint64_t>(family)));
  }
  for (const int control : kControls) {
    filter.Allow(SCMP_SYS(prctl), Equals(0, static_cast<std::uint64_t>(control)));
  }
  // abort() sends itself a signal.
  filter.Allow(SCMP_SYS(tgkill), Equals(0, static_cast<std::uint64_t>(getpid())));
}

}  // namespace

void FilterSystemCalls() {
  Filter filter;
  for (const std::span<const int> calls :
       {std::span<const int>(kFiles), std::span<const int>(kSockets), std::span<const int>(kEvents),
        std::span<const int>(kTime), std::span<const int>(kProcess)}) {
    filter.Add(SCMP_ACT_ALLOW, calls);
  }
  AllowByArgument(filter);
  filter.Add(SCMP_ACT_KILL_PROCESS, kIntrusions);
  filter.Load();
}

}  // namespace dhcp_manager
