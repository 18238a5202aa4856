#pragma once
#include <string>

namespace qn {

// The local (not roaming) application data folder + "\Hintwick": state stays on this
// machine. Created on every call, never cached; empty when the folder is unknown.
std::wstring DataDir();
// The same folder, left as it is: for what must not make it (the crash reporter, installed
// before an install that may yet be cancelled).
std::wstring DataDirPath();

// Moves config.json and token.bin from the folder that builds before the rename used.
void MigratePreRenameState();

// The movement itself, between two explicit folders; returns how many files moved.
// A file present in both folders stays in both, and nothing is ever deleted.
int MoveStateFiles(const std::wstring& old_dir, const std::wstring& new_dir);

}  // namespace qn
