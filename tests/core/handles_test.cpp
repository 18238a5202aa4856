#include <gtest/gtest.h>

#include <vector>

#include "core/handles.h"

namespace qn {
namespace {

std::vector<int> g_closed;
void RecordClose(int handle) { g_closed.push_back(handle); }
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

}  // namespace
}  // namespace qn
