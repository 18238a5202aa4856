#include <windows.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"
#include "setup/updater.h"

namespace qn {
namespace {

// BCrypt reports NTSTATUS values, not last errors; the hex is what its documentation lists.
bool CheckStatus(NTSTATUS status, const wchar_t* call) {
  if (BCRYPT_SUCCESS(status)) return true;
  Log(kLogWarn, L"%ls failed: 0x%08lX", call, static_cast<unsigned long>(status));
  return false;
}

bool GetDwordProperty(BCRYPT_HANDLE object, const wchar_t* property, DWORD& value) {
  ULONG written = 0;
  return CheckStatus(Bcrypt().GetProperty(object, property, reinterpret_cast<PUCHAR>(&value),
                                          sizeof(value), &written, 0),
                     L"BCryptGetProperty");
}

// BCrypt takes mutable buffers for input it only reads.
PUCHAR Bytes(std::string_view bytes) {
  return reinterpret_cast<PUCHAR>(const_cast<char*>(bytes.data()));
}

// BCRYPT_ECCPUBLIC_BLOB: the header, then X and Y, without the point's leading 04.
std::vector<UCHAR> P256PublicBlob(std::string_view point) {
  std::vector<UCHAR> blob(sizeof(BCRYPT_ECCKEY_BLOB) + 64);
  BCRYPT_ECCKEY_BLOB header{BCRYPT_ECDSA_PUBLIC_P256_MAGIC, 32};
  memcpy(blob.data(), &header, sizeof(header));
  memcpy(blob.data() + sizeof(header), point.data() + 1, 64);
  return blob;
}

// Every other call works on what this one made, so it alone checks that bcrypt.dll loaded.
bool OpenAlgorithm(UniqueBcryptAlgorithm& algorithm, const wchar_t* id) {
  const BcryptApi& bcrypt = Bcrypt();
  if (!bcrypt) return LogLastError(L"bcrypt.dll", kLogWarn);
  return CheckStatus(bcrypt.OpenAlgorithmProvider(algorithm.put(), id, nullptr, 0),
                     L"BCryptOpenAlgorithmProvider");
}

}  // namespace

std::string Sha256Digest(std::string_view bytes) {
  UniqueBcryptAlgorithm algorithm;
  if (!OpenAlgorithm(algorithm, BCRYPT_SHA256_ALGORITHM)) return {};
  DWORD object_size = 0;
  DWORD digest_size = 0;
  if (!GetDwordProperty(algorithm.get(), BCRYPT_OBJECT_LENGTH, object_size) ||
      !GetDwordProperty(algorithm.get(), BCRYPT_HASH_LENGTH, digest_size)) {
    return {};
  }
  std::vector<UCHAR> object(object_size);
  UniqueBcryptHash hash;
  if (!CheckStatus(Bcrypt().CreateHash(algorithm.get(), hash.put(), object.data(), object_size,
                                       nullptr, 0, 0),
                   L"BCryptCreateHash")) {
    return {};
  }
  // BCryptHashData counts in ULONG; feeding it in slices keeps any size correct.
  for (std::string_view rest = bytes; !rest.empty();) {
    const std::string_view slice = rest.substr(0, ULONG_MAX / 2);
    if (!CheckStatus(
            Bcrypt().HashData(hash.get(), Bytes(slice), static_cast<ULONG>(slice.size()), 0),
            L"BCryptHashData")) {
      return {};
    }
    rest.remove_prefix(slice.size());
  }
  std::string digest(digest_size, '\0');
  if (!CheckStatus(Bcrypt().FinishHash(hash.get(), Bytes(digest), digest_size, 0),
                   L"BCryptFinishHash")) {
    return {};
  }
  return digest;
}

std::string Updater::Sha256Hex(std::string_view bytes) { return HexLower(Sha256Digest(bytes)); }

bool VerifyP256Signature(std::string_view public_key, std::string_view digest,
                         const RawSignature& signature) {
  if (public_key.size() != 65 || public_key[0] != 0x04) return false;
  UniqueBcryptAlgorithm algorithm;
  if (!OpenAlgorithm(algorithm, BCRYPT_ECDSA_P256_ALGORITHM)) return false;
  std::vector<UCHAR> blob = P256PublicBlob(public_key);
  UniqueBcryptKey key;
  if (!CheckStatus(
          Bcrypt().ImportKeyPair(algorithm.get(), nullptr, BCRYPT_ECCPUBLIC_BLOB, key.put(),
                                 blob.data(), static_cast<ULONG>(blob.size()), 0),
          L"BCryptImportKeyPair")) {
    return false;
  }
  RawSignature copy = signature;
  const NTSTATUS status =
      Bcrypt().VerifySignature(key.get(), nullptr, Bytes(digest), static_cast<ULONG>(digest.size()),
                               copy.data(), static_cast<ULONG>(copy.size()), 0);
  // A signature that does not match is an answer, not a failure of the call.
  if (status == static_cast<NTSTATUS>(0xC000A000L)) return false;  // STATUS_INVALID_SIGNATURE
  return CheckStatus(status, L"BCryptVerifySignature");
}

}  // namespace qn
