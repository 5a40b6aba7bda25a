"""What is where on a system with the helper, and what its programs say."""

LABEL = "com.corvane.system.privilegedhelper-vnt"
CLIENT = "privilegerequestor-vnt"
DAEMON = f"/usr/libexec/{LABEL}"
ISSUER = "/usr/libexec/com.corvane.authorization"
LAUNCH_CONTROL = "/bin/launchctl"
ACTIONS = "/usr/share/polkit-1/actions"
KEY = "/run/com.corvane.authorization/key"
SOCKETS = f"{LABEL}.socket com.corvane.authorization.socket"

HELPER_PACKAGE = "corvane-privilegedhelper"
CLIENT_PACKAGE = "corvane-privilegedhelper-client"

NOTHING_CHANGED = "Everything is in place already. Nothing was changed.\n"
NOTHING_LEFT = "Nothing is left of the helper.\n"
