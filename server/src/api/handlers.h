#pragma once
// One function per endpoint; the route table in api.cpp says which runs where.
#include <string>
#include <variant>

#include "api/api.h"

namespace hintwick {

Reply Register(const Request& request, Services& services);
Reply Login(const Request& request, Services& services);
Reply Refresh(const Request& request, Services& services);
Reply Logout(const Request& request, Services& services);

Reply ListGames(const Request& request, Services& services);
Reply GetMemory(const Request& request, Services& services);
Reply PatchMemory(const Request& request, Services& services);
Reply NewPlaythrough(const Request& request, Services& services);

Reply Version(const Request& request, Services& services);
Reply Download(const Request& request, Services& services);
Reply Chat(const Request& request, Services& services);

Reply Health(const Request& request, Services& services);
Reply MetricsText(const Request& request, Services& services);

// The refusal for each failure of an account operation, worded for the client.
Reply RefusalFor(AuthFailure failure);

}  // namespace hintwick

namespace hintwick {

// The caller's account from the bearer token, or the refusal to send.
std::variant<UserId, Reply> Caller(const Request& request, Services& services);

}  // namespace hintwick
