#ifndef CORVANE_PLATFORM_CONNECTEDPROCESSES_H
#define CORVANE_PLATFORM_CONNECTEDPROCESSES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

struct ConnectedProcess {
  std::int32_t pid;
  std::string name;
  std::string user;  ///< the name of whose process it is, or a number that has none
};

/// The processes other than the calling one that hold a connection to whoever listens at the
/// address `helper`, each once; nothing where the system does not tell who they are. Root sees all,
/// others those that the system lets them see.
std::optional<std::vector<ConnectedProcess>> processesConnectedTo(const std::string& helper);

}  // namespace corvane

#endif
