#include "platform/macos/preferences/PendingChanges.h"

#include <algorithm>
#include <utility>

namespace corvane {

namespace {

struct Pending {
  PreferencesDomain domain;
  std::vector<PreferenceChange> changes;
};

thread_local std::vector<Pending> pendingDomains;

auto find(const PreferencesDomain& domain) {
  return std::find_if(pendingDomains.begin(), pendingDomains.end(),
                      [&domain](const Pending& pending) { return pending.domain == domain; });
}

}  // namespace

void addPendingChange(const PreferencesDomain& domain, PreferenceChange change) {
  auto pending = find(domain);
  if (pending == pendingDomains.end()) {
    pending = pendingDomains.insert(pending, Pending{domain, {}});
  }
  pending->changes.push_back(std::move(change));
}

std::vector<PreferenceChange> takePendingChanges(const PreferencesDomain& domain) {
  const auto pending = find(domain);
  if (pending == pendingDomains.end()) return {};
  std::vector<PreferenceChange> changes = std::move(pending->changes);
  pendingDomains.erase(pending);
  return changes;
}

}  // namespace corvane
