#include "ui/panel/PanelMenus.h"

#include "support/UiText.h"

#include <QComboBox>
#include <QSignalBlocker>

namespace panel_menus {

SpeakerMenu speakerMenu(const QList<SpeakerChoice>& offered, const Settings& saved)
{
    SpeakerMenu menu{offered, -1};
    for (int i = 0; i < offered.size(); ++i) {
        if (offered[i].name == saved.speaker && offered[i].route == saved.route)
            return {offered, i};
    }
    for (int i = 0; i < offered.size(); ++i) {
        if (offered[i].name == saved.speaker)
            return {offered, i};
    }
    if (!saved.speaker.isEmpty()) {
        menu.choices.append({saved.speaker, saved.speaker, saved.route});
        menu.selected = int(menu.choices.size()) - 1;
    }
    return menu;
}

OutputMenu outputMenu(const QStringList& outputs, const QString& savedTrigger)
{
    OutputMenu menu{QStringList{anyOutputTitle()} + outputs, 0};
    if (savedTrigger.isEmpty())
        return menu;
    const qsizetype found = outputs.indexOf(savedTrigger);
    if (found >= 0) {
        menu.selected = int(found) + 1;
        return menu;
    }
    menu.titles.append(notConnectedTitle(savedTrigger));
    menu.selected = int(menu.titles.size()) - 1;
    return menu;
}

QString triggerForTitle(const QString& title, const QString& savedTrigger)
{
    if (!savedTrigger.isEmpty() && title == notConnectedTitle(savedTrigger))
        return savedTrigger;
    if (title == anyOutputTitle())
        return QString();
    return title;
}

QString anyOutputTitle()
{
    return uiText("Any output");
}

QString notConnectedTitle(const QString& name)
{
    return uiText("%1 (not connected)").arg(name);
}

void fill(QComboBox& box, const QStringList& titles, int selected)
{
    const QSignalBlocker quiet(box);
    QStringList held;
    for (int i = 0; i < box.count(); ++i)
        held.append(box.itemText(i));
    if (held != titles) {
        box.clear();
        box.addItems(titles);
    }
    box.setCurrentIndex(selected);
}

} // namespace panel_menus
