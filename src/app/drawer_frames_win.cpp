// The drawer's frames: what each tick redoes of its picture, and the way back from a lost
// graphics device.
#include <algorithm>
#include <iterator>
#include <utility>

#include "app/drawer_control_win.h"
#include "core/log.h"
#include "core/os.h"

namespace qn {
namespace {

constexpr float kTint[4] = {0.06f, 0.06f, 0.08f, 0.55f};

}  // namespace

uint64_t DrawerControl::Now() const { return seams_.now_ms ? seams_.now_ms() : GetTickCount64(); }

// Returns whether the drawer can go on.
bool DrawerControl::DrawFrame(float slide, bool moved) {
  const HRESULT hr = PresentFrame(slide, moved);
  const uint64_t now = Now();
  switch (AfterFrameResult(hr, now, rebuilt_at_)) {
    case AfterFrame::kGoOn:
      return true;
    case AfterFrame::kClose:
      Log(kLogError, L"graphics device lost again (%ls); closing the drawer",
          ErrorText(hr).c_str());
      return false;
    case AfterFrame::kRebuild:
      break;
  }
  Log(kLogWarn, L"graphics device lost (%ls); rebuilding", ErrorText(hr).c_str());
  rebuilt_at_ = now;
  if (!RebuildGraphics()) {
    Log(kLogError, L"graphics rebuild failed; closing the drawer");
    return false;
  }
  // The picture comes back now rather than a tick later; a second loss is the next tick's.
  PresentFrame(slide, true);
  return true;
}

// Everything made on the lost device goes: the capture's frame pool, the swap chain, the
// composition and Direct2D devices. The window, its place and the keyboard capture stay.
bool DrawerControl::RebuildGraphics() {
  if (std::exchange(capturing_, false)) frames_->Stop();
  frame_.reset();
  shown_ = {};
  drawer_window_.DropDevice();
  renderer_->Release();
  const ScreenRect& drawer = geometry_.drawer;
  if (!renderer_->Init(display_.adapter) ||
      !drawer_window_.Create(instance_, renderer_.get(), surface_.get()) ||
      !drawer_window_.EnsureSize(static_cast<uint32_t>(drawer.Width()),
                                 static_cast<uint32_t>(drawer.Height()))) {
    return false;
  }
  StartFrames();
  return true;
}

// Most ticks find nothing new and return here: a still game, a player reading.
HRESULT DrawerControl::PresentFrame(float slide, bool moved) {
  const Shown now = Current(slide, Now());
  const FrameChanges changes = ChangesSince(now, moved);
  const FrameWork work = PlanFrame(changes);
  if (!work.present) return S_OK;
  if (capturing_ && changes.new_frame) frame_ = frames_->TakeLatest();
  BlurParams params;
  std::copy(std::begin(kTint), std::end(kTint), params.tint);
  params.opacity = slide;
  params.hdr = display_.hdr ? 1 : 0;
  params.sdr_white_nits = display_.sdr_white_nits;
  params.blur = blur_;
  const RECT crop = frame_ ? CropFor(frame_.get()) : RECT{};
  view_.SetCaretShown(now.caret);
  const HRESULT hr = drawer_window_.Frame(
      frame_.get(), crop, slide, params,
      [this](ID2D1DeviceContext* context, bool whole) {
        if (!view_ready_) return;
        view_.DrawLayer(context, whole || seams_.redraw_every_tick);
      },
      work);
  shown_ = now;
  // Whatever failed is drawn again in full at the next tick.
  shown_.presented = SUCCEEDED(hr);
  return hr;
}

DrawerControl::Shown DrawerControl::Current(float slide, uint64_t now) {
  if (model_.InputRevision() != input_revision_) {
    input_revision_ = model_.InputRevision();
    input_changed_at_ = now;
  }
  Shown current;
  current.presented = true;
  current.frame_number = capturing_ ? frames_->FrameNumber() : 0;
  current.chat_revision = model_.Revision();
  current.caret = CaretShown(now - input_changed_at_, caret_blink_);
  current.slide = slide;
  current.blur = blur_;
  current.hdr = display_.hdr;
  current.sdr_white_nits = display_.sdr_white_nits;
  current.drawer = geometry_.drawer;
  current.dpi = geometry_.dpi;
  current.at_ms = now;
  return current;
}

FrameChanges DrawerControl::ChangesSince(const Shown& now, bool moved) const {
  FrameChanges changes;
  changes.first = !shown_.presented || seams_.redraw_every_tick;
  changes.look = now.blur != shown_.blur || now.hdr != shown_.hdr ||
                 now.sdr_white_nits != shown_.sdr_white_nits ||
                 now.drawer.Width() != shown_.drawer.Width() ||
                 now.drawer.Height() != shown_.drawer.Height() || now.dpi != shown_.dpi;
  changes.new_frame = now.frame_number != shown_.frame_number;
  changes.moved = moved;
  changes.chat = now.chat_revision != shown_.chat_revision;
  changes.caret = now.caret != shown_.caret;
  changes.slide = now.slide != shown_.slide;
  changes.since_present_ms = now.at_ms - shown_.at_ms;
  return changes;
}

RECT DrawerControl::CropFor(ID3D11Texture2D* frame) const {
  D3D11_TEXTURE2D_DESC desc;
  frame->GetDesc(&desc);
  const PixelRect crop =
      CropInFrame(geometry_.drawer, geometry_.captured, {desc.Width, desc.Height});
  return {crop.left, crop.top, crop.right, crop.bottom};
}

}  // namespace qn
