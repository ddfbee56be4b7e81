#pragma once

#include <QString>

// After "Copy Diagnostics": the alert that says the text is on the clipboard and what it holds,
// and, when asked for, a second one with `shown` (the start of the copied text). Both are
// application-modal and return at once; no event loop of their own runs.
void showDiagnosticsCopied(const QString& shown);
