#include "ui/Application.h"

#include "files/Backups.h"
#include "lock/DuressRules.h"
#include "state/Preferences.h"
#include "ui/AppDelegate.h"
#include "ui/Asker.h"
#include "ui/Clipboard.h"
#include "ui/Icons.h"
#include "ui/LockTriggers.h"
#include "ui/MainWindow.h"
#include "ui/Paths.h"
#include "ui/SingleInstance.h"
#include "ui/Windows.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace quillon::ui {
namespace {

constexpr const char* usage = "usage: quillon [FILE…] | --verify <path> [password] | --self-test\n";

} // namespace

std::optional<QStringList> filesFromArguments(const QStringList& arguments)
{
    QStringList files;
    for (const QString& argument : arguments) {
        if (argument.startsWith(u'-'))
            return std::nullopt;
        files << QFileInfo(argument).absoluteFilePath();
    }
    return files;
}

int runApplication(int& argc, char** argv)
{
    // Long options belong to the windowless modes; single-dash ones may be Qt's own (-platform, -style).
    for (int i = 1; i < argc; ++i)
        if (std::string_view(argv[i]).starts_with("--")) {
            std::fputs(usage, stdout);
            return 2;
        }
    const auto has = [](const char* name) {
        const char* value = std::getenv(name);
        return value && *value;
    };
    if (!has("QT_QPA_PLATFORM") && !has("DISPLAY") && !has("WAYLAND_DISPLAY")) {
        std::fputs("No display to show windows on: DISPLAY and WAYLAND_DISPLAY are unset.\n", stdout);
        return 1;
    }
    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Quillon"));
    QApplication::setApplicationName(QStringLiteral("Quillon"));
    QApplication::setWindowIcon(icons::application());
    QApplication::setQuitOnLastWindowClosed(true);

    const auto files = filesFromArguments(QApplication::arguments().mid(1));
    if (!files) {
        std::fputs(usage, stdout);
        return 2;
    }
    SingleInstance instance;
    if (instance.handOver(*files, 1000))
        return 0;
    instance.listen();

    state::Preferences preferences;
    Clipboard clipboard(QApplication::clipboard());
    DialogAsker asker;
    state::SessionServices services;
    std::optional<files::Backups> backups;
    if (const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation); !data.isEmpty())
        backups.emplace(toPath(data) / "Quillon" / "Backups");
    services.backups = backups ? &*backups : nullptr;
    services.backUpBeforeSaving = [&preferences] { return preferences.backUpBeforeSaving(); };
    // Called on the unlock worker too: a store of its own per call.
    services.isDuress = [](kdbx::ByteView text) { return state::Preferences().isDuressPassword(text); };
    Windows windows(asker, clipboard, preferences, services);
    AppDelegate delegate(windows, preferences, clipboard);
    LockTriggers triggers({[&windows] { windows.noteActivity(); }, [&windows] { windows.checkIdle(); },
                           [&windows] { windows.lockAll(); }});
    triggers.watchApplication();
    triggers.listenOn(QDBusConnection::sessionBus(), QDBusConnection::systemBus());

    QObject::connect(&instance, &SingleInstance::filesArrived, &delegate, &AppDelegate::openFiles);
    // Quit remembers the windows while they are all still there.
    QObject::connect(&windows, &Windows::quitRequested, &delegate, [&delegate] {
        delegate.willTerminate();
        // Every window has already agreed: quit() would ask them all again through their close events.
        QApplication::exit(0);
    });
    QObject::connect(&application, &QApplication::aboutToQuit, &delegate, &AppDelegate::willTerminate);
    delegate.openFiles(*files);
    QTimer::singleShot(0, &delegate, &AppDelegate::finishLaunching);
    return QApplication::exec();
}

} // namespace quillon::ui
