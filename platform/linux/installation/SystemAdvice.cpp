#include "platform/SystemAdvice.h"

namespace corvane {

namespace {

constexpr SystemAdvice advice = {
    .helperNotThere = "Is the helper installed and its socket enabled? 'doctor' tells more.",
    .helperEnded =
        "The helper ended before it answered. Its log says why: "
        "journalctl -u com.corvane.system.privilegedhelper-vnt",
    .helperSilent =
        "It is there but busy or stuck. Try again; its log may say more: "
        "journalctl -u com.corvane.system.privilegedhelper-vnt",
    .operationUndone = "Its log says why: journalctl -u com.corvane.system.privilegedhelper-vnt",
    .preferencesUnwritten =
        "The log of the helper has the reason: "
        "journalctl -u com.corvane.system.privilegedhelper-vnt -g 'were not written'",
    .objectHeld =
        "Another program holds a lease on it. Close that program, or wait, and try again.",
    .nobodyCanBeAsked =
        "This needs an administrator, and nothing here can ask for one. Run the "
        "command as root, or set up polkit.",

    .helperUnreachable =
        "What is wrong with its installation is told below. Its log may say more: "
        "journalctl -u com.corvane.system.privilegedhelper-vnt.service",
    .issuerUnreachable =
        "What is wrong with the installation is told below. The log may say more: "
        "journalctl -u com.corvane.authorization",
    .serviceChanged =
        "Has its service been changed? "
        "'systemctl cat com.corvane.system.privilegedhelper-vnt.service' shows it.",
    .rightChanged =
        "'install' as root puts back what is shipped. An administrator's own rule "
        "belongs in /etc/polkit-1/rules.d.",
    .noAuthority = "polkit does not answer: only root is authorized",
    .noAuthorityCure = "Install polkit and see whether it runs, or work as root.",
    .nobodyShowsDialogs = "no agent shows dialogs to you, and standard input is not a terminal",
    .nobodyShowsDialogsCure = "Work on a terminal, or start an agent of polkit in your session.",
};

}  // namespace

const SystemAdvice& systemAdvice() {
  return advice;
}

}  // namespace corvane
