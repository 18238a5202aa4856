#pragma once
// Secrets (a password, a token) are wiped before their memory goes back to the heap.
#include <windows.h>

namespace qn {

// The bytes past the end may still hold an older, longer value, so the whole capacity is
// zeroed. SecureZeroMemory, because a plain fill of memory about to be released is a store
// the optimiser may drop. For std::string and std::wstring.
template <typename Text>
void Wipe(Text& secret) {
  secret.resize(secret.capacity());
  SecureZeroMemory(secret.data(), secret.size() * sizeof(secret[0]));
  secret.clear();
}

}  // namespace qn
