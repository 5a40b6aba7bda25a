#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_AGENTPRESENCE_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_AGENTPRESENCE_H

#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane {

enum class AgentPresence { NoPolkit, Present, Absent };

/// Whether polkit has an agent for the session of this process or, outside of sessions, for this
/// process. polkit does not tell, but it takes no second agent where there is one.
AgentPresence findAgentOfThisProcess();

/// The same for any process, for root, who may ask for all: an agent of its own, or of its session.
/// A session of another user's is left alone, and taken for one that has an agent.
AgentPresence findAgentOf(const ProcessIdentity& process);

}  // namespace corvane

#endif
