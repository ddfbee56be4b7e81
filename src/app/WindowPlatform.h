#pragma once

// Picks Qt's X11 platform plugin where an X server is reachable, unless the person chose a
// platform themselves. The overlay places itself in a corner of the screen, which Wayland does
// not let a client do; under XWayland it can. Call before the QApplication is made.
void preferX11WindowPlatform();
