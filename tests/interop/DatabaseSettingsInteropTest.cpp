// A database saved after the settings form changed its cipher, key derivation and history limit opens in
// KeePassXC and pykeepass with exactly the new parameters.
#include "kdbx/CompositeKey.h"
#include "kdbx/KdbxFile.h"
#include "model/Document.h"
#include "state/Preferences.h"
#include "state/SettingsForm.h"
#include "tests/support/PeerDatabases.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <string>

namespace quillon::state {
namespace {

// Prints the cipher, the KDF's lanes, the history limit and every entry's title, as pykeepass reads them.
const char* const readScript = R"(
import sys
from pykeepass import PyKeePass
kp = PyKeePass(sys.argv[1], password=sys.argv[2])
header = kp.kdbx.header.value.dynamic_header
print(header.cipher_id.data)
print(header.kdf_parameters.data.dict['P'].value)
print(kp.tree.find('Meta/HistoryMaxItems').text)
print(','.join(sorted(e.title for e in kp.entries)))
)";

struct Change {
    int cipher;
    int kdf;
    const char* memory;
    const char* iterations;
    const char* threads;
    const char* history; // nullptr: "Unlimited"
    const char* keepassxcCipher;
    const char* keepassxcKdf;
    const char* pykeepass;
};

TEST(DatabaseSettingsInterop, savedChangesOpenInKeepassxcWithTheNewParameters)
{
    QUILLON_REQUIRE_PEER(test::pykeepassPython(), "pykeepass");
    QUILLON_REQUIRE_PEER(test::keepassxcCli(), "keepassxc-cli");

    test::TempDir dir;
    const auto path = dir / "settings.kdbx";
    test::PeerDatabase wanted; // AES-256, Argon2d 1 MiB, 2 passes, 1 lane
    wanted.entries = {{"", "Bank", "me", "secret", "", ""}, {"", "Mail", "me", "other", "", ""}};
    const auto made = test::makePykeepassDatabase(path, wanted);
    ASSERT_EQ(made.exitCode, 0) << made.err;

    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::fromText(*wanted.credentials.password);
    Preferences preferences(QString::fromStdString((dir / "Quillon.conf").string()));

    // Each change starts from the file the one before it saved; the second typed values are clamped.
    const Change changes[] = {
        {SettingsForm::chaCha20, SettingsForm::argon2id, "9", "3", "2", "7", "Cipher: ChaCha20 256-bit",
         "KDF: Argon2id (3 rounds, 9216 KB)", "chacha20\n2\n7\nBank,Mail\n"},
        {SettingsForm::aes256, SettingsForm::argon2d, "1", "0", "abc", nullptr, "Cipher: AES 256-bit",
         "KDF: Argon2d (1 rounds, 8192 KB)", "aes256\n2\n-1\nBank,Mail\n"},
    };
    for (const auto& change : changes) {
        auto file = kdbx::KdbxFile::open(test::readFile(path), credentials);
        model::Document document(file->document);
        auto form = SettingsForm::load(file->header, document, preferences);
        form.cipher = change.cipher;
        form.kdf = change.kdf;
        form.memory = QString::fromUtf8(change.memory);
        form.iterations = QString::fromUtf8(change.iterations);
        form.parallelism = QString::fromUtf8(change.threads);
        form.historyToggled(change.history == nullptr);
        if (change.history)
            form.historyField = QString::fromUtf8(change.history);
        ASSERT_TRUE(form.apply(file->header, document, preferences));
        test::writeFile(path, file->save(credentials));

        const auto info = test::keepassxcOn("db-info", path, wanted.credentials);
        ASSERT_EQ(info.exitCode, 0) << info.err;
        EXPECT_NE(info.out.find(std::string(change.keepassxcCipher) + "\n"), std::string::npos) << info.out;
        EXPECT_NE(info.out.find(std::string(change.keepassxcKdf) + "\n"), std::string::npos) << info.out;

        const auto read = test::pykeepass(readScript, {path.string(), *wanted.credentials.password});
        ASSERT_EQ(read.exitCode, 0) << read.err;
        EXPECT_EQ(read.out, change.pykeepass);
    }
}

} // namespace
} // namespace quillon::state
