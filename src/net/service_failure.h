#pragma once
// Why an exchange with the service did not give the player what they asked for. Callers
// decide on the kind; the words exist only for the places that show them (the chat's
// notices, the account window, the log).
namespace qn {

enum class ServiceFailure {
  kNone,
  kNotSignedIn,
  kUnreachable,
  kBadReply,
  kMissingCredentials,
  kPasswordTooShort,
  kWrongCredentials,
  kSignInRefused,
  kAccountExists,
  kRegisterRefused,
};

// UTF-8, lower-case phrases; empty for kNone.
const char* ServiceFailureText(ServiceFailure failure);

}  // namespace qn
