// bench_windows: how the windows behave under load, in one process on Qt's offscreen platform.
//   bench_windows [ENTRIES] [RUNS]    default 50000 entries, 5 runs
// For each run: the time from the start of main to the first paint of the unlock screen (application, window
// and file claim included), then an unlock of the ENTRIES-entry database with a probe timer every 5 ms on the
// event loop, reporting the time until the unlocked page shows and the longest gap between two probes until
// 250 ms after that.
#include "state/Preferences.h"
#include "bench/support/BenchDatabase.h"
#include "bench/support/SilentAsker.h"
#include "ui/Asker.h"
#include "ui/Clipboard.h"
#include "ui/MainWindow.h"
#include "ui/UnlockView.h"
#include "ui/Windows.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <fstream>

using namespace quillon;

namespace {

class FirstPaint final : public QObject {
public:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && !painted) {
            painted = true;
            QTimer::singleShot(0, [] { QApplication::exit(0); });
        }
        return false;
    }
    bool painted = false;
};

} // namespace

int main(int argc, char** argv)
{
    QElapsedTimer sinceMain;
    sinceMain.start();
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const std::size_t entries = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 50'000;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;

    QTemporaryDir scratch;
    const QString small = scratch.filePath(QStringLiteral("small.kdbx"));
    const QString large = scratch.filePath(QStringLiteral("large.kdbx"));
    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::fromText("bench");
    {
        bench::BenchDatabaseOptions options;
        options.entries = 10;
        const auto bytes = bench::benchDatabaseFile(credentials, options);
        std::ofstream(small.toStdString(), std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                                   static_cast<std::streamsize>(bytes.size()));
    }
    const qint64 beforeApplication = sinceMain.nsecsElapsed();
    QApplication application(argc, argv);
    state::Preferences preferences(scratch.filePath(QStringLiteral("settings.ini")));
    ui::Clipboard clipboard(QApplication::clipboard());
    bench::SilentAsker asker;
    auto windows = std::make_unique<ui::Windows>(asker, clipboard, preferences, state::SessionServices{});

    // Application to first paint of the unlock screen, the in-process share of a launch.
    FirstPaint paint;
    auto* window = windows->newWindow();
    auto* vault = windows->open(small, window, window->currentVault());
    vault->unlockView()->installEventFilter(&paint);
    QApplication::exec();
    const double firstPaintMs = double(sinceMain.nsecsElapsed() - beforeApplication) / 1e6;
    std::printf("application to first painted unlock screen: %.1f ms (main to application: %.1f ms)\n", firstPaintMs,
                double(beforeApplication) / 1e6);

    {
        bench::BenchDatabaseOptions options;
        options.entries = entries;
        const auto bytes = bench::benchDatabaseFile(credentials, options);
        std::ofstream(large.toStdString(), std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                                   static_cast<std::streamsize>(bytes.size()));
        std::printf("%zu entries, %zu bytes\n", entries, bytes.size());
    }
    std::printf("| run | unlock wall time | longest event-loop gap | probes |\n|---|---|---|---|\n");
    for (int run = 1; run <= runs; ++run) {
        windows->closeVault(vault);
        window = windows->newWindow();
        vault = windows->open(large, window, window->currentVault());
        QElapsedTimer clock;
        qint64 last = 0, worst = 0, worstEnd = 0, probes = 0;
        QTimer probe;
        probe.setInterval(5);
        QObject::connect(&probe, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            if (now - last > worst) {
                worst = now - last;
                worstEnd = now;
            }
            last = now;
            ++probes;
        });
        QObject::connect(&vault->session(), &state::DatabaseSession::lockedChanged, &application,
                         [](bool locked) {
                             // What the window does in the turns after the unlock counts too.
                             if (!locked)
                                 QTimer::singleShot(250, [] { QApplication::exit(0); });
                         });
        qint64 attached = 0, shown = 0, remembered = 0;
        QObject::connect(&vault->session(), &state::DatabaseSession::unlockedFromFile, &application,
                         [&] { remembered = clock.nsecsElapsed(); });
        QObject::connect(&vault->session(), &state::DatabaseSession::documentReset, &application,
                         [&] { attached = clock.nsecsElapsed(); });
        QObject::connect(&vault->session(), &state::DatabaseSession::lockedChanged, &application,
                         [&](bool) { shown = clock.nsecsElapsed(); });
        clock.start();
        probe.start();
        vault->session().attemptUnlock(kdbx::SecureBytes::fromText("bench"));
        QApplication::exec();
        const qint64 total = clock.nsecsElapsed();
        probe.stop();
        if (total - last > worst) {
            worst = total - last;
            worstEnd = total;
        }
        std::printf("| %d | %.0f ms | %.1f ms, ending at %.0f ms | %lld |\n", run, double(shown) / 1e6,
                    double(worst) / 1e6, double(worstEnd) / 1e6, static_cast<long long>(probes));
        const qint64 gapStart = worstEnd - worst;
        std::printf("    from the last probe before the gap: document attached %.1f ms, page shown %.1f ms, recent list "
                    "and key file remembered %.1f ms\n",
                    double(attached - gapStart) / 1e6, double(shown - gapStart) / 1e6, double(remembered - gapStart) / 1e6);
        if (!vault->session().isOpen())
            return 1;
    }
    windows.reset();
    return 0;
}
