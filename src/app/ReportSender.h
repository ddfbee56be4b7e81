#pragma once

#include <QMap>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

// Posts problem reports to the maker's server: JSON to <base address>/api/v1/report. The
// base address is chosen when the program is built; without one nothing is ever sent.
// Main thread; the request runs in the background and never blocks.
class ReportSender : public QObject {
    Q_OBJECT
public:
    // The answer: nothing when the server took the report, otherwise the text to show.
    using Done = std::function<void(std::optional<QString> error)>;

    // The address the build was given (VELOTIDE_REPORT_URL), empty when none.
    static QString builtInAddress();

    explicit ReportSender(QString baseAddress,
                          std::chrono::milliseconds timeout = std::chrono::seconds(30),
                          QObject* parent = nullptr);

    // `done` runs once, on the main thread, unless the sender is destroyed first.
    void send(const QString& email, const QString& description,
              const QMap<QString, QString>& diagnostics, const QString& logTail, Done done);

    // The request body, compact JSON.
    static QByteArray body(const QString& email, const QString& description,
                           const QMap<QString, QString>& diagnostics, const QString& logTail);

private:
    QString m_baseAddress;
    std::chrono::milliseconds m_timeout;
    QNetworkAccessManager m_network;
};
