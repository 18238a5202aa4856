#pragma once
#include <windows.h>

#include <string>

#include "app/key_capture.h"
#include "app/update_flow_win.h"
#include "core/posted_message.h"
#include "net/session.h"

namespace qn {

// Messages to the message-only window. Fixed values: other processes post some of them.
constexpr UINT kMsgAlreadyRunning = WM_APP + 3;
// A chat event's JSON text; null for the end of the turn. LPARAM: the turn's number.
constexpr PostedMessage<std::string> kMsgChatEvent{WM_APP + 4};
constexpr PostedMessage<KeyEventRecord> kMsgCapturedKey{WM_APP + 5};
constexpr PostedMessage<GameLookupResult> kMsgProgressSnapshot{WM_APP + 6};
// An install or uninstall asks the running copy to end, so that it can replace or remove it.
constexpr UINT kMsgEndForSetup = WM_APP + 7;
// The stored session was tried with the service: the failure, kNone when signed in.
constexpr PostedMessage<ServiceFailure> kMsgSessionRestored{WM_APP + 8};
constexpr PostedMessage<UpdateChecked> kMsgUpdateChecked{WM_APP + 9};
constexpr PostedMessage<UpdateProgress> kMsgUpdateProgress{WM_APP + 10};
constexpr PostedMessage<UpdateApplied> kMsgUpdateApplied{WM_APP + 14};

}  // namespace qn
