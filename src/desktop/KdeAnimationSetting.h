#pragma once

#include <QObject>
#include <QString>

#include <optional>

class QFileSystemWatcher;

// KDE's "animation speed" slider at its far end (AnimationDurationFactor=0 in the [KDE]
// group of $XDG_CONFIG_HOME/kdeglobals) means no animations. The file is read on a worker
// thread at start and whenever it or its folder changes; absent or unreadable reads as
// animations on.
class KdeAnimationSetting : public QObject {
    Q_OBJECT
public:
    explicit KdeAnimationSetting(QObject* parent = nullptr);

    bool animationsOff() const { return m_off; }

    // The factor from a kdeglobals text, if it names one.
    static std::optional<double> parseFactor(const QByteArray& text);

signals:
    void changed(bool animationsOff);

private:
    void read();
    void store(bool off);

    QString m_path;
    QFileSystemWatcher* m_files = nullptr;
    bool m_off = false;
};
