#include <vector>

#include "platform/ProcessTable.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

namespace corvane {

namespace {

// Far more than there are programs that use the daemon. The numbers are whatever clients send, and
// must not take up memory without bounds.
constexpr std::size_t maximumClients = 4096;

std::set<std::int32_t> runningProcesses() {
  std::set<std::int32_t> running;
  for (const ProcessRecord& process : readProcessTable().value_or(std::vector<ProcessRecord>())) {
    running.insert(process.pid);
  }
  return running;
}

}  // namespace

void ZELPrivilegedHelper::registerClientWithPID(std::int32_t pid) {
  log("Beginning work for client %d.", pid);
  std::unique_lock lock(clientSetLock());
  if (clientSet().size() >= maximumClients) {
    // Clients that are gone make room: nothing waits for them.
    lock.unlock();
    const std::set<std::int32_t> running = runningProcesses();
    lock.lock();
    std::erase_if(clientSet(), [&](std::int32_t client) { return !running.contains(client); });
  }
  clientSet().insert(pid);
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
