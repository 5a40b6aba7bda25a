#include "platform/linux/launchctl/ServiceManager.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include <unistd.h>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

constexpr const char* busName = "org.freedesktop.systemd1";
constexpr const char* managerPath = "/org/freedesktop/systemd1";
constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* privateAddress = "unix:path=/run/systemd/private";

using Kind = ServiceManagerFailure::Kind;

[[noreturn]] void raise(Kind kind, const std::string& reason) {
  throw ServiceManagerFailure(kind, reason);
}

[[noreturn]] void raiseUnavailable(int result) {
  raise(Kind::Unavailable, "systemd, which manages services, cannot be reached: " +
                               posixDescription(posixCodeFromHost(-result)));
}

void check(int result) {
  if (result < 0) raiseUnavailable(result);
}

Bus busOfManager() {
  sd_bus* bus = nullptr;
  if (geteuid() == 0 && std::getenv("DBUS_SYSTEM_BUS_ADDRESS") == nullptr) {
    check(sd_bus_new(&bus));
    Bus direct(bus);
    check(sd_bus_set_address(bus, privateAddress));
    if (sd_bus_start(bus) >= 0) return direct;
  }
  check(sd_bus_open_system(&bus));
  return Bus(bus);
}

struct BusError {
  sd_bus_error value = SD_BUS_ERROR_NULL;
  BusError() = default;
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  ~BusError() { sd_bus_error_free(&value); }
};

bool saysThatThereIsNoManager(const sd_bus_error& error) {
  return sd_bus_error_has_name(&error, SD_BUS_ERROR_SERVICE_UNKNOWN) != 0 ||
         sd_bus_error_has_name(&error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) != 0 ||
         std::strncmp(error.name, "org.freedesktop.DBus.Error.Spawn.", 33) == 0;
}

void noArguments(MessageWriter& /*call*/) {}

void appendStrings(MessageWriter& call, const std::vector<std::string>& strings) {
  call.appendContainer('a', "s", [&] {
    for (const std::string& string : strings) call.append("s", string.c_str());
  });
}

std::string readString(sd_bus_message* message, char type) {
  const char* string = nullptr;
  check(sd_bus_message_read_basic(message, type, &string));
  return string;
}

}  // namespace

ServiceManager::ServiceManager() : _bus(busOfManager()) {}

BusMessage ServiceManager::call(const std::string& path, const char* interface, const char* method,
                                const Arguments& arguments) {
  auto request = MessageWriter::ofCall(_bus.get(), busName, path.c_str(), interface, method);
  arguments(request);
  check(request.result());
  BusError error;
  sd_bus_message* reply = nullptr;
  const int result = sd_bus_call(_bus.get(), request.message(), 0, &error.value, &reply);
  if (result < 0) {
    if (sd_bus_error_is_set(&error.value) == 0) raiseUnavailable(result);
    if (saysThatThereIsNoManager(error.value)) {
      raise(Kind::Unavailable,
            std::string("systemd, which manages services, is not running: ") + error.value.message);
    }
    const bool isUnknown =
        sd_bus_error_has_name(&error.value, "org.freedesktop.systemd1.NoSuchUnit") != 0;
    raise(isUnknown ? Kind::NoSuchUnit : Kind::Refused, error.value.message);
  }
  return BusMessage(reply);
}

BusMessage ServiceManager::callManager(const char* method, const Arguments& arguments) {
  return call(managerPath, managerInterface, method, arguments);
}

BusMessage ServiceManager::property(const std::string& path, const char* interface,
                                    const char* name) {
  BusMessage reply = call(path, propertiesInterface, "Get",
                          [&](MessageWriter& call) { call.append("ss", interface, name); });
  const char* contents = nullptr;
  check(sd_bus_message_peek_type(reply.get(), nullptr, &contents));
  check(sd_bus_message_enter_container(reply.get(), 'v', contents));
  return reply;
}

std::string ServiceManager::pathOfUnit(const std::string& unit) {
  const BusMessage reply =
      callManager("LoadUnit", [&](MessageWriter& call) { call.append("s", unit.c_str()); });
  return readString(reply.get(), 'o');
}

std::string ServiceManager::version() {
  return readString(property(managerPath, managerInterface, "Version").get(), 's');
}

std::vector<std::string> ServiceManager::loadedUnits(const std::vector<std::string>& patterns) {
  const BusMessage reply = callManager("ListUnitsByPatterns", [&](MessageWriter& call) {
    appendStrings(call, {});
    appendStrings(call, patterns);
  });
  std::vector<std::string> units;
  check(sd_bus_message_enter_container(reply.get(), 'a', "(ssssssouso)"));
  const char* name = nullptr;
  const char* loadState = nullptr;
  int result = 0;
  while ((result =
              sd_bus_message_read(reply.get(), "(ssssssouso)", &name, nullptr, &loadState, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) > 0) {
    if (std::strcmp(loadState, "loaded") == 0) units.emplace_back(name);
  }
  check(result);
  return units;
}

bool ServiceManager::isKnown(const std::string& unit) {
  return text(unit, unitInterface, "LoadState") == "loaded" ||
         text(unit, unitInterface, "ActiveState") != "inactive";
}

std::string ServiceManager::text(const std::string& unit, const char* interface, const char* name) {
  return readString(property(pathOfUnit(unit), interface, name).get(), 's');
}

std::int64_t ServiceManager::integer(const std::string& unit, const char* interface,
                                     const char* name) {
  const BusMessage value = property(pathOfUnit(unit), interface, name);
  char type = 0;
  check(sd_bus_message_peek_type(value.get(), &type, nullptr));
  if (type == 'u') {
    std::uint32_t number = 0;
    check(sd_bus_message_read_basic(value.get(), type, &number));
    return number;
  }
  std::int32_t number = 0;
  check(sd_bus_message_read_basic(value.get(), 'i', &number));
  return number;
}

std::vector<std::string> ServiceManager::commandOfService(const std::string& unit) {
  const BusMessage value = property(pathOfUnit(unit), serviceInterface, "ExecStart");
  check(sd_bus_message_enter_container(value.get(), 'a', "(sasbttttuii)"));
  const int entered = sd_bus_message_enter_container(value.get(), 'r', "sasbttttuii");
  check(entered);
  if (entered == 0) return {};
  std::vector<std::string> words = {readString(value.get(), 's')};
  char** arguments = nullptr;
  check(sd_bus_message_read_strv(value.get(), &arguments));
  // The name that the program has for itself is not one of its arguments.
  for (char** argument = arguments; argument != nullptr && *argument != nullptr; ++argument) {
    if (argument != arguments) words.emplace_back(*argument);
    std::free(*argument);
  }
  std::free(arguments);
  return words;
}

std::string ServiceManager::jobOfChange(const char* method, const std::string& unit) {
  const BusMessage reply =
      callManager(method, [&](MessageWriter& call) { call.append("ss", unit.c_str(), "replace"); });
  return readString(reply.get(), 'o');
}

int ServiceManager::jobRemoved(sd_bus_message* message, void* manager, sd_bus_error* /*error*/) {
  std::uint32_t id = 0;
  const char* job = nullptr;
  const char* unit = nullptr;
  const char* result = nullptr;
  const int status = sd_bus_message_read(message, "uoss", &id, &job, &unit, &result);
  if (status >= 0) static_cast<ServiceManager*>(manager)->_results[job] = result;
  return status;
}

void ServiceManager::changeUnit(const char* method, const std::string& unit) {
  // Listening comes first: the job may have ended before its name is known here.
  sd_bus_slot* slot = nullptr;
  check(sd_bus_match_signal(_bus.get(), &slot, nullptr, managerPath, managerInterface, "JobRemoved",
                            &ServiceManager::jobRemoved, this));
  const std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)> owner(slot, &sd_bus_slot_unref);
  callManager("Subscribe", noArguments);

  const std::string job = jobOfChange(method, unit);
  while (_results.find(job) == _results.end()) {
    const int processed = sd_bus_process(_bus.get(), nullptr);
    check(processed);
    if (processed == 0) check(sd_bus_wait(_bus.get(), UINT64_MAX));
  }
  const std::string& result = _results[job];
  if (result != "done" && result != "skipped") {
    raise(Kind::Refused, "the job for " + unit + " ended with \"" + result + "\"");
  }
}

void ServiceManager::queueChangeOfUnit(const char* method, const std::string& unit) {
  jobOfChange(method, unit);
}

bool ServiceManager::enableUnit(const std::string& unit) {
  const BusMessage reply = callManager("EnableUnitFiles", [&](MessageWriter& call) {
    appendStrings(call, {unit});
    call.append("bb", 0, 0);
  });
  int saysWhatFor = 0;
  check(sd_bus_message_read_basic(reply.get(), 'b', &saysWhatFor));
  callManager("Reload", noArguments);
  return saysWhatFor != 0;
}

void ServiceManager::disableUnit(const std::string& unit) {
  try {
    callManager("DisableUnitFiles", [&](MessageWriter& call) {
      appendStrings(call, {unit});
      call.append("b", 0);
    });
  } catch (const ServiceManagerFailure& failure) {
    if (failure.kind() != Kind::NoSuchUnit) throw;
  }
  callManager("Reload", noArguments);
}

}  // namespace corvane
