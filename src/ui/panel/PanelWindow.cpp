#include "ui/panel/PanelWindow.h"

#include "support/PlatformWords.h"
#include "support/UiText.h"
#include "ui/panel/ArtView.h"
#include "ui/panel/ElidedLabel.h"
#include "ui/panel/PanelLook.h"
#include "ui/panel/SymbolButton.h"
#include "ui/panel/VolumeSlider.h"

#include <QComboBox>
#include <QEasingCurve>
#include <QEvent>
#include <QGraphicsOpacityEffect>
#include <QKeyEvent>
#include <QPainter>
#include <QPushButton>

using panel_look::Shade;

namespace {

constexpr int margin = 20;
constexpr int innerWidth = PanelWindow::panelWidth - 2 * margin;
constexpr QRect speakerSymbolPlace(38, 155, 20, 20);

// The usual ease-in-ease-out timing curve of desktop animations.
QEasingCurve easeInEaseOut()
{
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(QPointF(0.42, 0), QPointF(0.58, 1), QPointF(1, 1));
    return curve;
}

qreal mix(qreal from, qreal to, qreal progress)
{
    return from + (to - from) * progress;
}

} // namespace

PanelWindow::PanelWindow(SymbolIcons& symbols)
    : QWidget(nullptr)
    , m_symbols(symbols)
{
    setWindowTitle(QStringLiteral("Velotide"));
    setAccessibleName(QStringLiteral("Velotide"));
    setAutoFillBackground(true);
    buildUpperPart();
    buildSettings();
    buildActionRow();

    m_animation.setDuration(disclosureMs);
    m_animation.setEasingCurve(easeInEaseOut());
    m_animation.setStartValue(0.0);
    m_animation.setEndValue(1.0);
    connect(&m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        const qreal p = value.toReal();
        place({mix(m_from.actionTop, m_to.actionTop, p),
               mix(m_from.settingsTop, m_to.settingsTop, p),
               mix(m_from.settingsAlpha, m_to.settingsAlpha, p)});
    });
    // The last frame lands exactly, however the timer fell.
    connect(&m_animation, &QVariantAnimation::finished, this, [this] { place(m_to); });
    m_to = layoutFor(false, false);
    place(m_to);
}

void PanelWindow::buildUpperPart()
{
    art = new ArtView(this);
    art->setGeometry(margin, 14, 84, 84);

    titleLabel = new ElidedLabel(Shade::primary, this);
    titleLabel->setFont(panel_look::font(font(), 13, true));
    titleLabel->setGeometry(118, 20, 202, 18);
    subtitleLabel = new ElidedLabel(Shade::secondary, this);
    subtitleLabel->setFont(panel_look::font(font(), 13));
    subtitleLabel->setGeometry(118, 42, 202, 18);
    detailLabel = new ElidedLabel(Shade::tertiary, this);
    detailLabel->setFont(panel_look::font(font(), 11));
    detailLabel->setGeometry(118, 64, 202, 15);

    // Transport across the middle of the panel, play in the centre.
    prevButton = new SymbolButton(m_symbols, 16, this);
    prevButton->setSymbol(QStringLiteral("backward.fill"));
    prevButton->setGeometry(114, 108, 36, 32);
    playButton = new SymbolButton(m_symbols, 22, this);
    playButton->setSymbol(QStringLiteral("play.fill"));
    playButton->setGeometry(152, 108, 36, 32);
    nextButton = new SymbolButton(m_symbols, 16, this);
    nextButton->setSymbol(QStringLiteral("forward.fill"));
    nextButton->setGeometry(190, 108, 36, 32);
    const std::pair<SymbolButton*, const char*> tips[] = {
        {prevButton, "Previous track"}, {playButton, "Play / pause"}, {nextButton, "Next track"}};
    for (const auto& [button, tip] : tips) {
        button->setToolTip(uiText(tip));
        button->setAccessibleName(uiText(tip));
    }

    slider = new VolumeSlider(this);
    slider->setGeometry(68, 153, 252, 24);
    slider->setAccessibleName(uiText("Volume"));
}

void PanelWindow::buildSettings()
{
    warningLabel = new ElidedLabel(Shade::warning, this);
    warningLabel->setFont(panel_look::font(font(), 12));
    warningLabel->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
    warningLabel->setGeometry(margin, warningTop, innerWidth, 18);
    warningLabel->hide();

    fixButton = new QPushButton(this);
    fixButton->setFlat(true);
    fixButton->setCursor(Qt::PointingHandCursor);
    fixButton->setFocusPolicy(Qt::TabFocus);
    QFont link = panel_look::font(font(), 10);
    link.setUnderline(true);
    fixButton->setFont(link);
    // A link, not a button: no frame, the palette's link colour.
    fixButton->setStyleSheet(
        QStringLiteral("QPushButton { border: none; padding: 0; color: palette(link); }"));
    fixButton->setGeometry(margin, 217, innerWidth, 14);
    fixButton->hide();

    settings = new QWidget(this);
    settings->setGeometry(0, warningTop, panelWidth, settingsHeight);
    const auto row = [this](int top, const QString& caption) {
        auto* box = new QComboBox(settings);
        box->setFont(panel_look::font(font(), 12));
        box->setGeometry(margin, top, innerWidth, 22);
        auto* label = new ElidedLabel(Shade::secondary, settings);
        label->setFont(panel_look::font(font(), 9));
        label->setGeometry(margin + 2, top + 22, innerWidth - 2, 11);
        label->setFullText(caption);
        label->setToolTip(caption);
        // Screen readers on this desktop read a menu's chosen entry as its name and the
        // caption through the label's relation.
        label->setBuddy(box);
        return box;
    };
    speakerPopup =
        row(0, uiText("Which speaker the volume keys control, and how audio reaches it"));
    outputPopup = row(33, uiText(PlatformText::triggerOutputCaption));
    m_settingsFade = new QGraphicsOpacityEffect(settings);
    settings->setGraphicsEffect(m_settingsFade);
}

void PanelWindow::buildActionRow()
{
    actionRow = new QWidget(this);
    actionRow->setGeometry(0, warningTop, panelWidth, actionHeight);
    const auto button = [this](int index, const char* symbol) {
        auto* b = new SymbolButton(m_symbols, 22, actionRow);
        // Six equal parts of the width, rounded so that they meet without gaps.
        const int left = index * panelWidth / 6;
        const int right = (index + 1) * panelWidth / 6;
        b->setGeometry(left, 0, right - left, actionHeight);
        b->setSymbol(QLatin1String(symbol));
        b->setShade(Shade::secondary);
        return b;
    };
    muteButton = button(0, "speaker.slash.fill");
    muteButton->setLabel(uiText("Mute"));
    nightButton = button(1, "moon.fill");
    nightButton->setLabel(uiText("Night"));
    speechButton = button(2, "captions.bubble.fill");
    speechButton->setLabel(uiText("Speech"));
    keysButton = button(3, "keyboard.fill");
    keysButton->setLabel(uiText("Keys on"));
    setupButton = button(4, "slider.horizontal.3");
    setupButton->setLabel(uiText("Setup"));
    quitButton = button(5, "power");
    quitButton->setLabel(uiText("Quit"));
}

PanelWindow::Layout PanelWindow::layoutFor(bool hasWarning, bool settingsVisible)
{
    const qreal below = warningTop + (hasWarning ? warningBlock : 0);
    return {below + (settingsVisible ? settingsHeight + settingsGap : 0), below,
            settingsVisible ? 1.0 : 0.0};
}

int PanelWindow::contentHeight(bool hasWarning, bool settingsVisible)
{
    return int(layoutFor(hasWarning, settingsVisible).actionTop) + actionHeight;
}

PanelWindow::Layout PanelWindow::current() const
{
    return {qreal(actionRow->y()), qreal(settings->y()), m_settingsFade->opacity()};
}

void PanelWindow::setDisclosure(bool hasWarning, bool settingsVisible, bool animated)
{
    const Layout target = layoutFor(hasWarning, settingsVisible);
    m_animation.stop();
    m_to = target;
    if (!animated) {
        place(target);
        return;
    }
    m_from = current();
    m_animation.start();
}

void PanelWindow::place(const Layout& layout)
{
    actionRow->move(0, qRound(layout.actionTop));
    settings->move(0, qRound(layout.settingsTop));
    m_settingsFade->setOpacity(layout.settingsAlpha);
    // Fully shown, it is drawn without the effect so the menus stay crisp; fully hidden, it
    // leaves the focus chain and the screen reader's tree.
    m_settingsFade->setEnabled(layout.settingsAlpha < 1.0);
    settings->setVisible(layout.settingsAlpha > 0.0);
    const int height = qRound(layout.actionTop) + actionHeight;
    setFixedSize(panelWidth, height);
}

void PanelWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    // A hairline edge, so the panel stands apart from a window of the same colour behind it.
    if (isBesideTray()) {
        QColor edge = palette().color(QPalette::WindowText);
        edge.setAlphaF(0.22f);
        painter.setPen(edge);
        painter.drawRect(rect().adjusted(0, 0, -1, -1));
    }
    const SymbolIcons::Icon speaker = m_symbols.symbol(QStringLiteral("speaker.wave.3.fill"));
    if (!speaker.isNull())
        painter.drawPixmap(speakerSymbolPlace.topLeft(),
                           SymbolIcons::render(speaker, speakerSymbolPlace.size(),
                                               devicePixelRatioF(),
                                               panel_look::color(palette(), Shade::secondary)));
}

void PanelWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PanelWindow::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    emit shown();
}

bool PanelWindow::event(QEvent* event)
{
    if (event->type() == QEvent::WindowDeactivate && isBesideTray() && isVisible())
        close();
    return QWidget::event(event);
}

void PanelWindow::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    emit hidden();
}
