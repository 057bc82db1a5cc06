#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <memory>

#include "foundation/net/private/CurlTransfer.h"
#include "foundation/net/private/URLConnectionTransfer.h"
#include "foundation/queue/RunLoop.h"

namespace foundation {

/// The asynchronous transfers that the main run loop drives over one multi handle. All but `wake`
/// belongs to the thread that runs the loop.
class TransferLoop final : public RunLoopSource {
 public:
  using Transfer = URLConnection::Transfer;

  /// Most transfers that have a connection at the same time; others wait for their turn, so that
  /// hundreds of them do not use up the process's descriptors.
  static constexpr std::size_t kMaximumActive = 200;

  /// Becomes the main run loop's source on the first call. Never destroyed.
  static TransferLoop& main();

  void add(std::shared_ptr<Transfer> transfer);
  /// Does nothing for a transfer that is not in the loop.
  void remove(const Transfer& transfer);
  /// Moves what can be moved and calls the delegates.
  void drive() override;
  void wait(std::chrono::milliseconds limit) override;
  void wake() override { curl_multi_wakeup(multi_.get()); }
  /// True while the library runs, so that no handle may be added or removed.
  [[nodiscard]] bool isInsideLibrary() const { return isInsideLibrary_; }

 private:
  using Clock = std::chrono::steady_clock;

  TransferLoop() : multi_(makeCurlMulti()) {}
  void activate(std::shared_ptr<Transfer> transfer);
  void activateWaiting();
  void runLibrary();
  void deliver();
  void finishEnded();
  void finishIdle();
  std::shared_ptr<Transfer> take(CURL* easy);

  CurlMulti multi_;
  std::map<CURL*, std::shared_ptr<Transfer>> active_;
  std::deque<std::shared_ptr<Transfer>> waiting_;
  Clock::time_point nextIdleCheck_ = Clock::time_point::max();
  bool isInsideLibrary_ = false;
};

}  // namespace foundation
