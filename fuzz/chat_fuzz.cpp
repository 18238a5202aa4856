// Arbitrary UTF-16 through the emphasis pass of chat answers, under ASan/UBSan: spans stay
// inside the display text and apart, and the display text is the raw text less markers.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "chat/chat_model.h"
#include "fuzz_support.h"

namespace {

std::wstring Utf16(const uint8_t* data, size_t size) {
  std::wstring text;
  for (size_t i = 0; i + 1 < size; i += 2)
    text.push_back(static_cast<wchar_t>(data[i] | data[i + 1] << 8));
  return text;
}

void CheckEmphasis(const std::wstring& raw) {
  std::wstring display;
  std::vector<qn::StyleSpan> spans;
  qn::ParseEmphasis(raw, display, spans);
  size_t end = 0, marker_units = 0;
  for (const qn::StyleSpan& span : spans) {
    FUZZ_CHECK(span.length > 0);
    FUZZ_CHECK(span.start >= end);
    FUZZ_CHECK(span.start + span.length <= display.size());
    FUZZ_CHECK(span.kind <= qn::kSpanCode);
    end = span.start + span.length;
    marker_units += span.kind == qn::kSpanBold ? 4 : 2;
  }
  // Markers come out in pairs of equal length; nothing else is dropped or added.
  FUZZ_CHECK(display.size() + marker_units <= raw.size());
  FUZZ_CHECK((raw.size() - display.size()) % 2 == 0);
  // The display text is the raw text with some units left out, in the same order.
  size_t at = 0;
  for (const wchar_t unit : display) {
    while (at < raw.size() && raw[at] != unit) ++at;
    FUZZ_CHECK(at < raw.size());
    ++at;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CheckEmphasis(Utf16(data, size));
  return 0;
}
