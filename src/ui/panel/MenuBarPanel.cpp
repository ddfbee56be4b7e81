#include "ui/panel/MenuBarPanel.h"

#include "support/UiText.h"
#include "ui/Announcer.h"
#include "ui/SymbolIcons.h"
#include "ui/panel/ArtView.h"
#include "ui/panel/ElidedLabel.h"
#include "ui/panel/PanelMenus.h"
#include "ui/panel/PanelPlacement.h"
#include "ui/panel/PanelWindow.h"
#include "ui/panel/SecondaryMenu.h"
#include "ui/panel/SymbolButton.h"
#include "ui/panel/TrayIcon.h"
#include "ui/panel/VolumeSlider.h"

#include <QComboBox>
#include <QCursor>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QThreadPool>
#include <QTimer>

using panel_look::Shade;

namespace {

// A click on the tray icon closes the open panel before the icon hears of it; without this
// pause the same click would open it again at once.
constexpr qint64 reopenGuardMs = 250;
constexpr int refreshMs = 1000;
const QString disconnectedArtwork = QStringLiteral("disconnected");

Shade accentWhen(bool on)
{
    return on ? Shade::accent : Shade::secondary;
}

} // namespace

struct MenuBarPanel::Private {
    Private(MenuBarPanel* owner, const Settings& settings)
        : q(owner)
        , saved(settings)
        , window(std::make_unique<PanelWindow>(symbols))
        , tray(new TrayIcon(owner))
        , announcer(new Announcer(owner))
    {
    }

    void connectControls();
    void fillSpeakerPopup(const QList<SpeakerChoice>& choices);
    void fillOutputPopup(const QStringList& outputs);
    void speakerChanged(int index);
    void outputChanged(int index);
    void applyArtwork(const PanelSnapshot& snapshot);
    void decodeArtwork(const QByteArray& bytes, const char* placeholder);
    void showArtSymbol(const char* name);
    void showFix(PanelFix fix);
    void setSliderValue(int value);
    void toggle();
    void placeWindow();
    void onShown();
    void onHidden();

    MenuBarPanel* q;
    const Settings& saved;
    SymbolIcons symbols;
    std::unique_ptr<PanelWindow> window;
    TrayIcon* tray;
    Announcer* announcer;
    QTimer refreshTimer;
    QElapsedTimer sinceClose;
    QList<SpeakerChoice> speakerChoices;
    QStringList outputChoices;
    QString shownArtworkIdentity;
    int artworkRequest = 0;
    QString announcedWarning;
    PanelFix currentFix = PanelFix::none;
    MenuFacts facts;
    bool hasWarning = false;
    bool settingsVisible = false;
    bool reduceMotion = false;
    bool applyingValue = false;
};

MenuBarPanel::MenuBarPanel(const Settings& saved, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(this, saved))
{
    d->refreshTimer.setInterval(refreshMs);
    connect(&d->refreshTimer, &QTimer::timeout, this, &MenuBarPanel::tick);
    d->connectControls();
    // A fresh panel shows the default snapshot: nothing playing, keys on, menus untouched.
    apply(PanelSnapshot{});
}

MenuBarPanel::~MenuBarPanel() = default;

void MenuBarPanel::Private::connectControls()
{
    PanelWindow* w = window.get();
    connect(tray, &TrayIcon::clicked, q, [this] { toggle(); });
    connect(tray, &TrayIcon::menuAboutToShow, q, [this] {
        q->close();
        fillSecondaryMenu(tray->menu(), facts, *q);
    });
    fillSecondaryMenu(tray->menu(), facts, *q);
    connect(w, &PanelWindow::shown, q, [this] { onShown(); });
    connect(w, &PanelWindow::hidden, q, [this] { onHidden(); });

    connect(w->slider, &QSlider::valueChanged, q, [this](int value) {
        if (!applyingValue)
            emit q->panelDidRequestVolume(value);
    });
    connect(w->prevButton, &QPushButton::clicked, q,
            [this] { emit q->panelDidRequestTransport(PanelTransport::previous); });
    connect(w->playButton, &QPushButton::clicked, q,
            [this] { emit q->panelDidRequestTransport(PanelTransport::playPause); });
    connect(w->nextButton, &QPushButton::clicked, q,
            [this] { emit q->panelDidRequestTransport(PanelTransport::next); });
    connect(w->muteButton, &QPushButton::clicked, q, &MenuBarPanel::panelDidRequestMute);
    connect(w->nightButton, &QPushButton::clicked, q, &MenuBarPanel::panelDidToggleNight);
    connect(w->speechButton, &QPushButton::clicked, q, &MenuBarPanel::panelDidToggleSpeech);
    connect(w->keysButton, &QPushButton::clicked, q, &MenuBarPanel::panelDidToggleKeys);
    connect(w->quitButton, &QPushButton::clicked, q, &MenuBarPanel::panelDidRequestQuit);
    connect(w->setupButton, &QPushButton::clicked, q, [this] {
        settingsVisible = !settingsVisible;
        q->applyDisclosure(true);
    });
    connect(w->fixButton, &QPushButton::clicked, q,
            [this] { emit q->panelDidRequestFix(currentFix); });
    connect(w->speakerPopup, &QComboBox::activated, q, [this](int i) { speakerChanged(i); });
    connect(w->outputPopup, &QComboBox::activated, q, [this](int i) { outputChanged(i); });
}

void MenuBarPanel::apply(const PanelSnapshot& snapshot)
{
    PanelWindow* w = d->window.get();
    w->keysButton->setShade(accentWhen(snapshot.armed));
    w->keysButton->setLabel(snapshot.armed ? uiText("Keys on") : uiText("Keys off"));
    w->keysButton->setToolTip(snapshot.armed ? uiText("Volume keys are controlling this speaker")
                                             : snapshot.armedMessage);
    d->tray->setArmedLook(snapshot.armed);

    if (snapshot.speakerChoices)
        d->fillSpeakerPopup(*snapshot.speakerChoices);
    if (snapshot.outputChoices)
        d->fillOutputPopup(*snapshot.outputChoices);

    const bool transport = snapshot.connected && snapshot.canControlTransport;
    for (SymbolButton* b : {w->prevButton, w->playButton, w->nextButton})
        b->setEnabled(transport);
    if (snapshot.connected) {
        // The knob stays under the user's finger while they drag it.
        if (!w->slider->isSliderDown())
            d->setSliderValue(snapshot.volume);
        w->titleLabel->setFullText(snapshot.title);
        w->subtitleLabel->setFullText(snapshot.subtitle);
        w->detailLabel->setFullText(snapshot.detail);
        w->playButton->setSymbol(snapshot.isPlaying ? QStringLiteral("pause.fill")
                                                    : QStringLiteral("play.fill"));
        d->applyArtwork(snapshot);
        w->muteButton->setShade(accentWhen(snapshot.muted));
        w->nightButton->setEnabled(snapshot.night.has_value());
        w->nightButton->setShade(accentWhen(snapshot.night.value_or(false)));
        w->speechButton->setEnabled(snapshot.speech.has_value());
        w->speechButton->setShade(accentWhen(snapshot.speech.value_or(false)));
        setWarning(snapshot.warning, snapshot.fix, !snapshot.armed);
    } else {
        QString warning = snapshot.warning;
        if (warning.isEmpty())
            warning = snapshot.error;
        if (warning.isEmpty())
            warning = uiText("Not connected");
        setWarning(warning, snapshot.fix, false);
        w->titleLabel->setFullText(snapshot.speakerName.isEmpty() ? uiText("speaker")
                                                                  : snapshot.speakerName);
        w->subtitleLabel->setFullText(snapshot.error.isEmpty() ? uiText("Connecting\u2026")
                                                               : snapshot.error);
        w->detailLabel->setFullText(QString());
        if (d->shownArtworkIdentity != disconnectedArtwork) {
            ++d->artworkRequest;
            d->showArtSymbol("hifispeaker.fill");
            d->shownArtworkIdentity = disconnectedArtwork;
        }
    }
    w->slider->setEnabled(true);
    w->keysButton->setEnabled(true);
}

void MenuBarPanel::Private::setSliderValue(int value)
{
    applyingValue = true;
    window->slider->setValue(value);
    applyingValue = false;
}

void MenuBarPanel::Private::applyArtwork(const PanelSnapshot& snapshot)
{
    if (snapshot.artworkIdentity == shownArtworkIdentity)
        return;
    shownArtworkIdentity = snapshot.artworkIdentity;
    ++artworkRequest;
    const char* placeholder = snapshot.isLineInput ? "tv.fill" : "music.note";
    if (snapshot.artwork) {
        decodeArtwork(*snapshot.artwork, placeholder);
        return;
    }
    if (snapshot.artworkBundleID) {
        // Icon themes name an application's icon after its desktop entry.
        QString entry = *snapshot.artworkBundleID;
        entry.remove(QRegularExpression(QStringLiteral("\\.desktop$")));
        if (QIcon::hasThemeIcon(entry)) {
            window->art->showIcon(QIcon::fromTheme(entry));
            return;
        }
    }
    showArtSymbol(placeholder);
}

void MenuBarPanel::Private::decodeArtwork(const QByteArray& bytes, const char* placeholder)
{
    // Cover art can be a large JPEG whose decoding takes milliseconds: it is decoded on a
    // worker, and the art on screen stays until the new one is ready.
    const QPointer<MenuBarPanel> panel(q);
    const int request = artworkRequest;
    QThreadPool::globalInstance()->start([bytes, placeholder, panel, request] {
        const QImage image = QImage::fromData(bytes);
        QCoreApplication* app = QCoreApplication::instance();
        if (!app)
            return; // the application is ending
        QMetaObject::invokeMethod(
            app,
            [image, placeholder, panel, request] {
                // Only the newest request is shown, and only while the panel lives.
                if (!panel || panel->d->artworkRequest != request)
                    return;
                if (image.isNull())
                    panel->d->showArtSymbol(placeholder);
                else
                    panel->d->window->art->showImage(image);
            },
            Qt::QueuedConnection);
    });
}

void MenuBarPanel::Private::showArtSymbol(const char* name)
{
    window->art->showSymbol(symbols.symbol(QLatin1String(name)));
}

void MenuBarPanel::setWarning(const QString& text, PanelFix fix, bool critical)
{
    PanelWindow* w = d->window.get();
    w->warningLabel->setFullText(text);
    if (text != d->announcedWarning) {
        d->announcedWarning = text;
        if (!text.isEmpty() && isShown())
            d->announcer->post(text);
    }
    w->warningLabel->setShade(critical ? Shade::critical : Shade::warning);
    const bool hasWarning = !text.isEmpty();
    d->showFix(hasWarning ? fix : PanelFix::none);
    if (hasWarning != d->hasWarning) {
        d->hasWarning = hasWarning;
        w->warningLabel->setVisible(hasWarning);
        applyDisclosure(isShown());
    }
}

void MenuBarPanel::Private::showFix(PanelFix fix)
{
    currentFix = fix;
    const std::optional<QString> title = callToAction(fix);
    QPushButton* button = window->fixButton;
    button->setVisible(title.has_value());
    if (!title)
        return;
    button->setText(*title);
    button->setAccessibleName(*title);
}

void MenuBarPanel::Private::fillSpeakerPopup(const QList<SpeakerChoice>& choices)
{
    const panel_menus::SpeakerMenu menu = panel_menus::speakerMenu(choices, saved);
    QStringList titles;
    for (const SpeakerChoice& choice : menu.choices)
        titles.append(choice.title);
    panel_menus::fill(*window->speakerPopup, titles, menu.selected);
    speakerChoices = menu.choices;
}

void MenuBarPanel::Private::fillOutputPopup(const QStringList& outputs)
{
    const panel_menus::OutputMenu menu = panel_menus::outputMenu(outputs, saved.triggerOutput);
    panel_menus::fill(*window->outputPopup, menu.titles, menu.selected);
    outputChoices = menu.titles;
}

void MenuBarPanel::Private::speakerChanged(int index)
{
    if (index < 0)
        return;
    const QString title = window->speakerPopup->itemText(index);
    for (const SpeakerChoice& choice : speakerChoices) {
        if (choice.title == title) {
            emit q->panelDidChooseSpeaker(choice.name, choice.route);
            return;
        }
    }
}

void MenuBarPanel::Private::outputChanged(int index)
{
    if (index < 0)
        return;
    emit q->panelDidChooseTrigger(
        panel_menus::triggerForTitle(window->outputPopup->itemText(index), saved.triggerOutput));
}

void MenuBarPanel::setMenuFacts(const MenuFacts& facts)
{
    d->facts = facts;
}

void MenuBarPanel::setArmedLook(bool armed)
{
    d->tray->setArmedLook(armed);
}

void MenuBarPanel::setToolTip(const QString& text)
{
    d->tray->setToolTip(text);
}

void MenuBarPanel::setDisplayOptions(const DisplayOptions& options)
{
    d->reduceMotion = options.reduceMotion;
}

void MenuBarPanel::Private::toggle()
{
    if (q->isShown()) {
        q->close();
        return;
    }
    if (sinceClose.isValid() && sinceClose.elapsed() < reopenGuardMs)
        return;
    q->present();
}

void MenuBarPanel::present()
{
    PanelWindow* w = d->window.get();
    if (w->isVisible())
        return;
    // With a tray the panel sits beside its icon; without one it is an ordinary window the
    // user closes, since nothing else could open it again.
    const Qt::WindowFlags wanted =
        TrayIcon::isTrayAvailable() ? PanelWindow::trayFlags : Qt::WindowFlags(Qt::Window);
    if (w->windowFlags() != wanted)
        w->setWindowFlags(wanted);
    d->placeWindow();
    w->show();
    w->raise();
    w->activateWindow();
    w->slider->setFocus(Qt::PopupFocusReason);
}

void MenuBarPanel::Private::placeWindow()
{
    const QPoint cursor = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(cursor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    if (window->isBesideTray()) {
        window->move(panelPosition(window->size(), tray->geometry(), cursor, area));
        return;
    }
    window->move(area.center() - QPoint(window->width() / 2, window->height() / 2));
}

void MenuBarPanel::Private::onShown()
{
    emit q->shownChanged(true);
    emit q->choicesNeeded();
    emit q->tick();
    refreshTimer.start();
}

void MenuBarPanel::Private::onHidden()
{
    refreshTimer.stop();
    sinceClose.start();
    emit q->shownChanged(false);
}

void MenuBarPanel::close()
{
    d->window->close();
}

bool MenuBarPanel::isShown() const
{
    return d->window->isVisible();
}

void MenuBarPanel::closeIfOutside(QPoint globalPoint)
{
    // Without a tray the panel is an ordinary window, which stays until the user closes it.
    if (!isShown() || !d->window->isBesideTray())
        return;
    const QRect frame = d->window->frameGeometry();
    // The edges count as inside.
    const bool inside = globalPoint.x() >= frame.x() && globalPoint.y() >= frame.y() &&
                        globalPoint.x() <= frame.x() + frame.width() &&
                        globalPoint.y() <= frame.y() + frame.height();
    if (!inside)
        close();
}

bool MenuBarPanel::settingsVisible() const
{
    return d->settingsVisible;
}

void MenuBarPanel::setSettingsVisible(bool visible)
{
    d->settingsVisible = visible;
}

void MenuBarPanel::applyDisclosure(bool animated)
{
    d->window->setDisclosure(d->hasWarning, d->settingsVisible,
                             animated && !d->reduceMotion && isShown());
}

QWidget* MenuBarPanel::window() const
{
    return d->window.get();
}
