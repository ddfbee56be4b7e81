#pragma once

class QApplication;

// The overlay demonstration: the overlay at 40, then every 0.6 s the next of 20, 40, 60,
// 80, 100, 0, 20, ... Runs until the process is ended from outside.
int runHudDemo(QApplication& app);
