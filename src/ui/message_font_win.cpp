#include "ui/message_font_win.h"

#include <cwchar>

#include "core/os.h"

namespace qn {

UniqueHfont MessageFont(UINT dpi, LONG weight) {
  NONCLIENTMETRICSW metrics = {};
  metrics.cbSize = sizeof(metrics);
  LOGFONTW font = {};
  if (SystemParametersForDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, dpi)) {
    font = metrics.lfMessageFont;
  } else {
    font.lfHeight = -Scaled(12, dpi);
    wcscpy_s(font.lfFaceName, L"Segoe UI");
  }
  if (weight != 0) font.lfWeight = weight;
  return UniqueHfont(CreateFontIndirectW(&font));
}

}  // namespace qn
