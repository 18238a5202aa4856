#pragma once
#include <windows.h>

namespace qn {

// Messages to the message-only window. Fixed values: other processes post some of them.
constexpr UINT kMsgTrayCallback = WM_APP + 1;
constexpr UINT kMsgAlreadyRunning = WM_APP + 3;
constexpr UINT kMsgChatEvent = WM_APP + 4;
constexpr UINT kMsgCapturedKey = WM_APP + 5;
constexpr UINT kMsgProgressSnapshot = WM_APP + 6;

}  // namespace qn
