// Event sources on the middleware's loop, for the platform's own libraries.
//
// A source runs its callback on the loop's thread from construction (IoSource) or Arm (TimerSource)
// until it is destroyed, and must be gone before vxmw_finish. A callback may destroy its own
// source. An exception that leaves a callback is kept, ends the loop, and is rethrown by
// vxmw_loop_while_timeout: it never crosses the C frames of the loop.
//
// Constructors throw std::system_error when the loop refuses the source.

#ifndef VXMW_EVENT_H_
#define VXMW_EVENT_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>

#include <vxmw/vxmw.h>

#pragma GCC visibility push(default)

namespace vxmw {

// A source of the background runs only while no other source is ready.
enum class Priority : std::int8_t { kNormal, kBackground };

// Watches `fd` (not owned) for `events` (EPOLLIN and its like).
class IoSource {
 public:
  using Callback = std::function<void(std::uint32_t ready_events)>;

  IoSource(vxmw_t* mw, int fd, std::uint32_t events, Callback callback);
  IoSource(vxmw_t* mw, int fd, std::uint32_t events, Callback callback, Priority priority);
  ~IoSource();
  IoSource(IoSource&&) noexcept;
  IoSource& operator=(IoSource&&) noexcept;

  void SetEvents(std::uint32_t events);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Calls back once, `after` (0 if negative) from the latest Arm; disarmed at construction.
class TimerSource {
 public:
  using Callback = std::function<void()>;

  TimerSource(vxmw_t* mw, Callback callback);
  ~TimerSource();
  TimerSource(TimerSource&&) noexcept;
  TimerSource& operator=(TimerSource&&) noexcept;

  void Arm(std::chrono::microseconds after);
  void Disarm();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Calls back on SIGHUP, after the trace configuration has been read again, while it lives. The
// callback makes and destroys no watch; what it throws ends the loop as that of a source does.
class HangupWatch {
 public:
  using Callback = std::function<void()>;

  HangupWatch(vxmw_t* mw, Callback callback);
  ~HangupWatch();
  HangupWatch(const HangupWatch&) = delete;
  HangupWatch& operator=(const HangupWatch&) = delete;

 private:
  vxmw_t* mw_;
  std::list<Callback>::iterator callback_;
};

// Ends the running loop: vxmw_loop_while_timeout returns `result`.
void EndLoop(vxmw_t* mw, int result);

// For work that keeps the loop from running, to be called between its steps, as often as it likes:
// feeds the service manager's watchdog. False once SIGTERM or SIGINT waits for the loop; the work
// is then to be given up, so that the loop can end.
bool KeepAlive(vxmw_t* mw);

// Whether this process's configuration adapter is connected, has run its initial phases, and holds
// no commit that is still to be delivered. The adapter says so; the DHCP manager client needs it to
// know when a dump that had to wait is complete, and whether the manager holds everything.
bool ConfigReady(const vxmw_t* mw);
void SetConfigReady(vxmw_t* mw, bool ready);

// Calls back on every change of ConfigReady, synchronously from SetConfigReady, while it lives. A
// callback may destroy watches, its own too; what it throws reaches SetConfigReady's caller.
class ConfigReadyWatch {
 public:
  using Callback = std::function<void(bool ready)>;

  ConfigReadyWatch(vxmw_t* mw, Callback callback);
  ~ConfigReadyWatch();
  ConfigReadyWatch(const ConfigReadyWatch&) = delete;
  ConfigReadyWatch& operator=(const ConfigReadyWatch&) = delete;

 private:
  vxmw_t* mw_;
  std::shared_ptr<const Callback> callback_;
};

// The adapter says when a delivery begins and when it is over: while it takes the handlers through
// a commit, or through the initial phases. What they call meanwhile belongs together, and the DHCP
// manager client tells the manager so. A delivery that is given up is never over.
void SetDelivering(vxmw_t* mw, bool delivering);

// Calls back when a delivery begins and when it is over, as ConfigReadyWatch does.
class DeliveryWatch {
 public:
  using Callback = std::function<void(bool delivering)>;

  DeliveryWatch(vxmw_t* mw, Callback callback);
  ~DeliveryWatch();
  DeliveryWatch(const DeliveryWatch&) = delete;
  DeliveryWatch& operator=(const DeliveryWatch&) = delete;

 private:
  vxmw_t* mw_;
  std::shared_ptr<const Callback> callback_;
};

}  // namespace vxmw

#pragma GCC visibility pop

#endif  // VXMW_EVENT_H_
