// Problem reports against a real HTTP server on loopback that this test plays.
#include "app/ReportSender.h"

#include "common/LogWatch.h"
#include "common/Wait.h"
#include "ui/report/ProblemReportWindow.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QStringDecoder>
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <map>
#include <optional>

using namespace std::chrono_literals;
using testing_support::spinUntil;

namespace {

// Takes one request per connection and answers it with `status`, or never when 0.
class ReportServer : public QObject {
public:
    explicit ReportServer(int status)
        : m_status(status)
    {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                requests.append(QByteArray());
                const qsizetype index = requests.size() - 1;
                connect(socket, &QTcpSocket::readyRead, this,
                        [this, socket, index] { read(socket, index); });
            }
        });
    }

    QString address() const
    {
        return QStringLiteral("http://127.0.0.1:%1/base").arg(m_server.serverPort());
    }
    // The request's body, once all of it is in.
    QByteArray body(qsizetype index) const
    {
        const QByteArray& bytes = requests.at(index);
        return bytes.mid(bytes.indexOf("\r\n\r\n") + 4);
    }
    bool complete(qsizetype index) const
    {
        if (index >= requests.size())
            return false;
        const QByteArray& bytes = requests.at(index);
        const qsizetype end = bytes.indexOf("\r\n\r\n");
        const qsizetype length = bytes.indexOf("Content-Length: ");
        return end >= 0 && length >= 0 &&
               body(index).size() == bytes.mid(length + 16, end).split('\r').first().toInt();
    }

    QList<QByteArray> requests;

private:
    void read(QTcpSocket* socket, qsizetype index)
    {
        requests[index] += socket->readAll();
        if (m_status != 0 && complete(index)) {
            socket->write("HTTP/1.1 " + QByteArray::number(m_status) +
                          " Answer\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
        }
    }

    int m_status;
    QTcpServer m_server;
};

struct Answer {
    bool arrived = false;
    std::optional<QString> error;
};

Answer sendTo(const QString& address, std::chrono::milliseconds timeout = 10s)
{
    ReportSender sender(address, timeout);
    Answer answer;
    sender.send("me@example.com", "The keys do nothing.", {{"version", "0.1.0"}}, "log",
                [&](std::optional<QString> error) {
                    answer = {true, error};
                });
    spinUntil([&] { return answer.arrived; }, 20s);
    return answer;
}

const std::string kNotReached =
    "We could not reach our server — check your connection and try again later.";

TEST(ReportSender, PostsJsonWithBothHeadersAndValidTextWhateverTheValuesHold)
{
    ReportServer server(200);
    ReportSender sender(server.address());
    const QString control = QStringLiteral("name\x01\x1b[2J\r\n\t") + QChar(0) + QChar(0xd800);
    bool sent = false;
    sender.send(" me@example.com", "It stopped.\nThen \"it\" went on.", {{"speaker", control}},
                "line one\nline two\x7f",
                [&](std::optional<QString> error) { sent = !error.has_value(); });
    ASSERT_TRUE(spinUntil([&] { return sent; })) << server.requests.value(0).toStdString();

    ASSERT_EQ(server.requests.size(), 1);
    const QByteArray request = server.requests.first();
    EXPECT_TRUE(request.startsWith("POST /base/api/v1/report HTTP/1.1\r\n"));
    EXPECT_TRUE(request.contains("\r\nContent-Type: application/json\r\n"));
    EXPECT_TRUE(request.contains("\r\nAccept: application/json\r\n"));
    const QByteArray body = server.body(0);
    auto utf8 = QStringDecoder(QStringDecoder::Utf8);
    const QString decoded = utf8.decode(body);
    EXPECT_FALSE(utf8.hasError());
    QJsonParseError error{};
    const QJsonObject object = QJsonDocument::fromJson(body, &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << body.toStdString();
    EXPECT_EQ(object.keys(), (QStringList{"description", "diagnostics", "email", "log_tail"}));
    EXPECT_EQ(object["email"].toString(), " me@example.com");
    EXPECT_EQ(object["description"].toString(), "It stopped.\nThen \"it\" went on.");
    EXPECT_EQ(object["log_tail"].toString(), "line one\nline two\x7f");
    // Every character arrives; the half of a surrogate pair that has no UTF-8 form is replaced.
    const QString speaker = object["diagnostics"].toObject()["speaker"].toString();
    EXPECT_EQ(speaker.chopped(1), control.chopped(1));
    EXPECT_NE(speaker.back(), QChar(0xd800));
}

TEST(ReportSender, EachAnswerHasItsText)
{
    LogWatch log;
    const std::map<int, std::optional<std::string>> texts{
        {200, std::nullopt},
        {422, "That report could not be sent — check the address and try again."},
        {429, "That is a lot of reports — give us a moment to read the last one."},
        {500, kNotReached}};
    for (const auto& [status, text] : texts) {
        ReportServer server(status);
        const Answer answer = sendTo(server.address());
        ASSERT_TRUE(answer.arrived) << status;
        EXPECT_EQ(answer.error.has_value(), text.has_value()) << status;
        if (text) {
            EXPECT_EQ(answer.error->toStdString(), *text) << status;
        }
    }
    EXPECT_EQ(log.lines(), QStringList{"problem report failed: 500"});
}

TEST(ReportSender, NoAnswerNoServerAndNoAddress)
{
    ReportServer silent(0);
    const Answer late = sendTo(silent.address(), 300ms);
    ASSERT_TRUE(late.arrived);
    EXPECT_EQ(late.error.value_or("").toStdString(), kNotReached);

    QString closed;
    {
        ReportServer gone(200);
        closed = gone.address();
    }
    EXPECT_EQ(sendTo(closed).error.value_or("").toStdString(), kNotReached);

    const Answer none = sendTo({});
    EXPECT_EQ(none.error.value_or("").toStdString(), "Reporting is not available in this build");
}

TEST(ReportWindow, ASecondPressWhileSendingIsIgnored)
{
    ReportServer server(200);
    ReportSender sender(server.address());
    ProblemReportWindow window([&](const QString& email, const QString& description,
                                   const ProblemReport& report, ProblemReportWindow::Done done) {
        sender.send(email, description, report.diagnostics, report.logTail, std::move(done));
    });
    window.present(ProblemReport::make({{"version", "0.1.0"}}, "log"));
    window.findChild<QLineEdit*>()->setText("a@b.c");
    for (QPlainTextEdit* box : window.findChildren<QPlainTextEdit*>()) {
        if (!box->isReadOnly())
            box->setPlainText("Nothing happens when I press the keys.");
    }
    window.submit();
    window.submit();
    const auto thanked = [&] {
        for (const QLabel* label : window.findChildren<QLabel*>()) {
            if (label->text().startsWith("Thank you — we have it"))
                return true;
        }
        return false;
    };
    ASSERT_TRUE(spinUntil(thanked));
    window.submit();
    testing_support::spinFor(100ms);
    EXPECT_EQ(server.requests.size(), 1);
}

} // namespace
