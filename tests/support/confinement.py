"""How well the services are confined."""

# The most exposure of each, in tenths, that systemd-analyze may find.
MOST_EXPOSURE = {
    "com.corvane.system.privilegedhelper-vnt.service": 40,
    "com.corvane.authorization.service": 15,
}


def analysis(most_exposure, *unit):
    """The command that fails if `unit` is more exposed; it tells how much it is."""
    return ["systemd-analyze", "security", "--no-pager", f"--threshold={most_exposure}", *unit]
