#include "app/update_flow_win.h"

#include <utility>

#include "app/messages.h"
#include "core/log.h"

namespace qn {
namespace {

// Progress is posted in steps of about a percent, or of 256 KB while the size is not known:
// a message per 16 KB read would flood the queue for nothing the bar can show.
uint64_t NextProgressStep(uint64_t got, uint64_t total) {
  const uint64_t step = total != 0 ? total / 100 + 1 : uint64_t{256} << 10;
  return got + step;
}

}  // namespace

UpdateFlow::UpdateFlow(HINSTANCE instance, const UpdaterOptions& options, HttpClient& client,
                       Hooks hooks)
    : instance_(instance), updater_(options), client_(client), hooks_(std::move(hooks)) {}

void UpdateFlow::Connect(MessageWindow& window) {
  window_ = window.get();
  window.OnPosted<UpdateChecked>(kMsgUpdateChecked, [this](auto checked, LPARAM) {
    OnChecked(std::move(checked));
  });
  window.OnPosted<UpdateProgress>(kMsgUpdateProgress, [this](auto progress, LPARAM) {
    if (progress) OnProgress(*progress);
  });
  window.OnPosted<UpdateApplied>(kMsgUpdateApplied, [this](auto applied, LPARAM) {
    OnApplied(std::move(applied));
  });
}

// A box runs a message loop of its own, which goes on serving the tray menu, the settings
// window and the drawer's return to the desktop; each of them may ask again, and a second
// question under the first would let both apply the update.
void UpdateFlow::Check(UpdateAsk ask, HWND owner) {
  if (busy_) {
    Log(kLogInfo, L"an update check or prompt is under way already; not asking again");
    return;
  }
  const bool started = check_job_.Start(window_, kMsgUpdateChecked, [this, ask, owner] {
    return std::make_unique<UpdateChecked>(UpdateChecked{updater_.Check(client_), ask, owner});
  });
  busy_ = started;
  check_dropped_ = false;
  // The player asked and waits for the answer, which an unreachable service may hold up for
  // half a minute; the checks of the program's own accord stay silent.
  if (started && ask == UpdateAsk::kOnRequest) {
    progress_.Open(instance_, owner, kCheckingForUpdatesText, [this] {
      check_dropped_ = true;
      progress_.Close();
    });
  }
}

void UpdateFlow::OnChecked(std::unique_ptr<UpdateChecked> checked) {
  progress_.Close();
  if (!checked || check_dropped_) return Finish();
  const UpdateInfo& info = checked->info;
  if (!info.available) {
    if (checked->ask == UpdateAsk::kOnRequest) {
      MessageBoxW(checked->owner,
                  info.unreachable ? kUpdateCheckFailedText : UpToDateText().c_str(),
                  kUpdateCaption, info.unreachable ? MB_ICONWARNING : MB_ICONINFORMATION);
    }
    return Finish();
  }
  if (checked->ask == UpdateAsk::kAtStart && !hooks_.desktop_in_front()) {
    deferred_ = true;
    Log(kLogInfo, L"an update is available, but something is in the foreground; deferring the "
                  L"prompt until the player is back at the desktop");
    return Finish();
  }
  Ask(info, checked->owner);
}

void UpdateFlow::Ask(const UpdateInfo& info, HWND owner) {
  if (MessageBoxW(owner, UpdateQuestionText(info).c_str(), kUpdateCaption,
                  MB_YESNO | MB_ICONINFORMATION) != IDYES) {
    return Finish();
  }
  StartDownload(info, owner);
}

void UpdateFlow::StartDownload(const UpdateInfo& info, HWND owner) {
  cancel_.Reset();
  owner_ = owner;
  downloading_ = info.version;
  const bool started = download_job_.Start(window_, kMsgUpdateApplied, [this, info] {
    uint64_t next_post = 0;
    DownloadWatch watch;
    watch.cancel = &cancel_;
    watch.progress = [this, &next_post](uint64_t got, uint64_t total) {
      if (got < next_post && got != total) return;
      next_post = NextProgressStep(got, total);
      PostOwned(window_, kMsgUpdateProgress,
                std::make_unique<UpdateProgress>(UpdateProgress{got, total}));
    };
    auto applied = std::make_unique<UpdateApplied>();
    applied->applied = updater_.Apply(info, applied->error, watch);
    return applied;
  });
  if (!started) {
    MessageBoxW(owner, kDownloadError, kUpdateCaption, MB_ICONWARNING);
    return Finish();
  }
  progress_.Open(instance_, owner, DownloadProgressText(info.version, 0, 0),
                 [this] { cancel_.Cancel(); });
}

void UpdateFlow::OnProgress(const UpdateProgress& progress) {
  progress_.Show(DownloadProgressText(downloading_, progress.got, progress.total), progress.got,
                 progress.total);
}

void UpdateFlow::OnApplied(std::unique_ptr<UpdateApplied> applied) {
  progress_.Close();
  if (!applied || !applied->applied) {
    // Cancelled is what the player asked for; nothing to tell them.
    if (!cancel_.cancelled()) {
      MessageBoxW(owner_, applied ? applied->error.c_str() : kDownloadError, kUpdateCaption,
                  MB_ICONWARNING);
    }
    return Finish();
  }
  // Started only once this process has let go of the hotkey, the tray icon and the
  // single-instance mutex: started now, the new build would find them all taken.
  Log(kLogInfo, L"update applied; handing over to the new build");
  Finish();
  hooks_.hand_over(updater_.ExePath());
}

void UpdateFlow::Finish() {
  busy_ = false;
  owner_ = nullptr;
  downloading_.clear();
}

void UpdateFlow::Shutdown() {
  cancel_.Cancel();
  progress_.Close();
  check_job_.Wait();
  download_job_.Wait();
}

}  // namespace qn
