#pragma once

#include <QObject>
#include <QString>

#include <array>

class GSettingsWatch;
class KdeAnimationSetting;

// The desktop's accessibility preferences that change how the overlay looks and speaks.
// Each is off when it cannot be read.
struct DisplayOptions {
    bool reduceMotion = false;
    bool reduceTransparency = false;
    bool increaseContrast = false;
    bool screenReader = false;

    bool operator==(const DisplayOptions&) const = default;
};

// Keeps DisplayOptions current without ever waiting on the desktop: the GNOME settings are
// read by `gsettings` child processes (at start, then through `gsettings monitor`), and the
// screen reader also counts as on when the AT-SPI bus says one is running. Until the first
// answers arrive, and for anything unreadable, the options stay off.
//
//   Reduce Motion        org.gnome.desktop.interface enable-animations = false, or
//                        KDE's AnimationDurationFactor = 0
//   Reduce Transparency,
//   Increase Contrast    org.gnome.desktop.a11y.interface high-contrast
//   screen reader        org.gnome.desktop.a11y.applications screen-reader-enabled,
//                        or org.a11y.Status.ScreenReaderEnabled on the session bus
class DisplayOptionsWatcher : public QObject {
    Q_OBJECT
public:
    explicit DisplayOptionsWatcher(QObject* parent = nullptr);
    const DisplayOptions& options() const { return m_options; }

signals:
    void changed(const DisplayOptions& options);

private slots:
    void onAtSpiPropertiesChanged(const QString& interface, const QVariantMap& changed,
                                  const QStringList& invalidated);

private:
    struct Key {
        QString schema;
        QString name;
        bool value = false;
    };
    std::array<Key*, 3> keys() { return {&m_animations, &m_highContrast, &m_screenReader}; }
    void onGSettings(const QString& schema, const QString& name, const QByteArray& text);
    void watchAtSpi();
    void readAtSpi();
    void setAtSpiScreenReader(bool on);
    void recompute();

    // Animations are on unless the desktop says otherwise.
    Key m_animations{QStringLiteral("org.gnome.desktop.interface"),
                     QStringLiteral("enable-animations"), true};
    Key m_highContrast{QStringLiteral("org.gnome.desktop.a11y.interface"),
                       QStringLiteral("high-contrast")};
    Key m_screenReader{QStringLiteral("org.gnome.desktop.a11y.applications"),
                       QStringLiteral("screen-reader-enabled")};
    GSettingsWatch* m_gsettings = nullptr;
    KdeAnimationSetting* m_kde = nullptr;
    bool m_atSpiScreenReader = false;
    DisplayOptions m_options;
};
