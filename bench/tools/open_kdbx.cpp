// Opens a database and counts its entries; with --save, also saves it in place the way the application
// does (temporary file beside it, decoded back, renamed over it), as `keepassxc-cli db-edit` re-saves one.
// The password comes on standard input.
//   open_kdbx [--save] DATABASE < password
#include "files/DatabaseFile.h"

#include <cstdio>
#include <exception>
#include <string_view>

using namespace quillon;

int main(int argc, char** argv)
{
    const bool save = argc == 3 && std::string_view(argv[1]) == "--save";
    if (argc != 2 && !save) {
        std::fprintf(stderr, "usage: %s [--save] DATABASE < password\n", argv[0]);
        return 2;
    }
    kdbx::SecureBytes password;
    for (int c; (c = std::getchar()) != EOF && c != '\n';)
        password.push_back(static_cast<std::uint8_t>(c));
    kdbx::Credentials credentials;
    credentials.password = std::move(password);

    try {
        auto db = files::DatabaseFile::open(argv[argc - 1], credentials);
        std::printf("entries: %zu\n", kdbx::countDocument(db.file().document).entries);
        if (save)
            db.save(credentials, {});
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
