#pragma once

#include <QDBusConnection>
#include <QObject>

// Keeps one running copy of the application per login session. The running copy owns the
// name com.brindlewerk.velotide on the session bus and answers its Show method; a second
// launch finds the name taken, logs the other copy's pid, asks it to show itself and goes.
// Without a session bus there is nothing to check and every launch may run.
class SingleInstance : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.brindlewerk.velotide")
public:
    static inline const QString serviceName = QStringLiteral("com.brindlewerk.velotide");
    static inline const QString objectPath = QStringLiteral("/com/brindlewerk/velotide");

    // The session bus by default; another bus for tests.
    explicit SingleInstance(QObject* parent = nullptr);
    explicit SingleInstance(const QDBusConnection& bus, QObject* parent = nullptr);

    // True when this process may go on as the application (it now owns the name); false
    // when another copy runs and has been asked to show itself.
    bool claim();

signals:
    // Another launch asked this copy to show itself. A request that came while nobody was
    // connected is emitted, queued, to the first receiver that connects.
    void showRequested();

public slots:
    Q_SCRIPTABLE void Show();

protected:
    void connectNotify(const QMetaMethod& signal) override;

private:
    QDBusConnection m_bus;
    bool m_pending = false;
};
