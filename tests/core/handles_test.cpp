#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "core/failure_log.h"
#include "core/handles.h"
#include "support/test_files.h"

namespace qn {
namespace {

std::vector<int> g_closed;
void RecordClose(int handle) {
  g_closed.push_back(handle);
  SetLastError(ERROR_INVALID_HANDLE);  // as a real close function may
}
using UniqueNumber = UniqueHandle<int, &RecordClose>;

// Each handle is closed exactly once, and a release on a failure path keeps GetLastError for
// the caller's report.
TEST(UniqueHandle, ClosesEachHandleOnceAndKeepsTheLastError) {
  g_closed.clear();
  {
    UniqueNumber a(1), b(2), empty;
    UniqueNumber moved(std::move(a));
    b = std::move(moved);  // closes 2, owns 1
    *empty.put() = 3;
    SetLastError(ERROR_ACCESS_DENIED);
    empty.reset(4);  // closes 3
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(UniqueNumber(5).release(), 5);
  }
  EXPECT_EQ(g_closed, (std::vector<int>{2, 3, 4, 1}));
  EXPECT_FALSE(UniqueFileHandle(INVALID_HANDLE_VALUE));
}

// Per-frame calls log the first failure of a run only, each call on its own.
TEST(RepeatedFailures, LogsOncePerRunOfFailures) {
  const test::CapturedLog log;
  RepeatedFailures failures;
  EXPECT_FALSE(failures.Check(E_OUTOFMEMORY, L"EndDraw"));
  const std::pair<HRESULT, size_t> runs[] = {{E_FAIL, 1}, {E_FAIL, 1}, {S_OK, 1}, {E_FAIL, 2}};
  for (const auto& [hr, logged] : runs) {
    EXPECT_EQ(failures.Check(hr, L"Present"), SUCCEEDED(hr));
    EXPECT_EQ(log.Count("WARN  Present failed: 0x80004005"), logged);
  }
  EXPECT_EQ(log.Count("EndDraw failed"), 1u);
}

}  // namespace
}  // namespace qn
