#pragma once

class QCoreApplication;

// Ends the event loop on SIGTERM and SIGINT (a session ending, Ctrl-C in a terminal), so the
// application closes the way it does from its menu: the key capture is released and every
// connection is closed in order, instead of being cut.
void quitOnSignals(QCoreApplication& app);
