#include "ui/setup/OnboardingWindow.h"

#include "support/PlatformWords.h"
#include "support/UiText.h"
#include "ui/SymbolIcons.h"
#include "ui/panel/PanelLook.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

using namespace std::chrono_literals;
using panel_look::Shade;

namespace {

constexpr int kWidth = 480;
constexpr int kIconSize = 44;
// Long enough to read "Granted — thank you" before the step moves on by itself.
constexpr auto kAutoAdvanceDelay = 1200ms;
constexpr double kSweepSeconds = 3.0;

const char* const keyServiceCommand = "sudo systemctl enable --now velotide-keyd";

struct StepText {
    const char* symbol;
    const char* title;
};

const StepText stepTexts[OnboardingWindow::stepCount] = {
    {"speaker.wave.3.fill", QT_TRANSLATE_NOOP("Velotide", "Your volume keys, for Sonos")},
    {"keyboard.fill", QT_TRANSLATE_NOOP("Velotide", "Let Velotide see the volume keys")},
    {"hifispeaker.fill", QT_TRANSLATE_NOOP("Velotide", "Find your speakers")},
    {"hifispeaker.fill", QT_TRANSLATE_NOOP("Velotide", "Pick your speaker")},
    {"checkmark.circle", QT_TRANSLATE_NOOP("Velotide", "Try it")},
};

QString networkBody()
{
    return uiText(PlatformText::setupNetworkBody) + QStringLiteral("\n\n") +
           uiText("There are no analytics, and nothing about what you play leaves this "
                  "computer. New versions come through your package manager, never on their "
                  "own.");
}

QString speakerCountText(qsizetype count)
{
    if (count == 0)
        return uiText("No speakers found yet");
    if (count == 1)
        return uiText("Found 1 speaker");
    return uiText("Found %1 speakers").arg(count);
}

QLabel* wrappedLabel(QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    return label;
}

} // namespace

struct OnboardingWindow::Widgets {
    QLabel* progress = nullptr;
    QLabel* icon = nullptr;
    QLabel* title = nullptr;
    QLabel* body = nullptr;
    QLabel* keyServiceHow = nullptr;
    QLabel* command = nullptr;
    QComboBox* speakers = nullptr;
    QProgressBar* spinner = nullptr;
    QLabel* status = nullptr;
    QCheckBox* openAtLogin = nullptr;
    QPushButton* back = nullptr;
    QPushButton* secondary = nullptr;
    QPushButton* primary = nullptr;
    SymbolIcons icons;
};

OnboardingWindow::OnboardingWindow(Providers providers, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_providers(std::move(providers))
    , w(std::make_unique<Widgets>())
{
    build();
    goTo(Step::welcome);
}

OnboardingWindow::~OnboardingWindow() = default;

std::optional<QString> OnboardingWindow::shortModel(const std::optional<QString>& model)
{
    if (model && (model->startsWith(QStringLiteral("Sonos ")) ||
                  model->startsWith(QStringLiteral("sonos "))))
        return model->mid(6);
    return model;
}

QString OnboardingWindow::speakerItem(const QString& name, const std::optional<QString>& model)
{
    const std::optional<QString> shortName = shortModel(model);
    if (!shortName || shortName->isEmpty())
        return name;
    return uiText("%1 \u2014 %2").arg(name, *shortName);
}

void OnboardingWindow::build()
{
    setWindowTitle(uiText("Set up Velotide"));
    setFixedWidth(kWidth);

    w->progress = new QLabel(this);
    w->icon = new QLabel(this);
    w->icon->setFixedSize(kIconSize, kIconSize);
    w->title = wrappedLabel(this);
    w->title->setFont(panel_look::font(font(), 20, true));
    w->body = wrappedLabel(this);
    w->keyServiceHow = wrappedLabel(this);
    w->command = new QLabel(QString::fromLatin1(keyServiceCommand), this);
    w->command->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    w->command->setFont(QFont(QStringLiteral("monospace")));
    w->command->setFrameShape(QFrame::StyledPanel);
    w->command->setContentsMargins(8, 6, 8, 6);
    w->speakers = new QComboBox(this);
    w->speakers->setAccessibleName(uiText("Speaker"));
    w->spinner = new QProgressBar(this);
    w->spinner->setRange(0, 0);
    w->spinner->setTextVisible(false);
    w->spinner->setFixedSize(60, 8);
    w->status = new QLabel(this);
    w->openAtLogin = new QCheckBox(uiText("Open Velotide at login"), this);
    w->back = new QPushButton(uiText("Back"), this);
    w->secondary = new QPushButton(this);
    w->primary = new QPushButton(this);
    w->primary->setDefault(true);

    fadeSecondaryText();

    auto* statusRow = new QHBoxLayout;
    statusRow->addWidget(w->spinner);
    statusRow->addWidget(w->status, 1);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(w->back);
    buttons->addStretch(1);
    buttons->addWidget(w->secondary);
    buttons->addWidget(w->primary);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 20, 28, 20);
    layout->setSpacing(12);
    layout->addWidget(w->progress);
    layout->addWidget(w->icon);
    layout->addWidget(w->title);
    layout->addWidget(w->body);
    layout->addWidget(w->keyServiceHow);
    layout->addWidget(w->command);
    layout->addWidget(w->speakers);
    layout->addLayout(statusRow);
    layout->addWidget(w->openAtLogin);
    layout->addStretch(1);
    layout->addLayout(buttons);

    connect(w->back, &QPushButton::clicked, this,
            [this] { goTo(static_cast<Step>(static_cast<int>(m_step) - 1)); });
    connect(w->primary, &QPushButton::clicked, this, &OnboardingWindow::primaryClicked);
    connect(w->secondary, &QPushButton::clicked, this, &OnboardingWindow::secondaryClicked);
    connect(w->speakers, &QComboBox::activated, this, &OnboardingWindow::speakerPicked);
}

void OnboardingWindow::goTo(Step step)
{
    m_step = step;
    // The step moves on by itself only for someone who is waiting on it: arriving with
    // input access already there shows it granted and waits for "Continue".
    m_autoAdvanceArmed = step == Step::accessibility && !m_providers.inputAccess().granted();
    // The speaker step looks again each time it is reached (speakers that were asleep may
    // have woken); the discovery step only once.
    if (!m_searching && (step == Step::speaker || (step == Step::network && !m_hasSweptOnce)))
        sweep();
    if (step == Step::ready)
        w->openAtLogin->setChecked(m_providers.loginEnabled());
    fillStep();
    updateStatus();
}

void OnboardingWindow::bringToFront()
{
    show();
    raise();
    activateWindow();
}

void OnboardingWindow::fillStep()
{
    const int index = static_cast<int>(m_step);
    const StepText& text = stepTexts[index];
    w->progress->setText(uiText("Step %1 of %2").arg(index + 1).arg(stepCount));
    const qreal ratio = devicePixelRatioF();
    w->icon->setPixmap(SymbolIcons::render(w->icons.symbol(QString::fromLatin1(text.symbol)),
                                           QSize(kIconSize, kIconSize), ratio,
                                           panel_look::color(palette(), Shade::accent)));
    w->title->setText(uiText(text.title));
    switch (m_step) {
    case Step::welcome:
        w->body->setText(uiText(PlatformText::setupWelcomeBody));
        break;
    case Step::accessibility:
        w->body->setText(uiText(PlatformText::setupInputAccessBody));
        break;
    case Step::network:
        w->body->setText(networkBody());
        break;
    case Step::speaker:
        w->body->setText(uiText(PlatformText::setupSpeakerBody));
        break;
    case Step::ready:
        w->body->setText(readyBody());
        break;
    }
    w->back->setVisible(m_step != Step::welcome);
    w->speakers->setVisible(m_step == Step::speaker);
    w->openAtLogin->setVisible(m_step == Step::ready);
    w->primary->setText(m_step == Step::ready ? uiText("Done") : uiText("Continue"));
}

void OnboardingWindow::updateStatus()
{
    bool showStatus = false;
    bool showSecondary = false;
    bool showKeyService = false;
    w->spinner->setVisible(false);

    if (m_step == Step::accessibility) {
        const InputAccess access = m_providers.inputAccess();
        showStatus = true;
        if (access.granted()) {
            w->status->setText(uiText("Granted \u2014 thank you"));
            w->primary->setText(uiText("Continue"));
            if (m_autoAdvanceArmed) {
                m_autoAdvanceArmed = false;
                QTimer::singleShot(kAutoAdvanceDelay, this, [this] {
                    if (m_step == Step::accessibility)
                        goTo(Step::network);
                });
            }
        } else {
            // The desktops most people run keep the volume keys to themselves, so the grab
            // this program could make alone fails there: only the key service gets them.
            w->keyServiceHow->setText(
                access.desktopHoldsKeys
                    ? uiText("This desktop holds the volume keys itself, so Velotide cannot "
                             "take them on its own. The key service velotide-keyd can: enable "
                             "it with this command, and this step moves on by itself.")
                    : uiText("The key service velotide-keyd passes Velotide the three volume "
                             "keys. Enable it with this command, and this step moves on by "
                             "itself. Not installed yet? Install the velotide package, or run "
                             "\"sudo make install\" in Velotide's source folder."));
            showKeyService = true;
            w->status->setText(uiText("Waiting for input access\u2026"));
            w->primary->setText(uiText("Copy Command"));
            w->secondary->setText(uiText("Continue without it"));
            showSecondary = true;
        }
    } else if (m_step == Step::network || m_step == Step::speaker) {
        if (m_searching) {
            showStatus = true;
            w->spinner->setVisible(true);
            w->status->setText(uiText("Looking for speakers\u2026"));
        } else if (m_hasSweptOnce) {
            showStatus = true;
            w->status->setText(speakerCountText(m_zones.names.size()));
            if (m_zones.names.isEmpty()) {
                w->secondary->setText(uiText("Search Again"));
                showSecondary = true;
            }
        }
    } else if (m_step == Step::ready) {
        w->body->setText(readyBody());
    }
    w->status->setVisible(showStatus);
    w->secondary->setVisible(showSecondary);
    w->keyServiceHow->setVisible(showKeyService);
    w->command->setVisible(showKeyService);
    // Wrapped text is only as tall as its width allows: the window takes the height its
    // fixed width needs for the step shown.
    layout()->activate();
    setFixedHeight(layout()->totalHeightForWidth(kWidth));
}

QString OnboardingWindow::readyBody() const
{
    QString sentence;
    switch (m_providers.readyState()) {
    case ReadyState::ready:
        sentence = uiText("Press the volume up key. The overlay appears in the corner, showing "
                          "the speaker's own level.");
        break;
    case ReadyState::noPermission:
        sentence = uiText(PlatformText::setupReadyNeedsInputAccess);
        break;
    case ReadyState::noSpeaker:
        sentence = uiText(PlatformText::setupReadyNoSpeaker);
        break;
    case ReadyState::notArmed:
        sentence = uiText(PlatformText::setupReadyNotArmed);
        break;
    }
    // Stock GNOME shows no tray icons: the panel is then a window that a second launch opens.
    const QString rest =
        m_providers.trayAvailable()
            ? uiText(PlatformText::setupReadyEverythingElse)
            : uiText("Everything else lives in the panel: launch Velotide again any time to "
                     "open it, to change speaker, or to see what needs fixing. For a tray icon "
                     "on GNOME, install its AppIndicator extension "
                     "(gnome-shell-extension-appindicator).");
    return sentence + QStringLiteral("\n\n") + rest;
}

void OnboardingWindow::sweep()
{
    m_searching = true;
    const int generation = ++m_sweepGeneration;
    m_providers.zones().then(this, [this, generation](const Zones& zones) {
        if (generation == m_sweepGeneration)
            adopt(zones);
    });
    updateStatus();
}

void OnboardingWindow::adopt(const Zones& zones)
{
    m_searching = false;
    m_hasSweptOnce = true;
    m_zones = zones;
    // A pick made by hand stands while its speaker is still there; otherwise the likeliest
    // one is offered.
    if (!m_userPickedSpeaker || !zones.names.contains(m_chosen.value_or(QString()))) {
        m_userPickedSpeaker = false;
        if (zones.recommended && zones.names.contains(*zones.recommended))
            m_chosen = zones.recommended;
        else
            m_chosen = zones.names.isEmpty() ? std::nullopt : std::optional(zones.names.first());
    }
    w->speakers->clear();
    for (const QString& name : zones.names)
        w->speakers->addItem(speakerItem(name, zones.models.value(name)), name);
    w->speakers->setCurrentIndex(int(zones.names.indexOf(m_chosen.value_or(QString()))));
    updateStatus();
}

void OnboardingWindow::speakerPicked(int index)
{
    const QString name = w->speakers->itemData(index).toString();
    if (index < 0 || name == m_chosen)
        return;
    m_chosen = name;
    m_userPickedSpeaker = true;
    emit previewed(m_chosen);
}

void OnboardingWindow::primaryClicked()
{
    switch (m_step) {
    case Step::accessibility:
        if (!m_providers.inputAccess().granted()) {
            QGuiApplication::clipboard()->setText(QString::fromLatin1(keyServiceCommand));
            return;
        }
        goTo(Step::network);
        break;
    case Step::ready:
        finish();
        break;
    default:
        goTo(static_cast<Step>(static_cast<int>(m_step) + 1));
    }
}

void OnboardingWindow::secondaryClicked()
{
    if (m_step == Step::accessibility)
        goTo(Step::network);
    else
        sweep();
}

void OnboardingWindow::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    emit finished(m_chosen, w->openAtLogin->isChecked());
    close();
}

// Closing before the end keeps what is already in place (a pick the keys were trying stays,
// like a pick from the panel) and answers nothing about opening at login.
// The step counter and the status line are quieter than the body. Their colour is set, not
// inherited, so it is made again from each new palette: kept from a light one, it would be
// dark grey on a dark window.
void OnboardingWindow::fadeSecondaryText()
{
    QPalette faded = palette();
    faded.setColor(QPalette::WindowText, panel_look::color(palette(), Shade::secondary));
    w->progress->setPalette(faded);
    w->status->setPalette(faded);
}

void OnboardingWindow::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        fadeSecondaryText();
}

void OnboardingWindow::closeEvent(QCloseEvent* event)
{
    if (!m_finished)
        emit abandoned();
    m_finished = true;
    event->accept();
}

void OnboardingWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}
