// A database whose password and protected values are random canaries is opened, saved and closed; then
// the process's own memory and the temporary folder hold no trace of them.
#include "files/DatabaseFile.h"
#include "kdbx/KdbxFile.h"
#include "tests/hygiene/Canary.h"
#include "tests/support/Helpers.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

using namespace quillon;
using namespace quillon::test;

namespace {

struct Secrets {
    Canary password;
    Canary entryPassword;
    Canary customField;
    Canary historyPassword;
    std::vector<const Canary*> all() const { return {&password, &entryPassword, &customField, &historyPassword}; }
};

kdbx::Credentials credentialsOf(const Canary& password)
{
    kdbx::Credentials c;
    c.password = password.reveal();
    return c;
}

void addProtected(pugi::xml_node entry, const char* key, const Canary& value)
{
    pugi::xml_node s = entry.append_child("String");
    s.append_child("Key").text().set(key);
    pugi::xml_node v = s.append_child("Value");
    v.append_attribute("Protected").set_value("True");
    const kdbx::SecureBytes clear = value.reveal();
    v.text().set(reinterpret_cast<const char*>(clear.data()), clear.size());
}

// Our writer's file holding every canary; everything used to make it is gone when this returns.
std::vector<std::uint8_t> canaryFile(const Secrets& s)
{
    auto file = tinyDatabase();
    pugi::xml_node entry = file->document.child("KeePassFile").child("Root").child("Group").child("Entry");
    addProtected(entry, "Recovery", s.customField);
    pugi::xml_node second = entry.parent().append_child("Entry");
    addProtected(second, "Password", s.entryPassword);
    addProtected(second.append_child("History").append_child("Entry"), "Password", s.historyPassword);
    return file->save(credentialsOf(s.password));
}

std::string describe(const std::vector<Sighting>& found)
{
    std::string out;
    for (const Sighting& f : found)
        out += "canary " + std::to_string(f.canary) + " in " + f.where + "\n";
    return out;
}

TEST(MemoryHygiene, noSecretSurvivesClosingTheDatabase)
{
    const Secrets secrets;
    const std::vector<std::uint8_t> bytes = canaryFile(secrets);
    for (const Canary* c : secrets.all())
        EXPECT_TRUE(c->findIn(bytes).empty()) << "a canary is in the saved file in the clear";

    {
        const kdbx::Credentials credentials = credentialsOf(secrets.password);
        auto file = kdbx::KdbxFile::open(bytes, credentials);
        ASSERT_EQ(kdbx::countDocument(file->document).protectedValues, 4u);
        const std::vector<std::uint8_t> saved = file->save(credentials);
        file = kdbx::KdbxFile::open(saved, credentials);
        // The scan sees secrets that are really there: every canary while the database is open.
        std::vector<bool> seen(secrets.all().size(), false);
        for (const Sighting& f : scanOwnMemory(secrets.all()))
            seen[f.canary] = true;
        EXPECT_EQ(seen, std::vector<bool>(seen.size(), true));
    }

    const std::vector<Sighting> found = scanOwnMemory(secrets.all());
    EXPECT_TRUE(found.empty()) << describe(found);
}

// Records every file created in a folder and keeps it open, so its contents can be read even after it
// was deleted.
class FolderWatch {
public:
    explicit FolderWatch(const std::vector<std::filesystem::path>& folders)
    {
        fd_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        for (const auto& folder : folders)
            watch(folder);
        thread_ = std::thread([this] { loop(); });
    }
    ~FolderWatch()
    {
        stop();
        for (auto& [path, fd] : opened_)
            ::close(fd);
        ::close(fd_);
    }
    void stop()
    {
        if (thread_.joinable()) {
            running_ = false;
            thread_.join();
        }
    }
    // Every file seen, with what it holds now (or held when it was deleted).
    std::map<std::string, std::vector<std::uint8_t>> contents() const
    {
        std::map<std::string, std::vector<std::uint8_t>> out;
        for (const auto& [path, fd] : opened_) {
            std::vector<std::uint8_t> data;
            std::uint8_t chunk[65536];
            off_t at = 0;
            for (ssize_t n; (n = ::pread(fd, chunk, sizeof chunk, at)) > 0; at += n)
                data.insert(data.end(), chunk, chunk + n);
            out[path] = std::move(data);
        }
        return out;
    }

private:
    void watch(const std::filesystem::path& dir)
    {
        const int wd = inotify_add_watch(fd_, dir.c_str(), IN_CREATE | IN_MODIFY | IN_MOVED_TO);
        dirs_[wd] = dir;
    }
    void loop()
    {
        alignas(inotify_event) char events[16384];
        while (running_) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 20) <= 0)
                continue;
            const ssize_t n = ::read(fd_, events, sizeof events);
            for (ssize_t i = 0; i < n;) {
                const auto* e = reinterpret_cast<const inotify_event*>(events + i);
                i += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
                if (e->len == 0)
                    continue;
                const std::filesystem::path path = dirs_[e->wd] / e->name;
                if (e->mask & IN_ISDIR) {
                    watch(path);
                } else if (!opened_.count(path.string())) {
                    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
                    if (file >= 0)
                        opened_[path.string()] = file;
                }
            }
        }
    }

    int fd_ = -1;
    std::atomic<bool> running_{true};
    std::map<int, std::filesystem::path> dirs_;
    std::map<std::string, int> opened_;
    std::thread thread_;
};

TEST(MemoryHygiene, noTemporaryFileHoldsASecretInTheClear)
{
    const Secrets secrets;
    const TempDir work;
    const TempDir tmp;
    const auto database = work / "canary.kdbx";
    writeFile(database, canaryFile(secrets));

    std::optional<test::ScopedEnv> tmpdir(std::in_place, "TMPDIR", tmp.path().c_str());
    // The save writes its temporary file beside the database; anything else would go to TMPDIR.
    FolderWatch watch({work.path(), tmp.path()});
    writeFile(tmp / "control", "the watch sees files");
    {
        const kdbx::Credentials credentials = credentialsOf(secrets.password);
        auto db = files::DatabaseFile::open(database, credentials);
        db.save(credentials, {});
    }
    ProcessOptions options;
    options.env["TMPDIR"] = tmp.path().string();
    std::vector<std::string> argv = {QUILLON_BINARY_DIR "/app/quillon", "--verify", database.string(),
                                     std::string(secrets.password.reveal().view())};
    const ProcessResult verify = run(argv, options);
    kdbx::secureWipe(argv[3].data(), argv[3].size());
    EXPECT_EQ(verify.exitCode, 0) << verify.out;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    watch.stop();
    tmpdir.reset();

    const auto files = watch.contents();
    ASSERT_TRUE(files.count((tmp / "control").string()));
    EXPECT_GE(files.size(), 2u) << "the save's temporary file was not seen";
    for (const auto& [path, data] : files)
        for (std::size_t i = 0; const Canary* c : secrets.all()) {
            EXPECT_TRUE(c->findIn(data).empty()) << "canary " << i << " in " << path;
            ++i;
        }
    for (const Canary* c : secrets.all())
        EXPECT_TRUE(c->findIn(readFile(database)).empty());
}

} // namespace
