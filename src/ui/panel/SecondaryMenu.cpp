#include "ui/panel/SecondaryMenu.h"

#include "support/PlatformWords.h"
#include "support/UiText.h"

#include <QDesktopServices>
#include <QMenu>
#include <QMessageBox>
#include <QTimer>
#include <QUrl>

namespace {

void showAbout(const MenuBarPanel::MenuFacts& facts)
{
    const QString web = QStringLiteral(VELOTIDE_WEB_ADDRESS);
    const QString text =
        QStringLiteral("<b>Velotide</b><br>%1<br><span style=\"font-size: 11px\">"
                       "<a href=\"%2\">%2</a></span>")
            .arg(uiText("Version %1, build %2").arg(facts.version, facts.build).toHtmlEscaped(),
                 web.toHtmlEscaped());
    // After the menu has gone: the box runs its own event loop.
    QTimer::singleShot(0,
                       [text] { QMessageBox::about(nullptr, QStringLiteral("Velotide"), text); });
}

} // namespace

void fillSecondaryMenu(QMenu& menu, const MenuBarPanel::MenuFacts& facts, MenuBarPanel& panel)
{
    menu.clear();
    menu.setToolTipsVisible(true);
    const auto add = [&](const QString& title, auto signal) {
        QAction* action = menu.addAction(title);
        QObject::connect(action, &QAction::triggered, &panel,
                         [&panel, signal] { emit(panel.*signal)(); });
        return action;
    };

    QAction* about = menu.addAction(uiText("About Velotide (%1)").arg(facts.version));
    about->setToolTip(uiText("Version %1, build %2").arg(facts.version, facts.build));
    QObject::connect(about, &QAction::triggered, &panel, [facts] { showAbout(facts); });
    add(uiText("Report a Problem\u2026"), &MenuBarPanel::panelDidRequestProblemReport);
    QAction* support = menu.addAction(uiText("Contact Support\u2026"));
    QObject::connect(support, &QAction::triggered, &panel, [] {
        QDesktopServices::openUrl(QUrl(QStringLiteral(VELOTIDE_SUPPORT_ADDRESS)));
    });
    menu.addSeparator();

    if (facts.updaterRunning) {
        add(uiText("Check for Updates\u2026"), &MenuBarPanel::panelDidRequestUpdateCheck);
        QAction* automatic =
            add(uiText("Check Automatically"), &MenuBarPanel::panelDidToggleAutomaticChecks);
        automatic->setCheckable(true);
        automatic->setChecked(facts.automaticChecks);
        menu.addSeparator();
    }

    add(uiText("Run Setup Again\u2026"), &MenuBarPanel::panelDidRequestSetupAgain);
    menu.addSeparator();

    QAction* login = add(facts.loginItemNeedsApproval ? uiText(PlatformText::openAtLoginBlocked)
                                                      : uiText("Open at Login"),
                         &MenuBarPanel::panelDidToggleLoginItem);
    login->setCheckable(true);
    login->setChecked(facts.loginItemEnabled);
    menu.addSeparator();

    add(uiText("Uninstall Velotide\u2026"), &MenuBarPanel::panelDidRequestUninstall);
    add(uiText("Copy Diagnostics"), &MenuBarPanel::panelDidRequestDiagnostics);
    menu.addSeparator();
    add(uiText("Quit Velotide"), &MenuBarPanel::panelDidRequestQuit);
}
