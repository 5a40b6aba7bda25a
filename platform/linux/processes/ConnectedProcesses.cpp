#include "platform/ConnectedProcesses.h"

#include <array>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "platform/ProcessTable.h"
#include "platform/linux/processes/UserDatabase.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;
using Inodes = std::set<std::uint32_t>;

// The attributes of one socket that matter here.
struct SocketDescription {
  std::string_view name;
  std::optional<std::uint32_t> peer;
};

SocketDescription describe(const nlmsghdr* header) {
  const auto* socket = static_cast<const unix_diag_msg*>(NLMSG_DATA(header));
  SocketDescription description;
  auto left = static_cast<int>(header->nlmsg_len - NLMSG_LENGTH(sizeof(*socket)));
  for (const auto* attribute = reinterpret_cast<const rtattr*>(socket + 1); RTA_OK(attribute, left);
       attribute = RTA_NEXT(attribute, left)) {
    const void* value = RTA_DATA(attribute);
    if (attribute->rta_type == UNIX_DIAG_NAME) {
      description.name = {static_cast<const char*>(value), RTA_PAYLOAD(attribute)};
      // A path may come with the zero byte at its end.
      description.name = description.name.substr(0, description.name.find('\0', 1));
    } else if (attribute->rta_type == UNIX_DIAG_PEER) {
      std::uint32_t inode = 0;
      std::memcpy(&inode, value, sizeof inode);
      description.peer = inode;
    }
  }
  return description;
}

// The accepted sockets of a listener have its name: the other ends of these are its clients.
Inodes clientSocketsOf(const std::string& path) {
  Inodes clients;
  const FileDescriptor diagnosis(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  struct {
    nlmsghdr header;
    unix_diag_req request;
  } query{};
  query.header.nlmsg_len = sizeof query;
  query.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  query.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  query.request.sdiag_family = AF_UNIX;
  query.request.udiag_states = ~0U;
  query.request.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_PEER;
  if (::send(diagnosis.get(), &query, sizeof query, 0) < 0) return clients;

  alignas(nlmsghdr) std::array<std::byte, 32768> buffer{};
  for (;;) {
    const ssize_t received = ::recv(diagnosis.get(), buffer.data(), buffer.size(), 0);
    if (received <= 0) return clients;
    auto left = static_cast<unsigned>(received);
    for (const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
         NLMSG_OK(header, left); header = NLMSG_NEXT(header, left)) {
      if (header->nlmsg_type != SOCK_DIAG_BY_FAMILY) return clients;
      const SocketDescription socket = describe(header);
      if (socket.name == path && socket.peer) clients.insert(*socket.peer);
    }
  }
}

bool holdsOneOf(const fs::path& process, const Inodes& sockets) {
  constexpr std::string_view beginning = "socket:[";
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code gone;
    const std::string target = fs::read_symlink(entry->path(), gone).string();
    if (!target.starts_with(beginning)) continue;
    std::uint32_t inode = 0;
    std::from_chars(target.data() + beginning.size(), target.data() + target.size(), inode);
    if (sockets.contains(inode)) return true;
  }
  return false;
}

}  // namespace

std::optional<std::vector<ConnectedProcess>> processesConnectedTo(const std::string& path) {
  std::vector<ConnectedProcess> processes;
  const Inodes sockets = clientSocketsOf(path);
  if (sockets.empty()) return processes;
  for (const ProcessRecord& record : readProcessTable().value_or(std::vector<ProcessRecord>())) {
    if (record.pid != ::getpid() && holdsOneOf("/proc/" + std::to_string(record.pid), sockets)) {
      const auto user = userWithID(record.effectiveUserID);
      processes.push_back({record.pid, record.shortName,
                           user ? user->name : std::to_string(record.effectiveUserID)});
    }
  }
  return processes;
}

}  // namespace corvane
