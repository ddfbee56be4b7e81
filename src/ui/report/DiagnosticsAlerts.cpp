#include "ui/report/DiagnosticsAlerts.h"

#include "support/PlatformWords.h"
#include "support/UiText.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

void inFront(QWidget* window)
{
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->setWindowModality(Qt::ApplicationModal);
    window->show();
    window->raise();
    window->activateWindow();
}

// Four thousand characters do not fit a message box: the text scrolls in a box of its own.
void showCopiedText(const QString& shown)
{
    auto* dialog = new QDialog;
    dialog->setWindowTitle(uiText("Diagnostics"));
    auto* message = new QLabel(uiText("Diagnostics"));
    QFont bold = message->font();
    bold.setBold(true);
    message->setFont(bold);
    auto* text = new QPlainTextEdit(shown);
    text->setReadOnly(true);
    text->setAccessibleName(uiText("Diagnostics"));
    text->setMinimumSize(560, 360);
    auto* buttons = new QDialogButtonBox;
    QPushButton* done = buttons->addButton(uiText("Done"), QDialogButtonBox::AcceptRole);
    done->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(message);
    layout->addWidget(text);
    layout->addWidget(buttons);
    inFront(dialog);
    done->setFocus();
}

} // namespace

void showDiagnosticsCopied(const QString& shown)
{
    auto* alert = new QMessageBox;
    alert->setWindowTitle(QStringLiteral("Velotide"));
    alert->setIcon(QMessageBox::Information);
    alert->setText(uiText("Diagnostics copied"));
    alert->setInformativeText(uiText(PlatformText::diagnosticsCopiedInformation));
    QPushButton* ok = alert->addButton(uiText("OK"), QMessageBox::AcceptRole);
    QPushButton* show = alert->addButton(uiText("Show What Was Copied"), QMessageBox::ActionRole);
    alert->setDefaultButton(ok);
    QObject::connect(alert, &QMessageBox::buttonClicked, alert,
                     [show, shown](QAbstractButton* pressed) {
                         if (pressed == show)
                             showCopiedText(shown);
                     });
    inFront(alert);
}
