#pragma once

// Whether windows of this application can be translucent: on X11 a compositing manager
// owns the _NET_WM_CM_S<screen> selection (what xcompmgr, picom, mutter and kwin do);
// Wayland is always composited. Asks the X server once per call, a local round trip.
bool isCompositorRunning();
