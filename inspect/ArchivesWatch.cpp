#include "inspect/ArchivesWatch.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "foundation/base/Text.h"
#include "foundation/base/WriteAll.h"
#include "foundation/format/JSON.h"
#include "foundation/process/Interruption.h"
#include "foundation/queue/NotificationCenter.h"
#include "foundation/queue/RunLoop.h"
#include "xcode/QVTXcodeArchiveMonitor.h"

namespace inspect {

namespace {

/// The location itself is polled, since the monitor is silent once its folder is gone.
constexpr std::chrono::milliseconds kPollInterval{500};

using FolderIdentity = std::pair<dev_t, ino_t>;

std::optional<FolderIdentity> folderAt(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return std::nullopt;
  return FolderIdentity{status.st_dev, status.st_ino};
}

class ArchivesWatch {
 public:
  ArchivesWatch(std::string location, WatchOptions options)
      : location_(std::move(location)), options_(options) {}

  void poll() {
    const auto folder = folderAt(location_);
    if (hasPolled_ && folder == watched_) return;
    const bool wasWatching = watched_.has_value();
    monitor_.reset();
    watched_ = folder;
    if (!folder) {
      say(wasWatching ? "gone" : "missing", location_);
    } else {
      monitor_ = QVTXcodeArchiveMonitor::init();
      say("watching", location_);
    }
    hasPolled_ = true;
  }

  void say(const std::string& event, const std::string& path) const {
    const std::string line =
        options_.asJSON
            ? foundation::JSON::encode(foundation::Dictionary{{"event", event}, {"path", path}})
            : sentence(event) + foundation::escapingControlCharacters(path);
    const int error = foundation::writeAll(STDOUT_FILENO, line + "\n");
    if (error != 0) std::exit(1);
  }

 private:
  static std::string sentence(const std::string& event) {
    if (event == "watching") return "watching ";
    if (event == "missing") return "not there yet, waiting for it: ";
    if (event == "gone") return "gone, waiting for it to come back: ";
    return "new archive in ";
  }

  std::string location_;
  WatchOptions options_;
  std::optional<FolderIdentity> watched_;
  bool hasPolled_ = false;
  std::shared_ptr<QVTXcodeArchiveMonitor> monitor_;
};

}  // namespace

void watchArchives(const std::string& location, const WatchOptions& options) {
  ArchivesWatch watch(location, options);
  [[maybe_unused]] const auto token = foundation::NotificationCenter::defaultCenter().addObserver(
      QVTXcodeArchiveChangedNotification, [&](const auto& notification) {
        if (const auto* path = notification.object.string()) watch.say("changed", *path);
      });
  for (;;) {
    watch.poll();
    foundation::RunLoop::main().runUntil(foundation::isInterrupted, kPollInterval);
    foundation::throwIfInterrupted();
  }
}

}  // namespace inspect
