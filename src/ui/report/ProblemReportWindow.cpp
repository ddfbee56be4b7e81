#include "ui/report/ProblemReportWindow.h"

#include "support/UiText.h"
#include "ui/report/ReportForm.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int kPad = 20;
constexpr int kPreviewHeight = 180;

QLabel* caption(const QString& text, QWidget* buddy)
{
    auto* label = new QLabel(text);
    label->setBuddy(buddy);
    return label;
}

} // namespace

ProblemReportWindow::ProblemReportWindow(Send send, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_send(std::move(send))
    , m_email(new QLineEdit)
    , m_description(new QPlainTextEdit)
    , m_disclosure(new QToolButton)
    , m_preview(new QPlainTextEdit)
    , m_status(new QLabel)
    , m_sendButton(new QPushButton(uiText("Send Report")))
    , m_cancelButton(new QPushButton(uiText("Cancel")))
{
    setWindowTitle(uiText("Report a Problem"));
    setAccessibleName(windowTitle());
    setFixedWidth(contentWidth);

    auto* heading = new QLabel(uiText("Something not working?"));
    QFont big = heading->font();
    big.setPointSizeF(big.pointSizeF() * 1.4);
    big.setBold(true);
    heading->setFont(big);
    auto* explanation = new QLabel(
        uiText("Tell us what happened and we will write back. The report also carries the "
               "facts below about this computer, its sound and your speaker, and the last "
               "lines of Velotide's log, so that we can see what you saw."));
    explanation->setWordWrap(true);

    m_email->setPlaceholderText(QStringLiteral("you@example.com"));
    m_email->setAccessibleName(uiText("The email address we should reply to"));
    m_description->setAccessibleName(uiText("What's going on?"));
    m_description->setObjectName(QStringLiteral("description"));
    m_status->setObjectName(QStringLiteral("status"));
    m_description->setTabChangesFocus(true);

    m_disclosure->setCheckable(true);
    m_disclosure->setAutoRaise(true);
    m_disclosure->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_disclosure->setText(uiText("What will be sent"));
    m_preview->setReadOnly(true);
    m_preview->setAccessibleName(uiText("What will be sent"));
    m_preview->setFixedHeight(kPreviewHeight);
    m_preview->setLineWrapMode(QPlainTextEdit::NoWrap);

    m_status->setWordWrap(true);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_sendButton->setDefault(true);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_cancelButton);
    buttons->addWidget(m_sendButton);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(kPad, kPad, kPad, kPad);
    layout->addWidget(heading);
    layout->addWidget(explanation);
    layout->addSpacing(6);
    layout->addWidget(caption(uiText("Your email"), m_email));
    layout->addWidget(m_email);
    layout->addWidget(caption(uiText("What's going on?"), m_description));
    layout->addWidget(m_description, 1);
    layout->addWidget(m_disclosure, 0, Qt::AlignLeft);
    layout->addWidget(m_preview);
    layout->addWidget(m_status);
    layout->addLayout(buttons);

    connect(m_disclosure, &QToolButton::toggled, this, &ProblemReportWindow::setDisclosed);
    connect(m_sendButton, &QPushButton::clicked, this, &ProblemReportWindow::submit);
    connect(m_cancelButton, &QPushButton::clicked, this, &QWidget::close);
    setDisclosed(false);
    resize(contentWidth, startHeight);
}

void ProblemReportWindow::present(const ProblemReport& report, const QString& email)
{
    if (!isVisible() && m_sent)
        startOver();
    refresh(report);
    if (!email.isEmpty() && m_email->text().isEmpty())
        m_email->setText(email);
    show();
    raise();
    activateWindow();
    if (m_email->text().trimmed().isEmpty())
        m_email->setFocus();
    else
        m_description->setFocus();
}

void ProblemReportWindow::refresh(const ProblemReport& report)
{
    m_report = report;
    m_preview->setPlainText(report.previewText());
}

void ProblemReportWindow::submit()
{
    if (m_sending)
        return;
    if (const auto problem = ReportForm::check(m_email->text(), m_description->toPlainText())) {
        showError(problem->message);
        if (problem->field == ReportForm::Problem::Field::email)
            m_email->setFocus();
        else
            m_description->setFocus();
        return;
    }
    if (!m_send) {
        showError(uiText("Something went wrong"));
        return;
    }
    m_sending = true;
    m_sendButton->setEnabled(false);
    m_cancelButton->setEnabled(false);
    m_sendButton->setText(uiText("Sending…"));
    m_status->setText(uiText("Sending your report…"));
    // The host may answer at once, or after the window is gone.
    QPointer<ProblemReportWindow> self(this);
    m_send(m_email->text().trimmed(), m_description->toPlainText().trimmed(), m_report,
           [self](std::optional<QString> error) {
               if (self)
                   self->finished(std::move(error));
           });
}

void ProblemReportWindow::finished(std::optional<QString> error)
{
    if (error) {
        m_sending = false;
        m_sendButton->setEnabled(true);
        m_cancelButton->setEnabled(true);
        m_sendButton->setText(uiText("Send Report"));
        showError(*error);
        return;
    }
    m_sent = true;
    m_sendButton->setText(uiText("Report sent"));
    m_status->setText(uiText("Thank you — we have it, and we will reply to the address you "
                             "gave. If we need anything else we will ask."));
}

void ProblemReportWindow::showError(const QString& message)
{
    m_status->setText(message);
}

void ProblemReportWindow::setDisclosed(bool disclosed)
{
    m_disclosure->setArrowType(disclosed ? Qt::DownArrow : Qt::RightArrow);
    m_preview->setVisible(disclosed);
    fitHeight();
}

// The window never shrinks below its first height, and grows when its content needs more.
void ProblemReportWindow::fitHeight()
{
    layout()->activate();
    resize(contentWidth, std::max(startHeight, layout()->sizeHint().height()));
}

void ProblemReportWindow::startOver()
{
    m_sent = false;
    m_sending = false;
    m_description->clear();
    m_status->clear();
    m_sendButton->setText(uiText("Send Report"));
    m_sendButton->setEnabled(true);
    m_cancelButton->setEnabled(true);
}
