// Checks the shipped Hintwick.exe as Windows sees it: image type, version
// block, manifest and icons. Resource mistakes compile and link cleanly and
// only show up as a blurry drawer, a generic icon or a refusal to start, so
// they are caught here against the real binary.
#include <windows.h>
#include <winver.h>  // WIN32_LEAN_AND_MEAN leaves it out of windows.h

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

struct FreeLibraryDeleter {
  void operator()(HMODULE module) const noexcept { FreeLibrary(module); }
};
using ModulePtr = std::unique_ptr<std::remove_pointer_t<HMODULE>, FreeLibraryDeleter>;

struct DestroyIconDeleter {
  void operator()(HICON icon) const noexcept { DestroyIcon(icon); }
};
using IconPtr = std::unique_ptr<std::remove_pointer_t<HICON>, DestroyIconDeleter>;

struct DeleteObjectDeleter {
  void operator()(HBITMAP bitmap) const noexcept { DeleteObject(bitmap); }
};
using BitmapPtr = std::unique_ptr<std::remove_pointer_t<HBITMAP>, DeleteObjectDeleter>;

struct ReleaseActCtxDeleter {
  void operator()(HANDLE context) const noexcept { ReleaseActCtx(context); }
};
using ActCtxPtr = std::unique_ptr<void, ReleaseActCtxDeleter>;

std::wstring ExePathFromEnvironment() {
  const DWORD needed = GetEnvironmentVariableW(L"HINTWICK_EXE", nullptr, 0);
  if (needed == 0) return {};
  std::wstring path(needed, L'\0');
  const DWORD written = GetEnvironmentVariableW(L"HINTWICK_EXE", path.data(), needed);
  path.resize(written < needed ? written : 0);
  return path;
}

template <typename T>
T ReadAt(std::string_view bytes, size_t offset) {
  T value{};
  if (offset + sizeof(T) <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

class ExeImageTest : public testing::Test {
 protected:
  void SetUp() override {
    path_ = ExePathFromEnvironment();
    if (path_.empty()) GTEST_SKIP() << "HINTWICK_EXE is not set; point it at the built Hintwick.exe";
  }

  // Resource views stay valid while the returned module is alive.
  ModulePtr LoadAsResourceFile() const {
    return ModulePtr(LoadLibraryExW(path_.c_str(), nullptr,
                                    LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
  }

  static std::string_view Resource(HMODULE module, LPCWSTR type, WORD id) {
    HRSRC info = FindResourceW(module, MAKEINTRESOURCEW(id), type);
    if (!info) return {};
    HGLOBAL loaded = LoadResource(module, info);
    const void* data = loaded ? LockResource(loaded) : nullptr;
    if (!data) return {};
    return {static_cast<const char*>(data), SizeofResource(module, info)};
  }

  std::wstring path_;
};

TEST_F(ExeImageTest, HeadersDescribeA64BitGuiProgram) {
  std::ifstream file(std::filesystem::path(path_), std::ios::binary);
  ASSERT_TRUE(file) << "cannot open the exe";
  const std::string contents(std::istreambuf_iterator<char>(file), {});
  const std::string_view bytes = contents;

  ASSERT_EQ(ReadAt<WORD>(bytes, 0), IMAGE_DOS_SIGNATURE);
  const auto nt = static_cast<size_t>(ReadAt<LONG>(bytes, offsetof(IMAGE_DOS_HEADER, e_lfanew)));
  ASSERT_EQ(ReadAt<DWORD>(bytes, nt), static_cast<DWORD>(IMAGE_NT_SIGNATURE));

  const auto header = ReadAt<IMAGE_FILE_HEADER>(bytes, nt + sizeof(DWORD));
  EXPECT_EQ(header.Machine, IMAGE_FILE_MACHINE_AMD64);
  ASSERT_GE(header.SizeOfOptionalHeader, sizeof(IMAGE_OPTIONAL_HEADER64));

  const auto optional =
      ReadAt<IMAGE_OPTIONAL_HEADER64>(bytes, nt + sizeof(DWORD) + sizeof(IMAGE_FILE_HEADER));
  EXPECT_EQ(optional.Magic, IMAGE_NT_OPTIONAL_HDR64_MAGIC);
  // A console subsystem would flash a terminal window at every logon.
  EXPECT_EQ(optional.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

TEST_F(ExeImageTest, VersionResourceNamesRelease017) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(path_.c_str(), &ignored);
  ASSERT_NE(size, 0u) << "no version resource, error " << GetLastError();
  std::vector<BYTE> block(size);
  ASSERT_TRUE(GetFileVersionInfoW(path_.c_str(), 0, size, block.data()));

  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
  ASSERT_GE(length, sizeof(VS_FIXEDFILEINFO));
  EXPECT_EQ(fixed->dwSignature, static_cast<DWORD>(VS_FFI_SIGNATURE));
  // 0.1.7.0 packs as major:minor in MS and build:revision in LS.
  constexpr DWORD kMostSignificant = (0u << 16) | 1u;
  constexpr DWORD kLeastSignificant = (7u << 16) | 0u;
  EXPECT_EQ(fixed->dwFileVersionMS, kMostSignificant);
  EXPECT_EQ(fixed->dwFileVersionLS, kLeastSignificant);
  EXPECT_EQ(fixed->dwProductVersionMS, kMostSignificant);
  EXPECT_EQ(fixed->dwProductVersionLS, kLeastSignificant);
  EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_APP));

  // Explorer looks strings up through the translation list; a table under a
  // language it does not list is invisible.
  struct Translation {
    WORD language;
    WORD codepage;
  };
  Translation* translations = nullptr;
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation",
                             reinterpret_cast<void**>(&translations), &length));
  ASSERT_GE(length, sizeof(Translation));
  EXPECT_EQ(translations[0].language, 0x0409);
  EXPECT_EQ(translations[0].codepage, 1200);

  struct Field {
    const wchar_t* name;
    const wchar_t* expected;
  };
  constexpr Field kFields[] = {
      {L"ProductName", L"Hintwick"},
      {L"ProductVersion", L"0.1.7"},
      {L"FileVersion", L"0.1.7"},
      {L"CompanyName", L"Hintwick"},
      {L"OriginalFilename", L"Hintwick.exe"},
  };
  for (const Field& field : kFields) {
    const std::wstring query = std::wstring(L"\\StringFileInfo\\040904b0\\") + field.name;
    wchar_t* value = nullptr;
    UINT chars = 0;
    if (!VerQueryValueW(block.data(), query.c_str(), reinterpret_cast<void**>(&value), &chars) ||
        !value) {
      ADD_FAILURE() << "missing string " << testing::PrintToString(std::wstring(field.name));
      continue;
    }
    EXPECT_EQ(std::wstring(value), field.expected) << "string " << testing::PrintToString(std::wstring(field.name));
  }
}

TEST_F(ExeImageTest, ManifestIsEmbeddedAndActivates) {
  const ModulePtr module = LoadAsResourceFile();
  ASSERT_TRUE(module) << "LoadLibraryExW failed, error " << GetLastError();
  const std::string_view manifest = Resource(module.get(), RT_MANIFEST, 1);
  ASSERT_FALSE(manifest.empty()) << "no RT_MANIFEST resource 1";

  constexpr std::string_view kNeedles[] = {
      "PerMonitorV2",                            // crisp drawer on every monitor
      "asInvoker",                               // no elevation prompt at logon
      "Microsoft.Windows.Common-Controls",       // themed controls
      "6595b64144ccf1df",                        // ...from the real comctl32
      "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}",  // Windows 10 and 11
  };
  for (std::string_view needle : kNeedles) {
    EXPECT_NE(manifest.find(needle), std::string_view::npos) << "manifest lacks " << needle;
  }

  // Windows refuses to start an exe whose manifest it cannot parse or whose
  // dependencies it cannot resolve; building the activation context from the
  // resource goes through that same path.
  ACTCTXW request{};
  request.cbSize = sizeof(request);
  request.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID;
  request.lpSource = path_.c_str();
  request.lpResourceName = MAKEINTRESOURCEW(1);
  HANDLE context = CreateActCtxW(&request);
  ASSERT_NE(context, INVALID_HANDLE_VALUE) << "CreateActCtxW failed, error " << GetLastError();
  const ActCtxPtr owned(context);
}

TEST_F(ExeImageTest, IconGroupOffersEveryShellSizeAndEachDecodes) {
  const ModulePtr module = LoadAsResourceFile();
  ASSERT_TRUE(module) << "LoadLibraryExW failed, error " << GetLastError();
  const std::string_view group = Resource(module.get(), RT_GROUP_ICON, 1);
  ASSERT_GE(group.size(), 6u) << "no RT_GROUP_ICON resource 1";

  // GRPICONDIR: reserved, type, count; then 14-byte entries whose first byte
  // is the width, 0 standing for 256.
  constexpr size_t kHeader = 6;
  constexpr size_t kEntry = 14;
  const WORD count = ReadAt<WORD>(group, 4);
  ASSERT_GE(group.size(), kHeader + count * kEntry);
  std::vector<int> widths;
  for (WORD i = 0; i < count; ++i) {
    const auto width = ReadAt<std::uint8_t>(group, kHeader + i * kEntry);
    widths.push_back(width == 0 ? 256 : width);
    EXPECT_EQ(ReadAt<WORD>(group, kHeader + i * kEntry + 6), 32) << "bit depth of entry " << i;
  }
  std::sort(widths.begin(), widths.end());
  // Tray at 100-150 %, small icons, taskbar, Alt+Tab, large Explorer views.
  constexpr int kSizes[] = {16, 20, 24, 32, 48, 256};
  EXPECT_EQ(widths, std::vector<int>(std::begin(kSizes), std::end(kSizes)));

  std::vector<BYTE> directory(group.begin(), group.end());  // the API takes a mutable pointer
  for (int size : kSizes) {
    SCOPED_TRACE(testing::Message() << size << " px");
    // The shell asks for exact sizes; a near miss means a rescaled, blurry icon.
    const int id = LookupIconIdFromDirectoryEx(directory.data(), TRUE, size, size, LR_DEFAULTCOLOR);
    ASSERT_NE(id, 0);
    const std::string_view image = Resource(module.get(), RT_ICON, static_cast<WORD>(id));
    ASSERT_FALSE(image.empty());
    // A DIB's height counts the AND mask too. Windows halves it regardless;
    // Wine forgives a height that was not doubled, so check it here.
    if (!image.starts_with("\x89PNG")) {
      const auto header = ReadAt<BITMAPINFOHEADER>(image, 0);
      EXPECT_EQ(header.biWidth, size);
      EXPECT_EQ(header.biHeight, 2 * size);
      EXPECT_EQ(header.biBitCount, 32);
    }
    std::vector<BYTE> image_bytes(image.begin(), image.end());
    const IconPtr icon(CreateIconFromResourceEx(image_bytes.data(),
                                                static_cast<DWORD>(image_bytes.size()), TRUE,
                                                0x00030000, size, size, LR_DEFAULTCOLOR));
    ASSERT_TRUE(icon) << "image does not decode, error " << GetLastError();

    ICONINFO info{};
    ASSERT_TRUE(GetIconInfo(icon.get(), &info));
    const BitmapPtr color(info.hbmColor);
    const BitmapPtr mask(info.hbmMask);
    ASSERT_TRUE(color) << "no colour bitmap";
    BITMAP bitmap{};
    ASSERT_NE(GetObjectW(color.get(), sizeof(bitmap), &bitmap), 0);
    EXPECT_EQ(bitmap.bmWidth, size);
    EXPECT_EQ(bitmap.bmHeight, size);
  }
}

}  // namespace
