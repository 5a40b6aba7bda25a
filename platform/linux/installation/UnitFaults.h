#ifndef CORVANE_PLATFORM_LINUX_INSTALLATION_UNITFAULTS_H
#define CORVANE_PLATFORM_LINUX_INSTALLATION_UNITFAULTS_H

#include <string>
#include <vector>

#include "platform/HelperInstallation.h"
#include "platform/linux/installation/Systemctl.h"

namespace corvane {

using InstallationFaults = std::vector<HelperInstallation::Fault>;

/// What systemd, which runs, says that is wrong with a socket or a service of the installation.
InstallationFaults faultsOfUnit(const UnitProperties& properties);

/// Whether the process of a running service executes the file at `program`, which is what the next
/// one is to execute.
InstallationFaults faultsOfRunningProgram(const std::string& program,
                                          const UnitProperties& properties);

}  // namespace corvane

#endif
