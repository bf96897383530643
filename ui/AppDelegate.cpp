#include "ui/AppDelegate.h"

#include "state/Preferences.h"
#include "state/Session.h"
#include "ui/Clipboard.h"
#include "ui/MainWindow.h"
#include "ui/Windows.h"

#include <QFileInfo>

namespace quillon::ui {

AppDelegate::AppDelegate(Windows& windows, state::Preferences& preferences, Clipboard& clipboard, QObject* parent)
    : QObject(parent), windows_(windows), preferences_(preferences), clipboard_(clipboard)
{
}

void AppDelegate::openFiles(const QStringList& paths)
{
    if (!launched_) {
        pending_ << paths;
        return;
    }
    windows_.openHandedOver(paths);
}

void AppDelegate::finishLaunching()
{
    if (launched_)
        return;
    launched_ = true;
    if (!pending_.isEmpty()) {
        const QStringList files = std::exchange(pending_, {});
        for (const QString& path : files)
            windows_.open(path, windows_.frontWindow(), windows_.frontVault());
        return;
    }
    if (const auto session = state::sessionToRestore(preferences_, false); session && windows_.restore(*session))
        return;
    MainWindow* window = windows_.newWindow();
    const auto last = preferences_.lastDatabasePath();
    if (preferences_.reopenLastDatabase() && last && QFileInfo::exists(*last))
        windows_.open(*last, window, window->currentVault());
}

void AppDelegate::willTerminate()
{
    if (terminated_)
        return;
    terminated_ = true;
    state::saveSession(preferences_, windows_.currentSession());
    clipboard_.clearIfStillOurs();
}

} // namespace quillon::ui
