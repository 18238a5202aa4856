#include <windows.h>

#include <algorithm>
#include <string>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/os.h"
#include "net/http_client.h"
#include "setup/updater.h"

namespace qn {
namespace {

bool WriteWholeFile(const std::wstring& path, const std::string& bytes) {
  UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return LogLastError(L"CreateFileW", kLogError);
  const auto discard = [&](const wchar_t* call) {
    LogLastError(call, kLogError);
    file.reset();
    DeleteFileW(path.c_str());
    return false;
  };
  for (size_t done = 0; done < bytes.size();) {
    const DWORD want = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 20));
    DWORD wrote = 0;
    if (!WriteFile(file.get(), bytes.data() + done, want, &wrote, nullptr) || wrote == 0) {
      return discard(L"WriteFile");
    }
    done += wrote;
  }
  // On the disk before it takes the program's name: after a power cut, a renamed file whose
  // bytes never arrived would leave no program at all.
  if (!FlushFileBuffers(file.get())) return discard(L"FlushFileBuffers");
  return true;
}

// Our own leftovers only. A read-only executable stays read-only when moved aside, and
// DeleteFileW refuses such a file, which would block every later update.
bool DeleteLeftover(const std::wstring& path) {
  SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  return DeleteFileW(path.c_str()) != FALSE;
}

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool Rename(const std::wstring& from, const std::wstring& to) {
  if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    return true;
  }
  return LogLastError(L"MoveFileExW", kLogError);
}

}  // namespace

UpdateInfo Updater::Check(HttpClient& client) const {
  const HttpResponse response = client.Get("/v1/version", std::string());
  ManifestVerdict verdict = ManifestVerdict::kNothing;
  UpdateInfo info = ReadManifest(response.ok, response.status, response.body, verdict);
  if (verdict == ManifestVerdict::kIncomplete) {
    Log(kLogWarn, L"update manifest lacks a url or sha256; ignoring it");
  } else if (verdict == ManifestVerdict::kOffered) {
    Log(kLogInfo, L"published version differs: %hs -> %hs%ls", kProductVersion,
        info.version.c_str(), info.rollback ? L" (rollback)" : L"");
  }
  return info;
}

std::wstring Updater::ExePath() const {
  if (!options_.exe_path.empty()) return options_.exe_path;
  std::wstring path = RunningExecutablePath();
  if (path.empty()) LogLastError(L"GetModuleFileNameW", kLogError);
  return path;
}

bool Updater::Apply(const UpdateInfo& info, std::wstring& error, const DownloadWatch& watch) const {
  if (!info.available) {
    error = kNoUpdateError;
    return false;
  }
  const std::optional<std::string> bytes = Download(info.url, watch);
  if (!bytes) {
    error = kDownloadError;
    return false;
  }
  const std::string digest = Sha256Digest(*bytes);
  if (digest.empty()) {
    error = kHashError;
    return false;
  }
  const std::string hex = HexLower(digest);
  if (!EqualIgnoringAsciiCase(hex, info.sha256)) {
    Log(kLogError, L"update hash mismatch: expected %hs, got %hs", info.sha256.c_str(),
        hex.c_str());
    error = kChecksumError;
    return false;
  }
  if (!SignatureAccepted(info, digest)) {
    error = kSignatureError;
    return false;
  }
  if (!IsX64WindowsProgram(*bytes)) {
    Log(kLogError, L"update %hs is not an x64 Windows program; refusing it", info.version.c_str());
    error = kNotAProgramError;
    return false;
  }
  if (!Swap(*bytes, error)) return false;
  Log(kLogInfo, L"update %hs staged; restarting", info.version.c_str());
  return true;
}

// The checksum comes from the same service as the file, so on its own it only guards
// against a broken transfer; the signature is what ties the file to whoever holds the key.
bool Updater::SignatureAccepted(const UpdateInfo& info, std::string_view digest) const {
  if (options_.public_key_hex.empty()) {
    Log(kLogInfo, L"update %hs is unsigned; this build has no release key to check it against",
        info.version.c_str());
    return true;
  }
  if (info.signature.empty()) {
    Log(kLogError, L"update %hs is unsigned; refusing it", info.version.c_str());
    return false;
  }
  const std::optional<std::string> key = DecodeHex(options_.public_key_hex);
  const std::optional<std::string> bytes = DecodeBase64(info.signature);
  const std::optional<RawSignature> signature = bytes ? SignatureFromBytes(*bytes) : std::nullopt;
  if (!key || !signature || !VerifyP256Signature(*key, digest, *signature)) {
    Log(kLogError, L"update %hs signature does not verify; refusing it", info.version.c_str());
    return false;
  }
  Log(kLogInfo, L"update %hs signature verified", info.version.c_str());
  return true;
}

// Windows lets a running executable be renamed but not replaced, hence the dance through
// ".old". Every failure leaves a runnable program under the executable's own name.
bool Updater::Swap(const std::string& bytes, std::wstring& error) const {
  const std::wstring exe = ExePath();
  const std::wstring fresh = exe + L".new";
  const std::wstring old = exe + L".old";
  Before(SwapStep::kWriteNew);
  if (exe.empty() || !WriteWholeFile(fresh, bytes)) {
    error = kWriteError;
    return false;
  }
  Before(SwapStep::kClearOld);
  if (!DeleteLeftover(old) && GetLastError() != ERROR_FILE_NOT_FOUND) {
    LogLastError(L"DeleteFileW", kLogWarn);
  }
  Before(SwapStep::kMoveAside);
  if (!Rename(exe, old)) {
    DeleteFileW(fresh.c_str());
    error = kMoveAsideError;
    return false;
  }
  Before(SwapStep::kPutInPlace);
  if (Rename(fresh, exe)) return true;
  DeleteFileW(fresh.c_str());
  if (Rename(old, exe)) {
    error = kPutInPlaceError;
  } else {
    Log(kLogError, L"previous version could not be restored; it is at %ls", old.c_str());
    error = kNotRestoredError;
  }
  return false;
}

void Updater::RepairInterruptedSwap() const {
  const std::wstring exe = ExePath();
  // Without our own path the names would be relative, and could hit a stranger's files.
  if (exe.empty()) return;
  const std::wstring old = exe + L".old", fresh = exe + L".new";
  if (!Exists(exe) && Exists(old)) {
    if (Rename(old, exe)) Log(kLogWarn, L"an update was cut short; the previous version is back");
  }
  if (Exists(exe) && Exists(fresh) && DeleteLeftover(fresh)) {
    Log(kLogInfo, L"removed a download that an interrupted update left");
  }
}

void Updater::RemoveLeftover(std::chrono::milliseconds patience, std::stop_token stop) const {
  const std::wstring exe = ExePath();
  if (exe.empty()) return;
  const std::wstring old = exe + L".old";
  if (!Exists(old)) return;
  // The build that was replaced is still ending, or waiting in its hand-over, and its image
  // is this file: polled, since nothing announces that it has let go.
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!DeleteLeftover(old)) {
    if (GetLastError() == ERROR_FILE_NOT_FOUND) return;  // another start was quicker
    if (stop.stop_requested() || std::chrono::steady_clock::now() >= deadline) {
      Log(kLogInfo, L"previous version still locked; will remove on a later launch");
      return;
    }
    Sleep(100);
  }
  Log(kLogInfo, L"removed the previous version left by an update");
}

}  // namespace qn
