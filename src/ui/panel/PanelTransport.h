#pragma once

// The three transport commands the panel's buttons send.
enum class PanelTransport { playPause, next, previous };
