// ui/MainWindow.h: one top-level window: its menu, its toolbar and its vault windows as tabs.
#pragma once

#include <QMainWindow>
#include <QLineEdit>
#include <QPointer>

#include <vector>

class QAction;
class QTabWidget;

namespace quillon::ui {

class MenuBar;
struct MenuHandlers;
class VaultWindow;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    MainWindow(const MenuHandlers& handlers, QWidget* parent = nullptr);

    QTabWidget* tabs() const noexcept { return tabs_; }
    MenuBar* menu() const noexcept { return menu_; }
    QAction* lockAction() const noexcept { return lock_; }
    QAction* newEntryAction() const noexcept { return newEntry_; }
    QAction* newGroupAction() const noexcept { return newGroup_; }
    // The toolbar item that holds the front tab's search field; hidden while that tab is not unlocked.
    QAction* searchItem() const noexcept { return searchItem_; }
    QLineEdit* placedSearchField() const { return placed_; }
    VaultWindow* currentVault() const;
    std::vector<VaultWindow*> vaults() const;

    void addVault(VaultWindow* vault);
    // The tab goes; the window closes with its last tab.
    void removeVault(VaultWindow* vault);
    void bringForward(VaultWindow* vault);
    // Title and toolbar follow the tab on show.
    void refresh();

Q_SIGNALS:
    void activated(quillon::ui::MainWindow* window);
    // The user closed the window itself; its tabs are to go with it.
    void closing(quillon::ui::MainWindow* window);

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    // Shows the field in the toolbar; the one shown before goes back, hidden, to the view that owns it.
    void placeSearchField(QLineEdit* field);

    QTabWidget* tabs_;
    MenuBar* menu_;
    QAction* lock_;
    // Every tab agreed to close: the next close event goes through without asking again.
    bool closingAgreed_ = false;
    QAction* newEntry_;
    QAction* newGroup_;
    QWidget* searchSlot_;
    QAction* searchItem_;
    QPointer<QLineEdit> placed_;
    QPointer<QWidget> placedHome_;
};

} // namespace quillon::ui
