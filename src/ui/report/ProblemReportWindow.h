#pragma once

#include "support/ProblemReport.h"

#include <QWidget>

#include <functional>
#include <optional>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QToolButton;

// "Report a Problem": the user's address and words, what will be sent with them, and how the
// sending went. Sending is the host's: the window hands it the form and shows the answer.
// Everything stays in the form after a failure, so the user can correct it and send again.
class ProblemReportWindow : public QWidget {
    Q_OBJECT
public:
    static constexpr int contentWidth = 520;
    static constexpr int startHeight = 620;

    // Sends the report; `done` gets nothing when it was taken, else the text to show.
    using Done = std::function<void(std::optional<QString> error)>;
    using Send = std::function<void(const QString& email, const QString& description,
                                    const ProblemReport& report, Done done)>;

    explicit ProblemReportWindow(Send send, QWidget* parent = nullptr);

    // Shows the window in front, with `email` filled in when given and the first empty field
    // focused. A window closed after a report was sent starts over.
    void present(const ProblemReport& report, const QString& email = {});
    // Replaces what will be sent.
    void refresh(const ProblemReport& report);

    // Presses "Send Report": nothing while a report is on its way.
    void submit();

    bool isSending() const { return m_sending; }

private:
    void setDisclosed(bool disclosed);
    void fitHeight();
    void showError(const QString& message);
    void finished(std::optional<QString> error);
    void startOver();

    Send m_send;
    ProblemReport m_report;
    bool m_sending = false;
    bool m_sent = false;
    QLineEdit* m_email;
    QPlainTextEdit* m_description;
    QToolButton* m_disclosure;
    QPlainTextEdit* m_preview;
    QLabel* m_status;
    QPushButton* m_sendButton;
    QPushButton* m_cancelButton;
};
