#pragma once
// What the drawer bench's two halves share: the stand-in game's size, the rounds, the look,
// and the ways its figures are taken and printed.
#include <windows.h>

#include <d3d11.h>

#include <chrono>
#include <vector>

#include "gfx/renderer.h"
#include "support/test_game_win.h"

namespace drawer_bench {

using Clock = std::chrono::steady_clock;

inline constexpr RECT kGame = {0, 0, 1920, 1080};
inline constexpr int kRounds = 20;
inline constexpr int kWarmUpFrames = 5;
// The drawer control's own tint: its cost does not depend on the colour, only on the pass.
inline constexpr qn::BlurParams kLook = {{0.06f, 0.06f, 0.08f, 0.55f}, 1.0f, 0, 1.0f};

double Ms(Clock::time_point from, Clock::time_point to);
double Median(std::vector<double> values);
void PrintSpread(const char* what, std::vector<double> ms);
// Returns once the device has carried out everything submitted so far.
void Finish(ID3D11Device* device, ID3D11DeviceContext* context);
// Why the game went away, when it did.
void SayWhereTheGameIs(const qn::test::TestGame& game);

// The parts of one tick at the game's size, each timed alone, and whole ticks now and as
// before.
void BenchTick(const qn::test::TestGame& game);

}  // namespace drawer_bench
