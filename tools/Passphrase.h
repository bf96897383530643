// tools/Passphrase.h: passphrases drawn without bias from a word list (the EFF large list by default).
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::tools {

// Lines split at "\n", empty lines dropped; the word is the text after the tab ("11111\tabacus"), or the
// whole line when it holds no tab. A trailing "\r" is not part of the word.
std::vector<std::string> parseWordList(std::string_view text);

// The list in a file; empty when the file is missing or unreadable (word mode is then unavailable).
std::vector<std::string> loadWordList(const std::filesystem::path& path);

// The shipped EFF list, read on first use and kept for the life of the process.
const std::vector<std::string>& effWordList();

// Uniform in 0..n-1 for n in 1..65536, two random bytes (big-endian) per attempt with rejection.
std::size_t drawWordIndex(std::size_t n);

// `count` words joined by `separator`; empty when the list is empty.
kdbx::SecureBytes passphrase(std::span<const std::string> words, std::size_t count, std::string_view separator);

} // namespace quillon::tools
