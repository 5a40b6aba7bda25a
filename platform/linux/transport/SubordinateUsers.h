#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_SUBORDINATEUSERS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_SUBORDINATEUSERS_H

#include <string>

#include <sys/types.h>

namespace corvane {

/// The user who may act as `user`, by the ranges of numbers that `file` gives to users; `user`
/// itself if it is in nobody's range. Limits that count users count by this, as whoever has such a
/// range is as many users as it has numbers.
uid_t ownerOfSubordinateUser(uid_t user, const std::string& file = "/etc/subuid");

}  // namespace corvane

#endif
