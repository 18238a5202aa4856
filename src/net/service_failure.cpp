#include "net/service_failure.h"

namespace qn {

const char* ServiceFailureText(ServiceFailure failure) {
  switch (failure) {
    case ServiceFailure::kNone: return "";
    case ServiceFailure::kNotSignedIn: return "not signed in";
    case ServiceFailure::kUnreachable: return "cannot reach the service";
    case ServiceFailure::kBadReply: return "the service returned an unexpected response";
    case ServiceFailure::kMissingCredentials: return "enter an email address and a password";
    case ServiceFailure::kPasswordTooShort: return "the password must be at least 10 characters";
    case ServiceFailure::kWrongCredentials: return "wrong email or password";
    case ServiceFailure::kSignInRefused: return "sign-in failed";
    case ServiceFailure::kAccountExists:
      return "could not create that account - try signing in instead";
    case ServiceFailure::kRegisterRefused: return "could not create the account";
  }
  return "";
}

}  // namespace qn
