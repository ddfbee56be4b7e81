#include "app/ReportSender.h"

#include "support/Log.h"
#include "support/UiText.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace {

// A lone surrogate (a name cut in the middle of a character somewhere upstream) has no UTF-8
// form; the round trip replaces it so the body is always valid JSON in valid UTF-8.
QString encodable(const QString& text)
{
    return QString::fromUtf8(text.toUtf8());
}

std::optional<QString> outcome(QNetworkReply& reply)
{
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() == 200)
        return std::nullopt;
    if (status.isValid() && status.toInt() == 422)
        return uiText("That report could not be sent — check the address and try again.");
    if (status.isValid() && status.toInt() == 429)
        return uiText("That is a lot of reports — give us a moment to read the last one.");
    Log::info(QStringLiteral("problem report failed: ") +
              (status.isValid() ? QString::number(status.toInt()) : reply.errorString()));
    return uiText("We could not reach our server — check your connection and try again later.");
}

} // namespace

QString ReportSender::builtInAddress()
{
    return QStringLiteral(VELOTIDE_REPORT_URL);
}

ReportSender::ReportSender(QString baseAddress, std::chrono::milliseconds timeout, QObject* parent)
    : QObject(parent)
    , m_baseAddress(std::move(baseAddress))
    , m_timeout(timeout)
{
}

QByteArray ReportSender::body(const QString& email, const QString& description,
                              const QMap<QString, QString>& diagnostics, const QString& logTail)
{
    QJsonObject facts;
    for (auto it = diagnostics.begin(); it != diagnostics.end(); ++it)
        facts.insert(encodable(it.key()), encodable(it.value()));
    const QJsonObject object{{QStringLiteral("email"), encodable(email)},
                             {QStringLiteral("description"), encodable(description)},
                             {QStringLiteral("diagnostics"), facts},
                             {QStringLiteral("log_tail"), encodable(logTail)}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

void ReportSender::send(const QString& email, const QString& description,
                        const QMap<QString, QString>& diagnostics, const QString& logTail,
                        Done done)
{
    if (m_baseAddress.isEmpty()) {
        done(uiText("Reporting is not available in this build"));
        return;
    }
    QString base = m_baseAddress;
    if (!base.endsWith(u'/'))
        base += u'/';
    QNetworkRequest request(QUrl(base).resolved(QUrl(QStringLiteral("api/v1/report"))));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    request.setRawHeader("Accept", "application/json");
    request.setTransferTimeout(static_cast<int>(m_timeout.count()));
    QNetworkReply* reply = m_network.post(request, body(email, description, diagnostics, logTail));
    connect(reply, &QNetworkReply::finished, this, [reply, done = std::move(done)] {
        reply->deleteLater();
        done(outcome(*reply));
    });
}
