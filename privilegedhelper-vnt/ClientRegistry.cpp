#include <algorithm>

#include "platform/ProcessTable.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

namespace corvane {

void ZELPrivilegedHelper::registerClientWithPID(std::int32_t pid) {
  log("Beginning work for client %d.", pid);
  dropEndedClients();
  const std::lock_guard lock(clientSetLock());
  clientSet().insert(pid);
}

void ZELPrivilegedHelper::dropEndedClients() {
  ClientSet ended;
  {
    const std::lock_guard lock(clientSetLock());
    if (clientSet().size() < _clientsToLookAt) return;
    ended = clientSet();
    // While this thread looks at processes without the lock, others that register must not begin to
    // do the same.
    _clientsToLookAt = 2 * ended.size();
  }
  std::erase_if(ended, [](std::int32_t client) { return !hasProcessEnded(client); });
  const std::lock_guard lock(clientSetLock());
  for (const std::int32_t client : ended) clientSet().erase(client);
  _clientsToLookAt = std::max(clientsToLookAtFirst, 2 * clientSet().size());
}

void ZELPrivilegedHelper::unregisterClientWithPID(std::int32_t pid) {
  log("Finishing work for client %d.", pid);
  unsigned long long count = 0;
  {
    const std::lock_guard lock(clientSetLock());
    clientSet().erase(pid);
    count = clientSet().size();
  }
  log("%llu clients remaining.", count);
  if (count == 0) terminatePrivilegedHelper();
}

}  // namespace corvane
