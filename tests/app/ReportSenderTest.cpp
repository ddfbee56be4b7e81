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
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <map>

using namespace std::chrono_literals;
using testing_support::spinUntil;

namespace {

// Records each request and answers it with `status` once its body (a JSON object) is in;
// never answers when `status` is 0.
class ReportServer : public QObject {
public:
    explicit ReportServer(int status)
    {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this, status] {
            QTcpSocket* socket = m_server.nextPendingConnection();
            requests.append(QByteArray());
            connect(socket, &QTcpSocket::readyRead, this,
                    [this, socket, status, index = requests.size() - 1] {
                        requests[index] += socket->readAll();
                        if (status != 0 && requests[index].endsWith('}'))
                            socket->write("HTTP/1.1 " + QByteArray::number(status) +
                                          " Answer\r\nContent-Length: 0\r\n\r\n");
                    });
        });
    }

    QString address() const
    {
        return QStringLiteral("http://127.0.0.1:%1/base").arg(m_server.serverPort());
    }

    QList<QByteArray> requests;

private:
    QTcpServer m_server;
};

// What the sender answered: "sent", the text it gave, or "no answer" when it gave none.
std::string sendTo(const QString& address)
{
    ReportSender sender(address, 2s);
    std::optional<std::string> answer;
    sender.send(
        "me@example.com", "The keys do nothing.", {{"version", "0.1.0"}}, "log",
        [&](std::optional<QString> error) { answer = error ? error->toStdString() : "sent"; });
    spinUntil([&] { return answer.has_value(); }, 20s);
    return answer.value_or("no answer");
}

TEST(ReportSender, PostsJsonWithBothHeadersAndValidTextWhateverTheValuesHold)
{
    ReportServer server(200);
    ReportSender sender(server.address());
    const QString control = QStringLiteral("name\x01\x1b[2J\r\n\t") + QChar(0) + QChar(0xd800);
    bool sent = false;
    sender.send(" me@example.com", "It stopped.\nThen \"it\" went on.", {{"speaker", control}},
                "line one\nline two\x7f", [&](std::optional<QString> error) { sent = !error; });
    ASSERT_TRUE(spinUntil([&] { return sent; })) << server.requests.value(0).toStdString();

    ASSERT_EQ(server.requests.size(), 1);
    const QByteArray request = server.requests.first();
    EXPECT_TRUE(request.startsWith("POST /base/api/v1/report HTTP/1.1\r\n"));
    EXPECT_TRUE(request.contains("\r\nContent-Type: application/json\r\n"));
    EXPECT_TRUE(request.contains("\r\nAccept: application/json\r\n"));
    const QByteArray body = request.mid(request.indexOf("\r\n\r\n") + 4);
    QJsonParseError error{};
    const QJsonObject object = QJsonDocument::fromJson(body, &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << body.toStdString();
    // Every character arrives, but half a surrogate pair has no UTF-8 form: it is replaced.
    EXPECT_EQ(object,
              (QJsonObject{{"email", " me@example.com"},
                           {"description", "It stopped.\nThen \"it\" went on."},
                           {"diagnostics", QJsonObject{{"speaker", control.chopped(1) + u'?'}}},
                           {"log_tail", "line one\nline two\x7f"}}));
}

TEST(ReportSender, EachAnswerHasItsText)
{
    LogWatch log;
    const std::string notReached =
        "We could not reach our server — check your connection and try again later.";
    const std::map<int, std::string> texts{
        {200, "sent"},
        {422, "That report could not be sent — check the address and try again."},
        {429, "That is a lot of reports — give us a moment to read the last one."},
        {500, notReached},
        {0, notReached}};
    for (const auto& [status, text] : texts) {
        ReportServer server(status);
        EXPECT_EQ(sendTo(server.address()), text) << status;
    }
    EXPECT_EQ(log.count("problem report failed: 500"), 1);

    QString refused;
    {
        ReportServer gone(200);
        refused = gone.address();
    }
    EXPECT_EQ(sendTo(refused), notReached);
    EXPECT_EQ(sendTo({}), "Reporting is not available in this build");
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
    window.findChild<QPlainTextEdit*>("description")
        ->setPlainText("Nothing happens when I press the keys.");
    window.submit();
    window.submit();
    ASSERT_TRUE(spinUntil([&] {
        return window.findChild<QLabel*>("status")->text().startsWith("Thank you — we have it");
    }));
    window.submit();
    testing_support::spinFor(100ms);
    EXPECT_EQ(server.requests.size(), 1);
}

} // namespace
