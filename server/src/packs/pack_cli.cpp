#include "packs/pack_cli.h"

#include <fstream>
#include <optional>
#include <sstream>

#include "packs/pack_parser.h"

namespace hintwick {
namespace {

constexpr const char* kUsage =
    "usage: hintwick-server pack check FILE...\n"
    "       hintwick-server pack import FILE... [--database URL]\n";

struct Command {
  std::string verb;
  std::vector<std::string> files;
  std::string database;
};

std::optional<Command> Understood(const std::vector<std::string>& args, bool configured) {
  if (args.empty() || (args[0] != "check" && args[0] != "import")) return std::nullopt;
  Command command{args[0], {}, {}};
  for (std::size_t at = 1; at < args.size(); ++at) {
    if (args[at] == "--database" && at + 1 < args.size()) {
      command.database = args[++at];
    } else if (args[at].starts_with("--database=")) {
      command.database = args[at].substr(11);
    } else if (args[at].starts_with("--")) {
      return std::nullopt;
    } else {
      command.files.push_back(args[at]);
    }
  }
  const bool import = command.verb == "import";
  const bool has_store = !command.database.empty() || configured;
  if (command.files.empty() || (import ? !has_store : !command.database.empty())) {
    return std::nullopt;
  }
  return command;
}

std::optional<Pack> Checked(const std::string& file, std::ostream& err) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  if (!stream || !(text << stream.rdbuf())) {
    err << file << ": cannot be read\n";
    return std::nullopt;
  }
  PackParse parsed = ParsePack(text.str(), file);
  if (auto* pack = std::get_if<Pack>(&parsed)) return std::move(*pack);
  for (const PackError& error : std::get<std::vector<PackError>>(parsed)) {
    err << Located(file, error) << "\n";
  }
  return std::nullopt;
}

// Every file is read and checked, so that one run shows every error there is.
std::optional<std::vector<Pack>> CheckedAll(const Command& command, std::ostream& out,
                                            std::ostream& err) {
  std::vector<Pack> packs;
  bool clean = true;
  for (const std::string& file : command.files) {
    std::optional<Pack> pack = Checked(file, err);
    clean = clean && pack.has_value();
    if (!pack) continue;
    out << file << ": " << pack->outline.stages.size() << " stages, " << pack->notes.size()
        << " notes, " << pack->outline.spoilers.size() << " spoiler terms\n";
    packs.push_back(std::move(*pack));
  }
  if (!clean) return std::nullopt;
  return packs;
}

int Imported(const std::vector<Pack>& packs, const std::string& database,
             const StoreOpener& configured_store, std::ostream& out, std::ostream& err) {
  StoreResult<std::unique_ptr<Store>> opened =
      database.empty() ? configured_store() : OpenStore(database, 1);
  if (const auto* error = std::get_if<StoreError>(&opened)) {
    err << error->text << "\n";
    return 1;
  }
  Store& store = *std::get<std::unique_ptr<Store>>(opened);
  for (const Pack& pack : packs) {
    const StoreResult<bool> done = store.ImportPack(pack);
    if (const auto* error = std::get_if<StoreError>(&done)) {
      err << error->text << "\n";
      return 1;
    }
    out << "imported \"" << pack.outline.title << "\" for " << pack.outline.keys.front() << "\n";
  }
  return 0;
}

}  // namespace

int RunPackCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                   const StoreOpener& configured_store) {
  const std::optional<Command> command = Understood(args, static_cast<bool>(configured_store));
  if (!command) {
    err << kUsage;
    return 2;
  }
  const std::optional<std::vector<Pack>> packs = CheckedAll(*command, out, err);
  if (!packs) return 1;
  if (command->verb != "import") return 0;
  return Imported(*packs, command->database, configured_store, out, err);
}

}  // namespace hintwick
