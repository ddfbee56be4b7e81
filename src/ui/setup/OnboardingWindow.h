#pragma once

#include <QFuture>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

// The setup window: five steps from what Velotide is for to a first press of a key. It reads
// the state of the system only through the providers the controller gives it, and hands the
// pick and the open-at-login answer back through signals. Main thread only.
class OnboardingWindow : public QWidget {
    Q_OBJECT
public:
    enum class Step { welcome, accessibility, network, speaker, ready };
    static constexpr int stepCount = 5;

    enum class ReadyState { ready, noPermission, noSpeaker, notArmed };

    // How key capture stands now.
    struct InputAccess {
        bool trusted = false;
        bool tapEnabled = false;
        // The X11 grab was refused because the desktop holds the volume keys itself.
        bool desktopHoldsKeys = false;
        // Capture really works only with both.
        bool granted() const { return trusted && tapEnabled; }
    };

    // One discovery sweep: names in the order found, each one's model, and the name most
    // likely wired to this computer.
    struct Zones {
        QStringList names;
        QHash<QString, QString> models;
        std::optional<QString> recommended;
    };

    struct Providers {
        std::function<InputAccess()> inputAccess;
        std::function<QFuture<Zones>()> zones;
        std::function<ReadyState()> readyState;
        std::function<bool()> loginEnabled;
        std::function<bool()> trayAvailable;
    };

    explicit OnboardingWindow(Providers providers, QWidget* parent = nullptr);
    ~OnboardingWindow() override;

    // The model name without a leading "Sonos "; absent stays absent.
    static std::optional<QString> shortModel(const std::optional<QString>& model);
    static QString speakerItem(const QString& name, const std::optional<QString>& model);

    Step step() const { return m_step; }
    // Shows `step` and everything it needs (a sweep on the discovery steps).
    void goTo(Step step);
    void bringToFront();
    // Refreshes the status line, the buttons and the speaker list for the step shown; the
    // controller calls it whenever input access may have changed.
    void updateStatus();
    QString readyBody() const;
    // The end of setup, as the last step's button does it. Runs once.
    void finish();

    std::optional<QString> chosenSpeaker() const { return m_chosen; }
    bool isSearching() const { return m_searching; }

signals:
    // The setup came to its end: the pick (absent when none) and the open-at-login wish.
    void finished(const std::optional<QString>& speaker, bool openAtLogin);
    // The pick changed, so that the keys may try it before the end.
    void previewed(const std::optional<QString>& speaker);
    // Closed before the end.
    void abandoned();

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    struct Widgets;
    void build();
    void sweep();
    void adopt(const Zones& zones);
    void speakerPicked(int index);
    void primaryClicked();
    void secondaryClicked();
    void fillStep();
    void fadeSecondaryText();

    Providers m_providers;
    std::unique_ptr<Widgets> w;
    Step m_step = Step::welcome;
    bool m_searching = false;
    bool m_hasSweptOnce = false;
    Zones m_zones;
    std::optional<QString> m_chosen;
    bool m_userPickedSpeaker = false;
    bool m_autoAdvanceArmed = false;
    bool m_finished = false;
    // Counts sweeps, so that an answer for an earlier one is dropped.
    int m_sweepGeneration = 0;
};
