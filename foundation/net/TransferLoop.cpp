#include "foundation/net/private/TransferLoop.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace foundation {

TransferLoop& TransferLoop::main() {
  static TransferLoop& loop = [&]() -> TransferLoop& {
    auto& made = *new TransferLoop;
    RunLoop::main().setSource(made);
    return made;
  }();
  return loop;
}

void TransferLoop::add(std::shared_ptr<Transfer> transfer) {
  if (active_.size() < kMaximumActive && !isInsideLibrary_) {
    activate(std::move(transfer));
  } else {
    waiting_.push_back(std::move(transfer));
  }
}

void TransferLoop::activate(std::shared_ptr<Transfer> transfer) {
  CurlTransfer& hop = *transfer->current();
  hop.begin();
  nextIdleCheck_ = std::min(nextIdleCheck_, Clock::now() + hop.samplingInterval());
  if (curl_multi_add_handle(multi_.get(), hop.easy()) != CURLM_OK) {
    return transfer->finish(CURLE_FAILED_INIT);
  }
  active_.emplace(hop.easy(), std::move(transfer));
}

void TransferLoop::activateWaiting() {
  while (active_.size() < kMaximumActive && !waiting_.empty()) {
    auto next = std::move(waiting_.front());
    waiting_.pop_front();
    activate(std::move(next));
  }
}

void TransferLoop::remove(const Transfer& transfer) {
  if (const CurlTransfer* hop = transfer.current()) take(hop->easy());
  std::erase_if(waiting_, [&](const auto& waiting) { return waiting.get() == &transfer; });
}

std::shared_ptr<TransferLoop::Transfer> TransferLoop::take(CURL* easy) {
  const auto found = active_.find(easy);
  if (found == active_.end()) return nullptr;
  curl_multi_remove_handle(multi_.get(), easy);
  auto transfer = std::move(found->second);
  active_.erase(found);
  return transfer;
}

/// A delegate that runs the loop from inside a question of the library finds it busy.
void TransferLoop::drive() {
  if (isInsideLibrary_) return;
  activateWaiting();
  runLibrary();
  finishEnded();
  deliver();
  finishIdle();
  activateWaiting();
}

void TransferLoop::runLibrary() {
  isInsideLibrary_ = true;
  int running = 0;
  curl_multi_perform(multi_.get(), &running);
  isInsideLibrary_ = false;
}

void TransferLoop::finishEnded() {
  std::vector<std::pair<std::shared_ptr<Transfer>, CURLcode>> ended;
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode result = message->data.result;
    if (auto transfer = take(message->easy_handle)) ended.emplace_back(std::move(transfer), result);
  }
  for (const auto& [transfer, result] : ended) transfer->finish(result);
}

void TransferLoop::deliver() {
  std::vector<std::shared_ptr<Transfer>> transfers;
  for (const auto& [easy, transfer] : active_) transfers.push_back(transfer);
  for (const auto& transfer : transfers) transfer->deliver();
}

void TransferLoop::finishIdle() {
  if (Clock::now() < nextIdleCheck_) return;
  auto interval = std::chrono::milliseconds::max();
  std::vector<std::shared_ptr<Transfer>> idle;
  for (const auto& [easy, transfer] : active_) {
    CurlTransfer& hop = *transfer->current();
    if (hop.isIdle()) idle.push_back(transfer);
    interval = std::min(interval, hop.samplingInterval());
  }
  nextIdleCheck_ = active_.empty() ? Clock::time_point::max() : Clock::now() + interval;
  for (const auto& transfer : idle) {
    if (transfer->current() && take(transfer->current()->easy())) transfer->finish(std::nullopt);
  }
}

void TransferLoop::wait(std::chrono::milliseconds limit) {
  if (isInsideLibrary_) return;
  if (!active_.empty()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(nextIdleCheck_ - Clock::now());
    limit = std::clamp(left, std::chrono::milliseconds(0), limit);
  }
  curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(limit.count()), nullptr);
}

}  // namespace foundation
