// Shows the panel with a fixed snapshot for panel_atspi_test.py, which reads and operates it
// over AT-SPI. Every request the panel makes is printed as one line on standard output; a
// line "warn TEXT" on standard input sets the warning; the end of the input quits.
#include "ui/panel/MenuBarPanel.h"

#include <QApplication>
#include <QSocketNotifier>

#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

void say(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

PanelSnapshot fixedSnapshot()
{
    PanelSnapshot s;
    s.connected = true;
    s.speakerName = QStringLiteral("Den");
    s.volume = 35;
    s.night = false;
    s.speech = true;
    s.title = QStringLiteral("So What");
    s.subtitle = QStringLiteral("Miles Davis");
    s.canControlTransport = true;
    s.warning = QStringLiteral("Volume keys only redirect while the TV output plays");
    s.fix = PanelFix::chooseOutput;
    s.speakerChoices = QList<SpeakerChoice>{{"Den", "Den", Settings::Route::Optical},
                                            {"Kitchen", "Kitchen", Settings::Route::Optical}};
    s.outputChoices = QStringList{QStringLiteral("Built-in Audio"), QStringLiteral("TV")};
    return s;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("velotide-panel-atspi"));
    Settings saved;
    saved.speaker = QStringLiteral("Den");
    MenuBarPanel panel(saved);
    QObject::connect(&panel, &MenuBarPanel::panelDidRequestVolume,
                     [](int volume) { say(QStringLiteral("volume %1").arg(volume)); });
    QObject::connect(&panel, &MenuBarPanel::panelDidToggleNight, [] { say("night"); });
    QObject::connect(&panel, &MenuBarPanel::panelDidRequestFix,
                     [](PanelFix fix) { say(QStringLiteral("fix %1").arg(int(fix))); });
    QObject::connect(&panel, &MenuBarPanel::panelDidChooseSpeaker,
                     [](const QString& name, Settings::Route) { say("speaker " + name); });
    QObject::connect(&panel, &MenuBarPanel::panelDidChooseTrigger,
                     [](const QString& name) { say("trigger " + name); });

    panel.apply(fixedSnapshot());
    panel.setSettingsVisible(true);
    panel.applyDisclosure(false);
    panel.present();

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        std::string line;
        if (!std::getline(std::cin, line)) {
            QApplication::quit();
            return;
        }
        const QString command = QString::fromStdString(line);
        if (command.startsWith(QLatin1String("warn ")))
            panel.setWarning(command.mid(5), PanelFix::none, false);
        say("done");
    });
    say(QStringLiteral("shown %1").arg(panel.isShown() ? "true" : "false"));
    return app.exec();
}
