#include "dhcp_manager/kernel/netlink_cache.h"

#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/netlink.h>

#include <stdexcept>

#include "base/socket_buffers.h"

namespace dhcp_manager {
namespace {

// Room for the events of thousands of interfaces that come up together. A smaller buffer only makes
// it likelier that everything must be read anew.
constexpr int kReceiveBuffer = 4 * 1024 * 1024;

void Check(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(std::string("cannot ") + what + ": " + nl_geterror(result));
  }
}

struct ManagerDeleter {
  void operator()(nl_cache_mngr* manager) const { nl_cache_mngr_free(manager); }
};

class KernelNetlinkCache final : public NetlinkCache {
 public:
  explicit KernelNetlinkCache(VrfDevices vrf_devices) : vrf_devices_(std::move(vrf_devices)) {
    nl_cache_mngr* manager = nullptr;
    Check(nl_cache_mngr_alloc(nullptr, NETLINK_ROUTE, 0, &manager), "watch the kernel's links");
    manager_.reset(manager);
    base::SetReceiveBuffer(fd(), kReceiveBuffer);
    Check(nl_cache_mngr_add(manager, "route/link", nullptr, nullptr, &links_),
          "read the kernel's links");
    Check(nl_cache_mngr_add(manager, "route/addr", nullptr, nullptr, &addresses_),
          "read the kernel's addresses");
  }

  int fd() const override { return nl_cache_mngr_get_fd(manager_.get()); }

  std::optional<std::string> TakeEvents() override {
    const int result = nl_cache_mngr_data_ready(manager_.get());
    if (result < 0) return nl_geterror(result);
    return std::nullopt;
  }

  Links Read() const override { return ReadLinks(links_, addresses_, vrf_devices_); }

 private:
  const VrfDevices vrf_devices_;
  std::unique_ptr<nl_cache_mngr, ManagerDeleter> manager_;
  nl_cache* links_ = nullptr;      // the manager's
  nl_cache* addresses_ = nullptr;  // the manager's
};

}  // namespace

std::unique_ptr<NetlinkCache> OpenNetlinkCache(const VrfDevices& vrf_devices) {
  return std::make_unique<KernelNetlinkCache>(vrf_devices);
}

}  // namespace dhcp_manager
