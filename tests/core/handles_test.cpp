#include <gtest/gtest.h>

#include <vector>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/posted_message.h"
#include "support/test_files.h"

namespace qn {
namespace {

std::vector<int> g_closed;
void RecordClose(int handle) {
  g_closed.push_back(handle);
  SetLastError(ERROR_INVALID_HANDLE);  // as a real close function may
}
using UniqueNumber = UniqueHandle<int, &RecordClose>;

TEST(UniqueHandle, ClosesEachHandleExactlyOnce) {
  g_closed.clear();
  {
    UniqueNumber a(1), b(2), empty;
    UniqueNumber moved(std::move(a));  // 1 now owned by `moved`
    b = std::move(moved);              // closes 2, owns 1
    int* slot = empty.put();
    *slot = 3;
    empty.reset(4);  // closes 3
    UniqueNumber kept(5);
    EXPECT_EQ(kept.release(), 5);
    EXPECT_FALSE(a);
    EXPECT_EQ(b.get(), 1);
  }
  EXPECT_EQ(g_closed, (std::vector<int>{2, 3, 4, 1}));
}

// Failure paths release first and report GetLastError after.
TEST(UniqueHandle, ReleasingKeepsTheLastError) {
  UniqueNumber number(7);
  SetLastError(ERROR_ACCESS_DENIED);
  number.reset();
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST(UniqueHandle, FileHandlesTreatMinusOneAsEmpty) {
  UniqueFileHandle file;
  EXPECT_EQ(file.get(), INVALID_HANDLE_VALUE);
  EXPECT_FALSE(file);
  file.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  EXPECT_TRUE(file);
}

class CountedObject : public IUnknown {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    *out = nullptr;
    if (iid != __uuidof(IUnknown)) return E_NOINTERFACE;
    AddRef();
    *out = this;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
  ULONG STDMETHODCALLTYPE Release() override { return --references; }
  ULONG references = 1;
};

TEST(ComPtr, BalancesReferencesAcrossCopiesMovesAndQueries) {
  CountedObject object;
  {
    ComPtr<IUnknown> first;
    first.attach(&object);
    ComPtr<IUnknown> copy = first;
    EXPECT_EQ(object.references, 2u);
    ComPtr<IUnknown> moved = std::move(copy);
    EXPECT_EQ(object.references, 2u);
    ComPtr<IUnknown> queried = first.As<IUnknown>();
    EXPECT_EQ(object.references, 3u);
    EXPECT_FALSE(first.As<IClassFactory>());
    EXPECT_EQ(object.references, 3u);
    *moved.put() = nullptr;  // put() lets go of what it held
    EXPECT_EQ(object.references, 2u);
  }
  EXPECT_EQ(object.references, 0u);
}

struct Payload {
  explicit Payload(int* alive) : alive(alive) { ++*alive; }
  ~Payload() { --*alive; }
  int* alive;
};

// A refused post frees its payload; a delivered one is adopted as the type it was sent as.
TEST(PostedMessage, PayloadIsOwnedByExactlyOneSide) {
  constexpr PostedMessage<Payload> kMessage{WM_APP + 9};
  const auto make_window = [] {
    return UniqueHwnd(CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                      nullptr, nullptr));
  };
  int alive = 0;
  HWND gone = make_window().get();
  EXPECT_FALSE(PostOwned(gone, kMessage, std::make_unique<Payload>(&alive)));
  EXPECT_EQ(alive, 0);

  const UniqueHwnd window = make_window();
  ASSERT_TRUE(PostOwned(window.get(), kMessage, std::make_unique<Payload>(&alive)));
  MSG message{};
  ASSERT_TRUE(PeekMessageW(&message, window.get(), kMessage.id, kMessage.id, PM_REMOVE));
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(AdoptPosted(kMessage, message.wParam)->alive, &alive);
  EXPECT_EQ(alive, 0);
}

// Per-frame calls log the first failure of a run only, each call on its own.
TEST(RepeatedFailures, LogsOncePerRunOfFailures) {
  const std::vector<std::pair<HRESULT, bool>> present_results = {
      {E_FAIL, true}, {E_FAIL, false}, {S_OK, false}, {E_FAIL, true}};
  const test::CapturedLog log;
  RepeatedFailures failures;
  EXPECT_FALSE(failures.Check(E_OUTOFMEMORY, L"EndDraw"));
  size_t expected = 0;
  for (const auto& [hr, logs] : present_results) {
    EXPECT_EQ(failures.Check(hr, L"Present"), SUCCEEDED(hr));
    expected += logs ? 1 : 0;
    EXPECT_EQ(log.Count("WARN  Present failed: 0x80004005"), expected);
  }
  EXPECT_EQ(log.Count("EndDraw failed"), 1u);
}

}  // namespace
}  // namespace qn
