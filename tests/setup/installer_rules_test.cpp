#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "setup/installer_rules.h"

namespace qn {
namespace {

TEST(InstallerRulesTest, SwitchesAreWholeCaseSensitiveArgumentsInAnyOrder) {
  using M = InstallerMode;
  const struct {
    std::vector<std::wstring> arguments;
    InstallerSwitches expected;
  } cases[] = {
      {{L"--install"}, {M::kInstall, false, false, false}},
      {{L"--autostart", L"x", L"--install-silent"}, {M::kInstall, true, true, false}},
      {{L"--purge", L"--uninstall-silent"}, {M::kUninstall, true, false, true}},
      {{L"--uninstall", L"--install-silent"}, {M::kUninstall, false, false, false}},
      {{L"--INSTALL", L"-install", L"--install ", L"--install-silent=1"}, {}},
      {{L"--autostart", L"--purge"}, {M::kNone, false, true, true}},  // nothing to do
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(ParseInstallerSwitches(cases[i].arguments), cases[i].expected) << "case " << i;
  }
}

// A purge deletes by name, with what an interrupted save left: whatever else the player
// keeps in the folder stays.
TEST(InstallerRulesTest, APurgeTakesOurFilesAndNothingLookingLikeThem) {
  for (auto ours : {L"config.json", L"token.bin", L"games.json", L"hintwick.log",
                    L"crash-20261123-151500.dmp", L"config.json.tmp", L"token.bin.4242.tmp",
                    L"games.json.7.tmp"}) {
    EXPECT_TRUE(IsPlayerDataFile(ours));
  }
  for (auto theirs : {L"Config.json", L"crash-2026-151500.dmp", L"crash-2026112a-151500.dmp",
                      L"crash-20261123-151500.dmp.txt", L"Hintwick.exe", L"config.json.x.tmp",
                      L"token.bin..tmp", L"notes.tmp", L"token.bin.tmp.txt"}) {
    EXPECT_FALSE(IsPlayerDataFile(theirs));
  }
}

}  // namespace
}  // namespace qn
