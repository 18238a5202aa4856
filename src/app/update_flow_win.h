#pragma once
// The player's side of an update: when to ask, the questions, the download with its progress
// and the hand-over to the new build. The check and the download run on workers, so the
// interface thread (and with it the hotkey) never waits on the network; the questions never
// nest, and none is asked over a running game.
#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/message_window_win.h"
#include "core/background_job_win.h"
#include "net/async_request_win.h"
#include "setup/updater.h"
#include "ui/update_progress_win.h"

namespace qn {

class HttpClient;

// Why a check runs, which decides what its answer does.
enum class UpdateAsk : uint8_t {
  kAtStart,    // asked now at the desktop, else once the player is back there
  kAtDesktop,  // the player is back at the desktop after an update was put off
  kOnRequest,  // the player asked: "up to date" and an unreachable service are said too
};

struct UpdateChecked {
  UpdateInfo info;
  UpdateAsk ask = UpdateAsk::kOnRequest;
  HWND owner = nullptr;
};
struct UpdateProgress {
  uint64_t got = 0;
  uint64_t total = 0;
};
struct UpdateApplied {
  bool applied = false;
  std::wstring error;  // the player's text when not applied
};

class UpdateFlow {
 public:
  struct Hooks {
    std::function<bool()> desktop_in_front;
    // The new build is in place; the program is to leave and start it.
    std::function<void(const std::wstring& exe)> hand_over;
  };

  UpdateFlow(HINSTANCE instance, const UpdaterOptions& options, HttpClient& client, Hooks hooks);
  // Takes the workers' messages; the window outlives the flow's work (Shutdown).
  void Connect(MessageWindow& window);

  // Nothing when a check, a question or a download is under way already: one at a time.
  // `owner`: the window the player asked from, whose boxes these are.
  void Check(UpdateAsk ask, HWND owner = nullptr);
  // An update found at start with a game in front, to be asked about at the desktop.
  bool TakeDeferred() { return std::exchange(deferred_, false); }
  bool Busy() const { return busy_; }
  // For the message loop's keyboard handling (Esc cancels); null while none is shown.
  HWND ProgressWindow() const { return progress_.get(); }
  // Stops a download at once and waits for both workers.
  void Shutdown();

 private:
  void OnChecked(std::unique_ptr<UpdateChecked> checked);
  void Ask(const UpdateInfo& info, HWND owner);
  void StartDownload(const UpdateInfo& info, HWND owner);
  void OnProgress(const UpdateProgress& progress);
  void OnApplied(std::unique_ptr<UpdateApplied> applied);
  void Finish();

  HINSTANCE instance_;
  Updater updater_;
  HttpClient& client_;
  Hooks hooks_;
  HWND window_ = nullptr;
  BackgroundJob check_job_;
  BackgroundJob download_job_;
  RequestCancel cancel_;
  UpdateProgressWindow progress_;
  std::string downloading_;  // the version, while its download runs
  HWND owner_ = nullptr;     // of the boxes after the download
  bool busy_ = false;        // from a check's start to the end of what it led to
  bool deferred_ = false;
  bool check_dropped_ = false;  // the player cancelled the check they asked for
};

}  // namespace qn
