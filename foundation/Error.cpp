#include "foundation/Error.h"

#include "foundation/POSIXError.h"
#include "foundation/Value.h"

namespace corvane {

struct Error::State {
  std::string domain;
  std::int64_t code;
  Dictionary userInfo;
};

Error::Error(std::string_view domain, std::int64_t code) : Error(domain, code, Dictionary()) {}

Error::Error(std::string_view domain, std::int64_t code, Dictionary userInfo)
    : _state(std::make_shared<const State>(State{std::string(domain), code, std::move(userInfo)})) {
}

const std::string& Error::domain() const {
  return _state->domain;
}
std::int64_t Error::code() const {
  return _state->code;
}
const Dictionary& Error::userInfo() const {
  return _state->userInfo;
}

std::string Error::localizedDescription() const {
  if (auto description = userInfo().text(NSLocalizedDescriptionKey)) return *description;
  if (domain() == NSPOSIXErrorDomain) return posixDescription(code());
  return domain() + " error " + std::to_string(code());
}

bool Error::is(std::string_view domain, std::int64_t code) const {
  return this->domain() == domain && this->code() == code;
}

bool Error::operator==(const Error& other) const {
  return _state == other._state ||
         (is(other.domain(), other.code()) && userInfo() == other.userInfo());
}

}  // namespace corvane
