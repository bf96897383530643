// tests/support/Peers.h: the other KDBX programs that interoperability tests run, and the corpus.
#pragma once

#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

namespace quillon::test {

// True when QUILLON_REQUIRE_PEERS / QUILLON_REQUIRE_CORPUS / QUILLON_REQUIRE_ROOT is set to 1: a missing
// peer, corpus or root then fails the test instead of skipping it.
bool peersRequired();
bool corpusRequired();
bool rootRequired();

std::optional<std::filesystem::path> keepassxcCli();
// The system Python with pykeepass importable (not a virtual environment's).
std::optional<std::filesystem::path> pykeepassPython();
// The node_modules folder that holds kdbxweb and hash-wasm (scripts/install-deps puts them in .deps/node;
// QUILLON_NODE_MODULES overrides), when Node.js is on the PATH too.
std::optional<std::filesystem::path> kdbxwebModules();
// ../shared/corpus beside the source tree, or QUILLON_CORPUS_DIR.
std::optional<std::filesystem::path> corpusDir();

// Runs keepassxc-cli with the password (if any) fed on standard input, as its prompt expects.
ProcessResult keepassxc(const std::vector<std::string>& args, const std::string& input = {});
// Runs a Python script with pykeepass; arguments follow the script.
ProcessResult pykeepass(const std::string& script, const std::vector<std::string>& args = {});
// Runs a Node.js script that can require kdbxweb and hash-wasm; arguments follow the script
// (process.argv.slice(1) in the script).
ProcessResult kdbxweb(const std::string& script, const std::vector<std::string>& args = {});

} // namespace quillon::test

// Skips the test when the peer is missing, or fails it when peers are required.
#define QUILLON_REQUIRE_PEER(optionalPath, name)                                                                       \
    do {                                                                                                               \
        if (!(optionalPath)) {                                                                                         \
            if (::quillon::test::peersRequired())                                                                      \
                FAIL() << name << " is required (QUILLON_REQUIRE_PEERS=1) but was not found";                          \
            GTEST_SKIP() << name << " not installed";                                                                  \
        }                                                                                                              \
    } while (false)

// Mounting and acting as another user need root.
#define QUILLON_REQUIRE_ROOT(why)                                                                                      \
    do {                                                                                                               \
        if (::geteuid() != 0) {                                                                                        \
            if (::quillon::test::rootRequired())                                                                       \
                FAIL() << why << " needs root, which QUILLON_REQUIRE_ROOT=1 expects";                                  \
            GTEST_SKIP() << why << " needs root";                                                                      \
        }                                                                                                              \
    } while (false)

#define QUILLON_REQUIRE_CORPUS_DIR(optionalPath)                                                                       \
    do {                                                                                                               \
        if (!(optionalPath)) {                                                                                         \
            if (::quillon::test::corpusRequired())                                                                     \
                FAIL() << "the corpus is required (QUILLON_REQUIRE_CORPUS=1) but was not found";                       \
            GTEST_SKIP() << "corpus not found";                                                                        \
        }                                                                                                              \
    } while (false)
