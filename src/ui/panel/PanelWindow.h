#pragma once

#include "ui/SymbolIcons.h"

#include <QVariantAnimation>
#include <QWidget>

class ArtView;
class ElidedLabel;
class QComboBox;
class QGraphicsOpacityEffect;
class QPushButton;
class SymbolButton;
class VolumeSlider;

// The panel's window and its controls, laid out at fixed places 340 wide. The upper part
// (cover art, the three now-playing lines, transport, the volume slider) never moves; below
// it the warning area, the settings section and the action row are laid out by
// setDisclosure, which can glide from one layout to the next. Knows nothing of snapshots.
class PanelWindow : public QWidget {
    Q_OBJECT
public:
    static constexpr int panelWidth = 340;
    static constexpr int warningTop = 198;
    static constexpr int warningBlock = 40;
    static constexpr int settingsHeight = 66;
    static constexpr int settingsGap = 8;
    static constexpr int actionHeight = 45;
    static constexpr int disclosureMs = 220;

    explicit PanelWindow(SymbolIcons& symbols);

    // Where the variable part goes; animated when asked, otherwise at once.
    void setDisclosure(bool hasWarning, bool settingsVisible, bool animated);
    bool isAnimating() const { return m_animation.state() == QVariantAnimation::Running; }
    // The content height for a layout.
    static int contentHeight(bool hasWarning, bool settingsVisible);

    // The window beside the tray icon: frameless, above other windows, gone when another
    // window takes the focus. It is a tool window rather than a popup so that screen readers
    // find it among the application's windows (Qt leaves popups out of that list).
    static constexpr Qt::WindowFlags trayFlags =
        Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint;
    bool isBesideTray() const { return windowType() == Qt::Tool; }

    ArtView* art;
    ElidedLabel* titleLabel;
    ElidedLabel* subtitleLabel;
    ElidedLabel* detailLabel;
    SymbolButton* prevButton;
    SymbolButton* playButton;
    SymbolButton* nextButton;
    VolumeSlider* slider;
    ElidedLabel* warningLabel;
    QPushButton* fixButton;
    QWidget* settings;
    QComboBox* speakerPopup;
    QComboBox* outputPopup;
    QWidget* actionRow;
    SymbolButton* muteButton;
    SymbolButton* nightButton;
    SymbolButton* speechButton;
    SymbolButton* keysButton;
    SymbolButton* setupButton;
    SymbolButton* quitButton;

signals:
    void shown();
    void hidden();

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    bool event(QEvent* event) override;

private:
    struct Layout {
        qreal actionTop = 0;
        qreal settingsTop = 0;
        qreal settingsAlpha = 0;
    };
    static Layout layoutFor(bool hasWarning, bool settingsVisible);
    void buildUpperPart();
    void buildSettings();
    void buildActionRow();
    void place(const Layout& layout);
    Layout current() const;

    SymbolIcons& m_symbols;
    QGraphicsOpacityEffect* m_settingsFade;
    QVariantAnimation m_animation;
    Layout m_from;
    Layout m_to;
};
