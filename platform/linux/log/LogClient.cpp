#include "platform/linux/log/LogClient.h"

#include <sys/uio.h>
#include <syslog.h>
// Without this, each message would carry the file and line of the call below, the same for all.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace corvane {

bool sendToJournal(std::span<std::string> fields) {
  std::vector<iovec> vector;
  vector.reserve(fields.size());
  for (std::string& field : fields) vector.push_back({field.data(), field.size()});
  return ::sd_journal_sendv(vector.data(), static_cast<int>(vector.size())) >= 0;
}

std::vector<std::string> journalFields(const LogClient& client, int facility, int priority,
                                       const std::string& text) {
  // Field names of the journal are upper case; SYSLOG_FACILITY is the code without its shift.
  return {"MESSAGE=" + text, "PRIORITY=" + std::to_string(priority),
          "SYSLOG_IDENTIFIER=" + client.ident,
          "SYSLOG_FACILITY=" + std::to_string(LOG_FAC(facility))};
}

}  // namespace corvane
