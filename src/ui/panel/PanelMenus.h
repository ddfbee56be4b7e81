#pragma once

#include "support/Settings.h"
#include "ui/panel/PanelSnapshot.h"

#include <QList>
#include <QString>
#include <QStringList>

class QComboBox;

// What the speaker and output menus hold and which entry is selected, worked out from the
// offered choices and the saved settings. A saved choice that is not offered now still shows
// as chosen, so the user sees what the keys are meant to control.
namespace panel_menus {

struct SpeakerMenu {
    QList<SpeakerChoice> choices; // the entries, the saved speaker appended when not offered
    int selected = -1;
};

struct OutputMenu {
    QStringList titles; // "Any output" first
    int selected = -1;
};

SpeakerMenu speakerMenu(const QList<SpeakerChoice>& offered, const Settings& saved);
OutputMenu outputMenu(const QStringList& outputs, const QString& savedTrigger);

// The output name an entry of the output menu stands for: empty for "Any output".
QString triggerForTitle(const QString& title, const QString& savedTrigger);
QString anyOutputTitle();
QString notConnectedTitle(const QString& name);

// Puts the titles into the box only when they differ from what it holds (so an open menu is
// not disturbed by a refresh), then selects `selected`; emits none of the box's signals.
void fill(QComboBox& box, const QStringList& titles, int selected);

} // namespace panel_menus
