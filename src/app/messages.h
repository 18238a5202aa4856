#pragma once
#include <windows.h>

#include <string>

#include "core/posted_message.h"
#include "net/session.h"

namespace qn {

// Messages to the message-only window. Fixed values: other processes post some of them.
constexpr UINT kMsgTrayCallback = WM_APP + 1;
constexpr UINT kMsgAlreadyRunning = WM_APP + 3;
// A chat event's JSON text; null for the end of the turn.
constexpr PostedMessage<std::string> kMsgChatEvent{WM_APP + 4};
constexpr UINT kMsgCapturedKey = WM_APP + 5;
constexpr PostedMessage<GameLookupResult> kMsgProgressSnapshot{WM_APP + 6};

}  // namespace qn
