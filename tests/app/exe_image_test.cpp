// Checks the shipped Hintwick.exe as Windows sees it. Resource mistakes compile and link
// cleanly and only show up as a generic icon, a blurry window or a refusal to start.
#include <windows.h>
#include <winver.h>  // WIN32_LEAN_AND_MEAN leaves it out of windows.h

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/handles.h"
#include "support/test_files.h"

namespace qn {
namespace {

using UniqueActCtx = UniqueHandle<HANDLE, &ReleaseActCtx, MinusOneIsInvalid>;

template <typename T>
T ReadAt(std::string_view bytes, size_t offset) {
  T value{};
  if (offset + sizeof(T) <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

class ExeImageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::optional<std::wstring> exe = test::HintwickExePath();
    if (!exe) GTEST_SKIP() << "HINTWICK_EXE is not set; run through ctest";
    path_ = *exe;
    module_.reset(LoadLibraryExW(path_.c_str(), nullptr,
                                 LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
    ASSERT_TRUE(module_) << "LoadLibraryExW failed: " << GetLastError();
  }

  std::string_view Resource(LPCWSTR type, WORD id) const {
    HRSRC info = FindResourceW(module_.get(), MAKEINTRESOURCEW(id), type);
    HGLOBAL loaded = info ? LoadResource(module_.get(), info) : nullptr;
    const void* data = loaded ? LockResource(loaded) : nullptr;
    if (!data) return {};
    return {static_cast<const char*>(data), SizeofResource(module_.get(), info)};
  }

  std::wstring path_;
  UniqueHmodule module_;
};

TEST_F(ExeImageTest, HeadersDescribeA64BitGuiProgram) {
  const std::string bytes = test::ReadFileBytes(path_).value_or("");
  ASSERT_EQ(ReadAt<WORD>(bytes, 0), IMAGE_DOS_SIGNATURE);
  const auto nt = static_cast<size_t>(ReadAt<LONG>(bytes, offsetof(IMAGE_DOS_HEADER, e_lfanew)));
  ASSERT_EQ(ReadAt<DWORD>(bytes, nt), static_cast<DWORD>(IMAGE_NT_SIGNATURE));
  EXPECT_EQ(ReadAt<IMAGE_FILE_HEADER>(bytes, nt + 4).Machine, IMAGE_FILE_MACHINE_AMD64);
  const auto optional = ReadAt<IMAGE_OPTIONAL_HEADER64>(bytes, nt + 4 + sizeof(IMAGE_FILE_HEADER));
  EXPECT_EQ(optional.Magic, IMAGE_NT_OPTIONAL_HDR64_MAGIC);
  // A console program would flash a terminal window at every logon.
  EXPECT_EQ(optional.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

TEST_F(ExeImageTest, VersionResourceNamesRelease017) {
  DWORD ignored = 0;
  std::vector<BYTE> block(GetFileVersionInfoSizeW(path_.c_str(), &ignored));
  ASSERT_FALSE(block.empty()) << "no version resource";
  ASSERT_TRUE(
      GetFileVersionInfoW(path_.c_str(), 0, static_cast<DWORD>(block.size()), block.data()));

  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
  EXPECT_EQ(fixed->dwFileVersionMS, 0x00000001u);  // 0.1
  EXPECT_EQ(fixed->dwFileVersionLS, 0x00070000u);  // 7.0
  EXPECT_EQ(fixed->dwProductVersionMS, 0x00000001u);
  EXPECT_EQ(fixed->dwProductVersionLS, 0x00070000u);

  const struct {
    const wchar_t* name;
    const wchar_t* value;
  } strings[] = {{L"ProductName", L"Hintwick"},
                 {L"ProductVersion", L"0.1.7"},
                 {L"FileVersion", L"0.1.7"},
                 {L"OriginalFilename", L"Hintwick.exe"}};
  for (const auto& s : strings) {
    // Explorer reads strings through the translation the block lists: US English, UTF-16.
    const std::wstring query = std::wstring(L"\\StringFileInfo\\040904b0\\") + s.name;
    wchar_t* value = nullptr;
    ASSERT_TRUE(
        VerQueryValueW(block.data(), query.c_str(), reinterpret_cast<void**>(&value), &length));
    EXPECT_STREQ(value, s.value);
  }
}

TEST_F(ExeImageTest, ManifestIsEmbeddedAndActivates) {
  const std::string_view manifest = Resource(RT_MANIFEST, 1);
  ASSERT_FALSE(manifest.empty()) << "no RT_MANIFEST resource 1";
  for (std::string_view needle : {"PerMonitorV2", "asInvoker", "Microsoft.Windows.Common-Controls",
                                  "6595b64144ccf1df", "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"}) {
    EXPECT_NE(manifest.find(needle), std::string_view::npos) << needle;
  }
  // Windows refuses to start an exe whose manifest it cannot parse or resolve; building an
  // activation context from the resource takes the same path.
  ACTCTXW request{};
  request.cbSize = sizeof(request);
  request.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID;
  request.lpSource = path_.c_str();
  request.lpResourceName = MAKEINTRESOURCEW(1);
  const UniqueActCtx context(CreateActCtxW(&request));
  EXPECT_TRUE(context) << "CreateActCtxW failed: " << GetLastError();
}

TEST_F(ExeImageTest, IconGroupOffersEveryShellSizeAt32Bits) {
  const std::string_view group = Resource(RT_GROUP_ICON, 1);
  ASSERT_GE(group.size(), 6u) << "no RT_GROUP_ICON resource 1";
  // GRPICONDIR: a 6-byte header, then 14-byte entries: width first (0 means 256), bit
  // count at offset 6.
  std::vector<int> widths;
  for (WORD i = 0; i < ReadAt<WORD>(group, 4); ++i) {
    const auto width = ReadAt<BYTE>(group, 6 + i * 14);
    widths.push_back(width == 0 ? 256 : width);
    EXPECT_EQ(ReadAt<WORD>(group, 6 + i * 14 + 6), 32);
  }
  std::sort(widths.begin(), widths.end());
  EXPECT_EQ(widths, (std::vector<int>{16, 20, 24, 32, 48, 256}));

  std::vector<BYTE> directory(group.begin(), group.end());
  for (int size : widths) {
    // The shell asks for exact sizes; a near miss is a rescaled, blurry icon.
    const int id = LookupIconIdFromDirectoryEx(directory.data(), TRUE, size, size, 0);
    const std::string_view image = Resource(RT_ICON, static_cast<WORD>(id));
    ASSERT_FALSE(image.empty()) << size;
    std::vector<BYTE> bytes(image.begin(), image.end());
    const UniqueHicon icon(CreateIconFromResourceEx(bytes.data(), static_cast<DWORD>(bytes.size()),
                                                    TRUE, 0x00030000, size, size, 0));
    EXPECT_TRUE(icon) << size;
    // A DIB's height counts its mask too; Windows shows half an icon when it does not
    // (Wine forgives it, so the header is read here).
    if (!image.starts_with("\x89PNG")) {
      EXPECT_EQ(ReadAt<BITMAPINFOHEADER>(image, 0).biHeight, 2 * size) << size;
    }
  }
}

}  // namespace
}  // namespace qn
