// bench_vault: the unlocked window at work on a large group, in one process on Qt's offscreen platform.
//   bench_vault [ENTRIES] [RUNS] [KEEP_DIR]    default 50000 entries in one group, 5 runs
// Each run unlocks the database (all entries in one group under the top group) and times, each to the end of
// the paint it causes: the decoded document to the first painted unlocked page; choosing the group; header
// clicks on Title and Modified; each keystroke of a search; an entry selected to its inspector painted; an
// edit of one title to its row painted, counting model resets; the memory sorting and searching added; then Ctrl+S (the menu action) to the file
// replaced, with the longest gap of a 5 ms probe timer while it saves. Memory: RSS when the document is
// decoded, and once the page is painted and the group listed. KEEP_DIR keeps the database there (so that
// keepassxc-cli can be timed on the same file).
#include "state/Preferences.h"
#include "bench/support/BenchDatabase.h"
#include "bench/support/SilentAsker.h"
#include "ui/Asker.h"
#include "ui/BrowseView.h"
#include "ui/Clipboard.h"
#include "ui/EntryInspector.h"
#include "ui/EntrySortProxy.h"
#include "ui/EntryTableModel.h"
#include "ui/GroupTreeModel.h"
#include "ui/MainWindow.h"
#include "ui/VaultWindow.h"
#include "ui/Windows.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeView>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <malloc.h>
#include <unistd.h>

using namespace quillon;

namespace {

// Resident memory in MiB, after handing freed heap back so that what is counted is what is held.
double residentMiB()
{
    malloc_trim(0);
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return double(resident) * double(::sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

// Watches every paint in the application; the first one that `wanted` accepts ends the wait in the turn after
// it, so that the whole paint cycle (the backing store is painted in one go) is inside the time.
class PaintWatch final : public QObject {
public:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && wanted && !seen && watched->isWidgetType() &&
            wanted(static_cast<QWidget*>(watched))) {
            seen = true;
            QTimer::singleShot(0, this, [this] {
                ended = clock.nsecsElapsed();
                if (loop)
                    loop->quit();
            });
        }
        return false;
    }
    // Milliseconds from `action` to the end of the first wanted paint after it; -1 when none came in 10 s.
    double time(std::function<bool(QWidget*)> want, const std::function<void()>& action)
    {
        wanted = std::move(want);
        seen = false;
        ended = -1;
        QEventLoop waiting;
        loop = &waiting;
        QTimer::singleShot(10'000, &waiting, &QEventLoop::quit);
        clock.start();
        action();
        inAction = double(clock.nsecsElapsed()) / 1e6;
        if (ended < 0)
            waiting.exec();
        loop = nullptr;
        wanted = nullptr;
        return ended < 0 ? -1 : double(ended) / 1e6;
    }
    std::function<bool(QWidget*)> wanted;
    bool seen = false;
    qint64 ended = -1;
    double inAction = 0; // the share of the last time spent in the action itself, before any paint

    QElapsedTimer clock;
    QEventLoop* loop = nullptr;
};

bool inside(QWidget* widget, QWidget* area)
{
    return area && (widget == area || area->isAncestorOf(widget));
}

void click(QWidget* target, QPoint at)
{
    QMouseEvent press(QEvent::MouseButtonPress, at, target->mapToGlobal(at), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QApplication::sendEvent(target, &press);
    QMouseEvent release(QEvent::MouseButtonRelease, at, target->mapToGlobal(at), Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(target, &release);
}

void clickHeader(QHeaderView* header, int section)
{
    click(header->viewport(),
          QPoint(header->sectionViewportPosition(section) + header->sectionSize(section) / 2, header->height() / 2));
}

void type(QWidget* target, QChar c)
{
    QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
    QApplication::sendEvent(target, &press);
    QKeyEvent release(QEvent::KeyRelease, 0, Qt::NoModifier, QString(c));
    QApplication::sendEvent(target, &release);
}

double median(std::vector<double> values)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    const auto n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

} // namespace

int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const std::size_t entries = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 50'000;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;

    QTemporaryDir scratch;
    const QString folder = argc > 3 ? QString::fromLocal8Bit(argv[3]) : scratch.path();
    const QString large = folder + QStringLiteral("/vault-%1.kdbx").arg(entries);
    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::fromText("bench");
    {
        bench::BenchDatabaseOptions options;
        options.entries = entries;
        options.entriesPerGroup = entries;
        const auto bytes = bench::benchDatabaseFile(credentials, options);
        std::ofstream(large.toStdString(), std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                                   static_cast<std::streamsize>(bytes.size()));
        std::printf("%zu entries in one group, %zu bytes, %s\n", entries, bytes.size(), qPrintable(large));
    }

    QApplication application(argc, argv);
    state::Preferences preferences(scratch.filePath(QStringLiteral("settings.ini")));
    ui::Clipboard clipboard(QApplication::clipboard());
    bench::SilentAsker asker;
    auto windows = std::make_unique<ui::Windows>(asker, clipboard, preferences, state::SessionServices{});
    PaintWatch paints;
    application.installEventFilter(&paints);

    std::map<std::string, std::vector<double>> results;
    std::vector<std::string> order;
    const auto note = [&](const std::string& name, double value) {
        if (!results.contains(name))
            order.push_back(name);
        results[name].push_back(value);
        std::printf("  %-44s %10.1f\n", name.c_str(), value);
    };
    ui::MainWindow* window = nullptr;
    ui::VaultWindow* vault = nullptr;
    for (int run = 1; run <= runs; ++run) {
        std::printf("run %d\n", run);
        if (vault)
            windows->closeVault(vault);
        window = windows->newWindow();
        window->resize(1280, 800);
        vault = windows->open(large, window, window->currentVault());
        QApplication::processEvents();

        // Unlock; the clock starts once the document is decoded and attached.
        const double rssBefore = residentMiB();
        double rssDocument = 0;
        auto* session = &vault->session();
        QEventLoop unlocking;
        const auto reset = QObject::connect(session, &state::DatabaseSession::documentReset, &application, [&] {
            rssDocument = residentMiB();
            paints.wanted = [vault](QWidget* w) { return inside(w, vault->unlockedPage()); };
            paints.seen = false;
            paints.ended = -1;
            paints.loop = &unlocking;
            paints.clock.start();
        });
        session->attemptUnlock(kdbx::SecureBytes::fromText("bench"));
        unlocking.exec();
        QObject::disconnect(reset);
        paints.loop = nullptr;
        paints.wanted = nullptr;
        note("document to first painted unlocked page, ms", double(paints.ended) / 1e6);

        auto* browse = vault->browseView();
        auto* table = browse->entryTable();
        auto* viewport = table->viewport();
        const auto inTable = [viewport](QWidget* w) { return w == viewport; };
        const auto top = browse->groupModel().topIndex();
        note("choosing the group to its entries painted, ms", paints.time(inTable, [&] {
            browse->groupTree()->setCurrentIndex(browse->groupModel().index(0, 0, top));
        }));
        if (browse->sortProxy().rowCount() != int(entries)) {
            std::fprintf(stderr, "the group lists %d entries\n", browse->sortProxy().rowCount());
            return 1;
        }
        const double rssPage = residentMiB();
        note("document, MiB", rssDocument - rssBefore);
        note("window beyond the document, MiB", rssPage - rssDocument);
        note("window beyond the document, % of document", 100.0 * (rssPage - rssDocument) / (rssDocument - rssBefore));

        auto* header = table->horizontalHeader();
        note("click Title (ascending) to repaint, ms",
             paints.time(inTable, [&] { clickHeader(header, ui::EntryTableModel::title); }));
        note("  of which the click on Title itself, ms", paints.inAction);
        note("click Modified (ascending) to repaint, ms",
             paints.time(inTable, [&] { clickHeader(header, ui::EntryTableModel::modified); }));
        note("  of which the click on Modified itself, ms", paints.inAction);
        note("click Modified (descending) to repaint, ms",
             paints.time(inTable, [&] { clickHeader(header, ui::EntryTableModel::modified); }));
        note("click Modified (back to file order) to repaint, ms",
             paints.time(inTable, [&] { clickHeader(header, ui::EntryTableModel::modified); }));

        // The search field is placed in the window's toolbar; the keys go to it as typed.
        auto* search = browse->searchField();
        search->setFocus();
        const QString term = QStringLiteral("zebra");
        for (int i = 0; i < term.size(); ++i) {
            note("keystroke " + std::to_string(i + 1) + " of \"zebra\" to repaint, ms",
                 paints.time(inTable, [&] { type(search, term[i]); }));
            if (i == 0)
                note("  of which the keystroke itself, ms", paints.inAction);
        }
        std::printf("  (%d entries found)\n", browse->sortProxy().rowCount());
        note("clearing the search to repaint, ms", paints.time(inTable, [&] { search->clear(); }));

        auto* inspector = vault->unlockedPage()->findChild<ui::EntryInspector*>();
        const auto inInspector = [inspector](QWidget* w) { return inside(w, inspector); };
        const int row = int(entries) / 2;
        note("selecting an entry to the inspector painted, ms", paints.time(inInspector, [&] {
            table->setCurrentIndex(browse->sortProxy().index(row, 0));
        }));
        note("  of which the selection itself, ms", paints.inAction);
        if (!inspector->entry() || inspector->titleField()->text().isEmpty()) {
            std::fprintf(stderr, "the inspector is empty\n");
            return 1;
        }

        int resets = 0;
        const auto counted = [&resets] { ++resets; };
        const auto c1 = QObject::connect(&browse->entryModel(), &QAbstractItemModel::modelAboutToBeReset, counted);
        const auto c2 = QObject::connect(&browse->sortProxy(), &QAbstractItemModel::modelAboutToBeReset, counted);
        const auto entry = *inspector->entry();
        note("editing one title to its row repainted, ms", paints.time(inTable, [&] {
            session->editField(entry, "Title", "Edited " + std::to_string(run));
        }));
        note("  of which the edit command itself, ms", paints.inAction);
        note("model resets during the edit", resets);
        QObject::disconnect(c1);
        QObject::disconnect(c2);

        // What sorting (its keys) and searching (its gathered texts) added since the page was painted.
        note("sorting and searching since, MiB", residentMiB() - rssPage);

        // Ctrl+S through the window's menu action, with a probe on the event loop.
        QAction* save = nullptr;
        for (auto* action : window->findChildren<QAction*>())
            if (action->shortcut() == QKeySequence(QKeySequence::Save) && action->isEnabled())
                save = action;
        if (!save) {
            std::fprintf(stderr, "no Save action\n");
            return 1;
        }
        QElapsedTimer clock;
        qint64 last = 0, worst = 0, savedAt = -1;
        QTimer probe;
        probe.setInterval(5);
        QObject::connect(&probe, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            worst = std::max(worst, now - last);
            last = now;
        });
        QEventLoop saving;
        const auto s1 = QObject::connect(session, &state::DatabaseSession::saved, &application, [&] {
            savedAt = clock.nsecsElapsed();
            QTimer::singleShot(100, &saving, &QEventLoop::quit);
        });
        const auto s2 = QObject::connect(session, &state::DatabaseSession::saveFailed, &application,
                                         [&](const QString& cause) {
                                             std::fprintf(stderr, "save failed: %s\n", qPrintable(cause));
                                             saving.quit();
                                         });
        clock.start();
        probe.start();
        save->trigger();
        saving.exec();
        probe.stop();
        QObject::disconnect(s1);
        QObject::disconnect(s2);
        if (savedAt < 0)
            return 1;
        worst = std::max(worst, clock.nsecsElapsed() - last);
        note("Ctrl+S to the file replaced, ms", double(savedAt) / 1e6);
        note("longest event-loop gap while saving, ms", double(worst) / 1e6);
    }
    std::printf("\nmedians of %d runs, %zu entries\n", runs, entries);
    for (const auto& name : order)
        std::printf("| %s | %.1f |\n", name.c_str(), median(results[name]));
    windows.reset();
    return 0;
}
