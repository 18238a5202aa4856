#include "ops/admin.h"

#include <algorithm>
#include <cstdio>

#include "auth/accounts.h"

namespace hintwick {
namespace {

// The program looks a game up by its executable's name without ".exe", lower-case.
std::vector<std::string> GameKeys(const std::string& list) {
  std::vector<std::string> keys;
  std::size_t start = 0;
  while (start <= list.size()) {
    auto comma = std::min(list.find(',', start), list.size());
    std::string key = list.substr(start, comma - start);
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
    if (key.size() > 4 && key.ends_with(".exe")) key.resize(key.size() - 4);
    if (!key.empty()) keys.push_back(key);
    start = comma + 1;
  }
  return keys;
}

int Failed(const StoreError& error) {
  std::fprintf(stderr, "store failed: %s\n", error.text.c_str());
  return 1;
}

int AddGame(Store& store, const std::vector<std::string>& words) {
  bool has_index = std::find(words.begin(), words.end(), "--has-index") != words.end();
  std::vector<std::string> plain;
  std::copy_if(words.begin() + 2, words.end(), std::back_inserter(plain),
               [](const std::string& w) { return w != "--has-index"; });
  auto keys = plain.size() == 2 ? GameKeys(plain[0]) : std::vector<std::string>{};
  if (keys.empty() || plain[1].empty()) return 2;
  auto put = store.PutGame(keys, plain[1], has_index);
  if (const auto* error = std::get_if<StoreError>(&put)) return Failed(*error);
  std::printf("game \"%s\" has %zu key(s)%s\n", plain[1].c_str(), keys.size(),
              has_index ? ", with notes" : "");
  return 0;
}

int DeleteUser(Store& store, const std::vector<std::string>& words) {
  if (words.size() != 3) return 2;
  auto email = Accounts::NormalEmail(words[2]);
  if (!email) {
    std::fprintf(stderr, "not an e-mail address\n");
    return 1;
  }
  auto deleted = store.DeleteUser(*email);
  if (const auto* error = std::get_if<StoreError>(&deleted)) return Failed(*error);
  bool found = std::get<bool>(deleted);
  std::printf(found ? "deleted %s and their data\n" : "no account %s\n", email->c_str());
  return found ? 0 : 1;
}

}  // namespace

int RunAdmin(Store& store, const std::vector<std::string>& words) {
  if (words.size() >= 2 && words[0] == "game" && words[1] == "add") return AddGame(store, words);
  if (words.size() >= 2 && words[0] == "user" && words[1] == "delete")
    return DeleteUser(store, words);
  return 2;
}

std::string AdminUsage() {
  return "  game add KEY[,KEY...] TITLE [--has-index]   add or replace a game\n"
         "  user delete EMAIL                          delete an account and its data\n";
}

}  // namespace hintwick
