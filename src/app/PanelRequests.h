#pragma once

#include "app/VolumeMirror.h"
#include "support/Settings.h"
#include "ui/panel/PanelFix.h"
#include "ui/panel/PanelTransport.h"

#include <QFuture>
#include <QObject>
#include <QString>

class LoginItem;
class MediaSource;
class OutputRoute;
class SpeakerController;

// Carries out what the user asks for in the panel: against the speaker, the settings record
// and the computer's own media source. The controller owns what is touched here and hears
// about it through the signals; each request asks for at most one poll, once its work is
// done, so that the panel shows the outcome. Main thread only.
class PanelRequests : public QObject {
    Q_OBJECT
public:
    // The controller's own state the requests change in place; it must outlive this object.
    struct State {
        Settings& settings;
        VolumeMirror& mirror;
        // Counts changes of the mirror, so that a speaker answer older than one is not shown.
        quint64& mirrorGeneration;
    };

    PanelRequests(State state, SpeakerController& speaker, MediaSource& media,
                  QObject* parent = nullptr);

    // Where choosing the AirPlay route sends the computer's sound; without one the choice is
    // only stored.
    void setOutputRoute(OutputRoute* route) { m_route = route; }
    // "Sending audio to …" while the computer's sound is on its way to a receiver, so that
    // the panel keeps saying so; empty otherwise.
    QString routeStatus() const { return m_routeStatus; }

    void panelDidRequestVolume(int volume);
    void panelDidToggleNight();
    void panelDidToggleSpeech();
    void panelDidToggleKeys();
    void panelDidChooseSpeaker(const QString& name, Settings::Route route);
    void panelDidChooseTrigger(const QString& name);
    void panelDidRequestTransport(PanelTransport transport);
    void panelDidRequestFix(PanelFix fix);
    // Open at login: an entry the user switched off in the desktop's autostart settings can
    // only be switched on again there, so those settings open instead.
    void panelDidToggleLoginItem(LoginItem& loginItem);

signals:
    // The settings record changed: save it, and decide the arming again.
    void settingsChanged();
    // Fresh state is wanted in the panel.
    void pollRequested();
    void warningRequested(const QString& text, PanelFix fix, bool critical);
    void settingsSectionRequested();
    // Tell the user how to give input access (where another platform would ask for it).
    void inputAccessExplanationRequested();
    // The "uninstall" fix: run the uninstaller.
    void uninstallRequested();

private:
    void toggleEq(const QString& what, bool speech);
    void routeToReceiver(const QString& name);
    // The AirPlay identity of the speaker named `name`, once the controller is connected to
    // it; nothing when it has none or is not reached in time.
    QFuture<std::optional<QString>> speakerIdentity(const QString& name);

    State m_state;
    SpeakerController& m_speaker;
    MediaSource& m_media;
    OutputRoute* m_route = nullptr;
    QString m_routeStatus;
    quint64 m_routes = 0; // counts routes started, so that only the last one clears the status
};
