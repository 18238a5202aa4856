#pragma once
// A per-user registry value that is put back as it was when this goes: the tests move the
// bench profile's shell folders into scratch folders and touch its start-up entries.
#include <windows.h>

#include <string>

namespace qn::test {

inline constexpr wchar_t kShellFoldersKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

class SavedRegistryValue {
 public:
  SavedRegistryValue(const wchar_t* key, const wchar_t* name) : key_(key), name_(name) {
    had_ = !RegGetValueW(HKEY_CURRENT_USER, key, name, RRF_RT_ANY | RRF_NOEXPAND, &type_, data_,
                         &size_);
  }
  ~SavedRegistryValue() {
    if (had_) {
      RegSetKeyValueW(HKEY_CURRENT_USER, key_, name_, type_, data_, size_);
    } else {
      RegDeleteKeyValueW(HKEY_CURRENT_USER, key_, name_);
    }
  }
  SavedRegistryValue(const SavedRegistryValue&) = delete;
  SavedRegistryValue& operator=(const SavedRegistryValue&) = delete;

  void Set(const std::wstring& text) const {
    RegSetKeyValueW(HKEY_CURRENT_USER, key_, name_, REG_SZ, text.c_str(),
                    static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  }

 private:
  const wchar_t* key_;
  const wchar_t* name_;
  bool had_ = false;
  DWORD type_ = 0, size_ = sizeof(data_);
  BYTE data_[2048] = {};
};

}  // namespace qn::test
