#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_AGENTPRESENCE_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_AGENTPRESENCE_H

namespace corvane {

enum class AgentPresence { NoPolkit, Present, Absent };

/// Whether polkit has an agent for the session of this process or, outside of sessions, for this
/// process. polkit does not tell, but it takes no second agent where there is one.
AgentPresence findAgentOfThisProcess();

}  // namespace corvane

#endif
