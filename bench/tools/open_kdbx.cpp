// Opens a database and counts its entries, as `keepassxc-cli db-info` opens one; with a second path, also
// saves it there (as `keepassxc-cli db-edit` does). The password comes on standard input.
//   open_kdbx DATABASE [SAVE-TO] < password
#include "kdbx/KdbxFile.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

using namespace quillon;

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: %s DATABASE [SAVE-TO] < password\n", argv[0]);
        return 2;
    }
    kdbx::SecureBytes password;
    for (int c; (c = std::getchar()) != EOF && c != '\n';)
        password.push_back(static_cast<std::uint8_t>(c));
    kdbx::Credentials credentials;
    credentials.password = std::move(password);

    std::ifstream in(argv[1], std::ios::binary);
    const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    try {
        const auto file = kdbx::KdbxFile::open(bytes, credentials);
        std::printf("entries: %zu\n", kdbx::countDocument(file->document).entries);
        if (argc == 3) {
            const std::vector<std::uint8_t> saved = file->save(credentials);
            std::ofstream(argv[2], std::ios::binary)
                .write(reinterpret_cast<const char*>(saved.data()), static_cast<std::streamsize>(saved.size()));
        }
    } catch (const std::exception& e) {
        std::printf("%s\n", e.what());
        return 1;
    }
    return 0;
}
