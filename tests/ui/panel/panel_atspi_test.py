#!/usr/bin/python3
"""The panel as a screen reader meets it: its controls' names, roles and values over AT-SPI,
operated through AT-SPI's own actions, and a new warning spoken once.
Usage (inside with-xvfb and with-session-bus): panel_atspi_test.py PANEL-PROGRAM"""
import os
import queue
import subprocess
import sys
import tempfile
import threading
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

PANEL_FIX_CHOOSE_OUTPUT = 5  # PanelFix::chooseOutput
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAILED:", what, flush=True)


def wait_for(predicate, timeout=10.0):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        result = predicate()
        if result:
            return result
        GLib.MainContext.default().iteration(False)
        time.sleep(0.02)
    return None


class Panel:
    """The panel program, with the lines it prints gathered in a queue."""

    def __init__(self, program):
        env = dict(os.environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True, env=env)
        self.lines = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line.strip())

    def expect(self, wanted, timeout=10.0):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            try:
                line = self.lines.get(timeout=0.05)
            except queue.Empty:
                GLib.MainContext.default().iteration(False)
                continue
            if line == wanted:
                return True
        return False

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        return self.expect("done")

    def stop(self):
        self.process.stdin.close()
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()


def application(name):
    desktop = Atspi.get_desktop(0)
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is not None and app.get_name() == name:
            return app
    return None


def controls(node, found):
    """Every accessible below node, as (role name, name, accessible)."""
    for i in range(node.get_child_count()):
        child = node.get_child_at_index(i)
        if child is None:
            continue
        found.append((child.get_role_name(), child.get_name(), child))
        controls(child, found)
    return found


def named(found, role, name):
    return next((a for r, n, a in found if r == role and n == name), None)


def labels(accessible):
    return [relation.get_target(i).get_name()
            for relation in accessible.get_relation_set()
            if relation.get_relation_type() == Atspi.RelationType.LABELLED_BY
            for i in range(relation.get_n_targets())]


def press(accessible):
    for i in range(accessible.get_n_actions()):
        if accessible.get_action_name(i) == "Press":
            return accessible.do_action(i)
    return False


def main(program):
    runtime = tempfile.mkdtemp()
    os.environ["XDG_RUNTIME_DIR"] = runtime
    launcher = subprocess.Popen(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"])
    panel = None
    try:
        panel = Panel(program)
        check(panel.expect("shown true"), "the panel opens")
        app = wait_for(lambda: application("velotide-panel-atspi"))
        check(app is not None, "the panel program is on the AT-SPI desktop")
        if app is None:
            return
        def panel_controls():
            found = controls(app, [])
            return found if named(found, "slider", "Volume") else None

        found = wait_for(panel_controls)
        check(found, "the panel's controls are in the tree")
        if not found:
            return
        for name in ("Previous track", "Play / pause", "Next track", "Mute", "Night", "Speech",
                     "Keys on", "Setup", "Quit", "Choose an output"):
            check(named(found, "push button", name) is not None, f"a push button named {name!r}")
        # On Linux a menu's name is its chosen entry and its caption labels it.
        combos = [(n, labels(a)) for r, n, a in found if r == "combo box"]
        check(combos == [("Den", ["Which speaker the volume keys control, and how audio "
                                  "reaches it"]),
                         ("Any output", ["Volume keys redirect only while this computer plays "
                                         "through this output"])],
              f"the two menus show their choices under their captions: {combos}")

        slider = named(found, "slider", "Volume")
        check(slider.get_current_value() == 35, "the slider reads the snapshot's volume")
        slider.set_current_value(60)
        check(panel.expect("volume 60"), "moving the slider requests the volume")
        check(press(named(found, "push button", "Night")), "Night can be pressed")
        check(panel.expect("night"), "pressing Night toggles night mode")
        check(press(named(found, "push button", "Choose an output")), "the fix can be pressed")
        check(panel.expect(f"fix {PANEL_FIX_CHOOSE_OUTPUT}"), "the fix link requests its fix")

        heard = []

        def on_name_change(event):
            # The announcement's object; the warning label changes its name too.
            if event.source.get_role_name() == "notification":
                heard.append(event.source.get_name())

        def drain():
            """Every event the program sent before answering a call of ours, handled: one
            connection carries both, in order."""
            slider.get_current_value()
            while GLib.MainContext.default().iteration(False):
                pass

        listener = Atspi.EventListener.new(on_name_change)
        listener.register("object:property-change:accessible-name")
        # The program learns of a new listener from the registry a moment later: warn until
        # it is heard, each time with a new text, since a repeated text is not spoken again.
        attempt = 0

        def listening():
            nonlocal attempt
            attempt += 1
            panel.send(f"warn Listening {attempt}")
            return wait_for(lambda: heard, timeout=0.3)

        check(wait_for(listening, timeout=15), "the announcements reach the listener")
        drain()
        heard.clear()
        panel.send("warn The speaker left its group")
        check(wait_for(lambda: heard, timeout=10), "a new warning is spoken")
        panel.send("warn The speaker left its group")
        drain()
        check(heard == ["The speaker left its group"], f"the warning is spoken once: {heard}")
    finally:
        if panel is not None:
            panel.stop()
        launcher.terminate()
        launcher.wait()


if __name__ == "__main__":
    main(sys.argv[1])
    if failures:
        sys.exit(1)
    print("all checks passed")
