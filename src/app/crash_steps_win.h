#pragma once
// What the crash report does for the player before its box: the game gets its keyboard back
// and is no longer covered by a drawer that will never be drawn again.
namespace qn {

// Registers PrepareForCrashBox with the crash reporter; once, at start-up.
void RegisterCrashSteps();
// Runs on the reporting thread, while the crashed thread (perhaps this program's interface
// thread) waits: nothing here waits on another thread.
void PrepareForCrashBox() noexcept;

}  // namespace qn
