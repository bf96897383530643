#include "ui/MainWindow.h"

#include "ui/Icons.h"
#include "ui/MenuBar.h"
#include "ui/VaultWindow.h"

#include <QCloseEvent>
#include <QPointer>
#include <QMenuBar>
#include <QStatusBar>
#include <QTabBar>
#include <QTabWidget>
#include <QToolBar>

namespace quillon::ui {

MainWindow::MainWindow(const MenuHandlers& handlers, QWidget* parent) : QMainWindow(parent)
{
    setWindowIcon(icons::application());
    menu_ = new MenuBar(menuBar(), handlers);

    auto* toolbar = addToolBar(QStringLiteral("Toolbar"));
    toolbar->setObjectName(QStringLiteral("toolbar"));
    toolbar->setMovable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonIconOnly);
    lock_ = toolbar->addAction(icons::lock(), QStringLiteral("Lock Database"));
    lock_->setObjectName(QStringLiteral("vault.lock"));
    lock_->setToolTip(QStringLiteral("Lock Database"));
    connect(lock_, &QAction::triggered, this, [this] {
        if (auto* vault = currentVault())
            vault->perform(Command::lockDatabase);
    });

    tabs_ = new QTabWidget(this);
    tabs_->setDocumentMode(true);
    tabs_->setTabBarAutoHide(true);
    tabs_->setMovable(true);
    tabs_->tabBar()->setExpanding(true);
    connect(tabs_, &QTabWidget::currentChanged, this, &MainWindow::refresh);
    setCentralWidget(tabs_);
    resize(820, 560);
}

VaultWindow* MainWindow::currentVault() const
{
    return qobject_cast<VaultWindow*>(tabs_->currentWidget());
}

std::vector<VaultWindow*> MainWindow::vaults() const
{
    std::vector<VaultWindow*> all;
    for (int i = 0; i < tabs_->count(); ++i)
        if (auto* vault = qobject_cast<VaultWindow*>(tabs_->widget(i)))
            all.push_back(vault);
    return all;
}

void MainWindow::addVault(VaultWindow* vault)
{
    const int index = tabs_->addTab(vault, vault->title());
    const auto update = [this, vault] {
        const int at = tabs_->indexOf(vault);
        if (at >= 0)
            tabs_->setTabText(at, vault->title());
        if (vault == currentVault())
            refresh();
    };
    connect(vault, &VaultWindow::titleChanged, this, update);
    connect(vault, &VaultWindow::lockedChanged, this, update);
    connect(vault, &VaultWindow::subtitleChanged, this, [this, vault] {
        if (vault == currentVault())
            refresh();
    });
    tabs_->setCurrentIndex(index);
    refresh();
}

void MainWindow::removeVault(VaultWindow* vault)
{
    const int at = tabs_->indexOf(vault);
    if (at >= 0)
        tabs_->removeTab(at);
    vault->disconnect(this);
    if (tabs_->count() == 0)
        close();
    else
        refresh();
}

void MainWindow::bringForward(VaultWindow* vault)
{
    tabs_->setCurrentWidget(vault);
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
    Q_EMIT activated(this);
}

void MainWindow::refresh()
{
    auto* vault = currentVault();
    if (!vault) {
        setWindowTitle(QStringLiteral("Quillon"));
        statusBar()->clearMessage();
        lock_->setEnabled(false);
        return;
    }
    setWindowTitle(vault->title() + QStringLiteral("[*]"));
    if (vault->subtitle().isEmpty())
        statusBar()->clearMessage();
    else
        statusBar()->showMessage(vault->subtitle());
    setWindowModified(vault->session().isDirty());
    lock_->setEnabled(vault->session().isOpen() && !vault->session().isLocked());
}

void MainWindow::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        Q_EMIT activated(this);
    QMainWindow::changeEvent(event);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    std::vector<QPointer<VaultWindow>> asking;
    for (auto* vault : vaults()) {
        vault->commitEditing();
        if (vault->session().isDirty() || vault->session().isSaving())
            asking.emplace_back(vault);
    }
    if (!closingAgreed_ && !asking.empty()) {
        // Each tab with changes asks in turn; the window closes once all agreed (a save may take a while).
        event->ignore();
        QPointer<MainWindow> self = this;
        VaultWindow::askEachToClose(
            std::move(asking), [this](VaultWindow* vault) { tabs_->setCurrentWidget(vault); },
            [self](bool agreed) {
                if (!self || !agreed)
                    return;
                self->closingAgreed_ = true;
                QMetaObject::invokeMethod(self, &QWidget::close, Qt::QueuedConnection);
            });
        return;
    }
    closingAgreed_ = false;
    Q_EMIT closing(this);
    event->accept();
}

} // namespace quillon::ui
