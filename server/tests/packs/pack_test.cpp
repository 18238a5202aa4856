#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "packs/pack_cli.h"
#include "packs/pack_parser.h"
#include "store/store.h"

namespace hintwick {
namespace {

// Twelve lines that every row starts from; a row's own text begins on line 13.
std::string BasePack(const std::string& keys) {
  return "title = \"T\"\nkeys = " + keys +
         "\n[[stage]]\nname = \"Dock\"\naliases = [\"start\"]\n[[stage]]\nname = \"Tower\"\n"
         "[[stage]]\nname = \"Vault\"\n[[spoiler]]\nterm = \"Red Key\"\nstage = \"Vault\"\n";
}

std::string Note(const std::string& stage, const std::string& tier, const std::string& title,
                 const std::string& body) {
  return "[[note]]\nstage = " + stage + "\ntier = " + tier + "\ntitle = " + title +
         "\nbody = " + body + "\n";
}

struct ErrorCase {
  const char* name;
  std::string keys;
  std::string text;
  std::vector<std::pair<std::int64_t, std::string>> errors;  // line, part of the message
};

// clang-format off
const std::vector<ErrorCase> kErrorCases = {
    {"a clean note, named by alias, tier by name", "[\"game\"]",
     Note("\"START\"", "\"answer\"", "\"t\"", "\"red keys, red_key, Red Keyé\""), {}},
    {"a later spoiler in the body", "[\"game\"]",
     Note("\"Tower\"", "2", "\"t\"", "\"the red key's glow\""), {{17, "names \"Red Key\""}}},
    {"a later spoiler in the title, any case", "[\"game\"]",
     Note("\"Dock\"", "1", "\"RED KEY!\"", "\"b\""), {{16, "first appears at stage 3"}}},
    {"a spoiler at the note's own stage", "[\"game\"]",
     Note("\"Vault\"", "3", "\"t\"", "\"the red key\""), {}},
    {"every error of one note", "[\"game\"]", Note("\"Attic\"", "4", "\"t\"", "\" \""),
     {{14, "no stage is named \"Attic\""}, {15, "tier must be"}, {17, "is empty"}}},
    {"tiers out of range", "[\"game\"]",
     Note("\"Dock\"", "0", "\"t\"", "\"b\"") + Note("\"Dock\"", "\"hints\"", "\"t\"", "\"b\""),
     {{15, "tier must be"}, {20, "tier must be"}}},
    {"a note without title and a stranger key", "[\"game\"]",
     "[[note]]\nstage = \"Dock\"\ntier = 1\nbody = \"b\"\nhint = 2\n",
     {{13, "has no \"title\""}, {17, "unknown key \"hint\""}}},
    {"a misspelt section", "[\"game\"]", "[[notes]]\nstage = \"Dock\"\n",
     {{13, "unknown key \"notes\""}}},
    {"stage names and aliases taken twice", "[\"game\"]",
     "[[stage]]\nname = \"tower\"\n[[stage]]\nname = \"Roof\"\naliases = [\"START\"]\n",
     {{14, "already names stage 2"}, {17, "already names stage 1 (line 5)"}}},
    {"a spoiler listed twice", "[\"game\"]", "[[spoiler]]\nterm = \"red key\"\nstage = \"Dock\"\n",
     {{14, "already listed on line 11"}}},
    {"game keys", "[\"game\", \"game\", \"Game\", \"game.exe\", \"a b\"]", "",
     {{2, "listed twice"}, {2, "lower-case"}, {2, "\".exe\""}, {2, "without a folder"}}},
    {"no game keys", "[]", "", {{2, "lists no \"keys\""}}},
    {"a TOML syntax error", "[\"game\"]", "title = \"again\"\n", {{13, "title"}}},
};
// clang-format on

TEST(PackParser, ErrorTable) {
  for (const ErrorCase& row : kErrorCases) {
    SCOPED_TRACE(row.name);
    const PackParse parsed = ParsePack(BasePack(row.keys) + row.text, "p.toml");
    const auto* errors = std::get_if<std::vector<PackError>>(&parsed);
    if (row.errors.empty()) {
      EXPECT_EQ(errors, nullptr) << Located("p.toml", errors->front());
      continue;
    }
    ASSERT_NE(errors, nullptr);
    ASSERT_EQ(errors->size(), row.errors.size()) << Located("p.toml", errors->front());
    for (std::size_t i = 0; i < row.errors.size(); ++i) {
      EXPECT_EQ((*errors)[i].line, row.errors[i].first) << (*errors)[i].message;
      EXPECT_NE((*errors)[i].message.find(row.errors[i].second), std::string::npos)
          << (*errors)[i].message;
    }
  }
}

// A body wrapped for the author's editor reaches the player as flowing paragraphs.
TEST(PackParser, BodiesFlowIntoParagraphs) {
  const std::pair<std::string, std::string> rows[] = {
      {"\"one line \"", "one line"},
      {"\"\"\"\nwrapped\n  across lines \n\"\"\"", "wrapped across lines"},
      {"\"\"\"\na\r\nb\n\n\n  c\t\nd\n\n\"\"\"", "a b\n\nc d"},
  };
  for (const auto& [body, flowed] : rows) {
    const PackParse parsed =
        ParsePack(BasePack("[\"g\"]") + Note("\"Dock\"", "1", "\"t\"", body), "p");
    ASSERT_TRUE(std::holds_alternative<Pack>(parsed)) << body;
    EXPECT_EQ(std::get<Pack>(parsed).notes.at(0).body, flowed) << body;
  }
}

TEST(PackCommand, ChecksEveryFileAndImportsOnlyCleanOnes) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("pack_test_" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const auto Path = [&](const std::string& name) { return (folder / name).string(); };
  std::ofstream(Path("bad.toml")) << BasePack("[\"bad\"]") << "[[note]]\nstage = \"Attic\"\n";
  const std::string database = "sqlite:" + Path("store.db");
  const StoreOpener configured = [&] { return OpenStore(database, 1); };
  // clang-format off
  const std::vector<std::tuple<std::vector<std::string>, bool, int, std::string>> rows = {
      {{"check", Path("bad.toml"), Path("missing.toml"), HINTWICK_SAMPLE_PACK}, false, 1,
       Path("bad.toml") + ":13: note has no \"tier\""},
      {{"check", Path("missing.toml")}, false, 1, Path("missing.toml") + ": cannot be read"},
      {{"import", Path("bad.toml"), "--database", database}, false, 1, ":14: no stage is named"},
      {{"import", HINTWICK_SAMPLE_PACK}, false, 2, "usage:"},
      {{"check", HINTWICK_SAMPLE_PACK, "--database=x"}, false, 2, "usage:"},
      {{"lint", HINTWICK_SAMPLE_PACK}, false, 2, "usage:"},
      {{"import", HINTWICK_SAMPLE_PACK, "--database=" + database}, false, 0, ""},
      {{"import", HINTWICK_SAMPLE_PACK}, true, 0, ""},  // again, into the configured store
  };
  // clang-format on
  for (const auto& [args, with_configured, status, expected] : rows) {
    std::ostringstream out, err;
    EXPECT_EQ(RunPackCommand(args, out, err, with_configured ? configured : StoreOpener{}), status)
        << args[0] << " " << args[1];
    EXPECT_NE(err.str().find(expected), std::string::npos) << err.str();
  }
  auto store = std::get<std::unique_ptr<Store>>(OpenStore(database, 1));
  const auto games = std::get<std::vector<GameEntry>>(store->ListGames());
  ASSERT_EQ(games.size(), 1u);  // the bad pack's game never arrived
  EXPECT_EQ(std::tie(games[0].key, games[0].has_index), std::tuple("hintwick_test_game", true));
  store.reset();
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace hintwick
