#include "platform/SystemAdvice.h"

namespace corvane {

namespace {

constexpr SystemAdvice advice = {
    .helperNotThere = "Is the helper installed? 'doctor' tells more.",
    .helperEnded =
        "The helper ended before it answered. The system's log says why: "
        "log show --last 10m --process com.corvane.system.privilegedhelper-vnt",
    .helperSilent =
        "It is there but busy or stuck. Try again; the system's log may say more: "
        "log show --last 10m --process com.corvane.system.privilegedhelper-vnt",
    .operationUndone =
        "The system's log says why: "
        "log show --last 10m --process com.corvane.system.privilegedhelper-vnt",
    .preferencesUnwritten =
        "The system's log has the reason: "
        "log show --last 10m --process com.corvane.system.privilegedhelper-vnt",
    .objectHeld = "Another program keeps it. Close that program, or wait, and try again.",
    .nobodyCanBeAsked =
        "This needs an administrator, and nothing here can ask for one. Run the "
        "command as root, or in a session at the screen.",

    .helperUnreachable =
        "What is wrong with its installation is told below. The system's log may say more: "
        "log show --last 10m --process com.corvane.system.privilegedhelper-vnt",
    .issuerUnreachable = "The system's authorization services do not answer. Restart the system.",
    .serviceChanged =
        "Has its job been changed? "
        "'launchctl print system/com.corvane.system.privilegedhelper-vnt' shows it.",
    .rightChanged =
        "'install' as root puts back what is shipped, unless an administrator meant it.",
    .noAuthority = "the system's authorization services do not answer: only root is authorized",
    .noAuthorityCure = "Restart the system, or work as root.",
    .nobodyShowsDialogs = "this session has no screen to show dialogs on",
    .nobodyShowsDialogsCure = "Work in a session at the screen, or as root.",
};

}  // namespace

const SystemAdvice& systemAdvice() {
  return advice;
}

}  // namespace corvane
