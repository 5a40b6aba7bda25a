"""Another product's helper, beside the first one: its package, what it does, and its end."""

import glob
import shutil

from names import ACTIONS

ASKING = "privilegerequestor-wanderer"
LABEL = "com.corvane.system.privilegedhelper-wanderer"
FILES = f"/usr/libexec/{LABEL} /usr/lib/systemd/system/{LABEL}.service"


def install(scenario):
    package, = glob.glob(f"{scenario.sources}/wanderer/*.deb")
    shutil.copy(package, scenario.machine.path("/root/wanderer.deb"))
    scenario.run("dpkg -i /root/wanderer.deb")


def ask(scenario, arguments, user="root", status=0):
    asked = scenario.run(f"{ASKING} {arguments}", user, check=False)
    assert asked.returncode == status, f"{arguments}: {asked.stdout}{asked.stderr}"
    return asked


def another_products_helper_is_installed_beside_the_first(scenario):
    install(scenario)
    scenario.run(f"systemctl is-enabled {LABEL}.socket && systemctl is-active {LABEL}.socket")
    ask(scenario, "nop", "alice")
    scenario.client("nop", "alice")
    told = scenario.run("pkaction --verbose --action-id com.corvane.wanderer.set-time-zone").stdout
    assert "implicit active:   auth_admin_keep" in told, told


def an_ordinary_user_has_it_work_with_an_administrators_password(scenario):
    ask(scenario, "set-time-zone Asia/Tokyo </dev/null", "alice", status=3)
    terminal = scenario.machine.terminal(f"{ASKING} set-time-zone Asia/Tokyo", "alice", True)
    terminal.expect("Password: ")
    scenario.machine.wait_until(
        "stty -a -F /proc/$(pgrep -x pkttyagent)/fd/0 | grep -q -- ' -echo '",
        "what is typed is unseen")
    scenario.answer(terminal)
    assert scenario.run("readlink /etc/localtime").stdout == "/usr/share/zoneinfo/Asia/Tokyo\n"
    assert "Wanderer would like to set the time zone." in terminal.seen, terminal.seen


def its_operations_work_in_the_confinement(scenario):
    ask(scenario, "add-hosts '192.0.2.7 printer.example'")
    assert "printer.example" in ask(scenario, "look-up-hosts printer.example", "alice").stdout
    ask(scenario, "look-up-hosts nobody.example", "alice", status=1)


def it_removes_itself_and_leaves_the_first_alone(scenario):
    ask(scenario, "perform-uninstall")
    for file in FILES.split():
        scenario.run(f"test ! -e {file}")
    scenario.run(f"! systemctl is-active {LABEL}.socket")
    assert scenario.run(f"ls {ACTIONS} | grep wanderer", check=False).stdout == ""
    ask(scenario, "nop", status=5)
    scenario.client("nop", "alice")
    scenario.client("delete /srv/nothing-there", status=1)


def its_package_comes_back_and_leaves_nothing(scenario):
    install(scenario)
    ask(scenario, "nop", "alice")
    scenario.run("dpkg --remove wanderer")
    assert scenario.run("find / -xdev -path /root -prune -o -path /var/log -prune -o "
                        "-path /var/lib/dpkg -prune -o -name '*wanderer*' -print; "
                        "ls -d /run/*wanderer*", check=False).stdout == ""
    assert "wanderer" not in scenario.run("systemctl list-units --all --plain").stdout
    scenario.client("nop", "alice")
    scenario.run("rm /root/wanderer.deb")


STEPS = [another_products_helper_is_installed_beside_the_first,
         an_ordinary_user_has_it_work_with_an_administrators_password,
         its_operations_work_in_the_confinement, it_removes_itself_and_leaves_the_first_alone,
         its_package_comes_back_and_leaves_nothing]
