#include "src/dhcp_relay_app/main.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <utility>

#include "src/lib/logger.h"

namespace dhcp_relay_app {
namespace {

constexpr char kSourcePath[] = "src/dhcp_relay_app/main";

// Fault records are identified by these numbers, which do not follow the code around them.
constexpr int kAttachFaultLine = 21;
constexpr int kExceptionFaultLine = 32;
constexpr int kUnknownExceptionFaultLine = 36;

constexpr int kNoTimeout = 0;

}  // namespace

DhcpRelayApp::DhcpRelayApp(vxmw_t* mw, std::shared_ptr<Mediator> mediator,
                           std::shared_ptr<DhcpRelayCfgHandler> handler,
                           std::shared_ptr<DhcpMgrFacade> facade) {
  if (mw == nullptr) throw std::runtime_error("Invalid middleware handler");
  mw_ = mw;
  mediator_ = mediator ? std::move(mediator) : std::make_shared<Controller>();
  handler_ = handler ? std::move(handler) : std::make_shared<DhcpRelayCfgHandler>(mw_, mediator_);
  facade_ = facade ? std::move(facade)
                   : std::make_shared<DhcpMgrFacade>(mw_, mediator_,
                                                     std::shared_ptr<dhcp_relay::DhcpUser>());
  zlog_category_t* const category = Logger::Instance().category;
  app_interface_ =
      std::make_unique<vxconfd::AppInterface>(mw_, category, kApplicationName, ELEM_CONFD_PHASE_2);
  app_interface_->AddConfigHandler(handler_.get());
  app_interface_->Init(0);
}

DhcpRelayApp::~DhcpRelayApp() = default;

int DhcpRelayApp::Run(int timeout) {
  bool go_on = true;
  return vxmw_loop_while_timeout(mw_, &go_on, timeout) != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace dhcp_relay_app

int main() {
  using namespace dhcp_relay_app;  // NOLINT(google-build-using-namespace)

  vxmw_t* mw = vxmw_init(kApplicationName);
  char text[kFaultTextSize] = {};
  if (mw == nullptr) {
    vxmw_print_backtrace();
    vxmw_gen_fault(1, __func__, kSourcePath, kAttachFaultLine, text);
    std::exit(EXIT_FAILURE);
  }

  int exit_code = EXIT_FAILURE;
  try {
    Logger::Instance().Init(mw);
    DhcpRelayApp app(mw, nullptr, nullptr, nullptr);
    exit_code = app.Run(kNoTimeout);
  } catch (const std::exception& error) {
    std::snprintf(text, sizeof(text), "Exception caught!\n'%s'.\n", error.what());
    vxmw_gen_fault(0, __func__, kSourcePath, kExceptionFaultLine, text);
  } catch (...) {
    std::snprintf(text, sizeof(text), "Error! Unknown exception.\n");
    vxmw_gen_fault(0, __func__, kSourcePath, kUnknownExceptionFaultLine, text);
  }

  vxmw_finish(&mw);
  return exit_code;
}
