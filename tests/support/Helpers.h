// tests/support/Helpers.h: the small helpers several suites share: bytes from text, environment, argv,
// small stacks.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes bytesOf(std::string_view s) { return {s.begin(), s.end()}; }
inline Bytes bytesOf(const kdbx::SecureBytes& s) { return {s.span().begin(), s.span().end()}; }
inline kdbx::ByteView viewOf(std::string_view s) { return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()}; }
// Hexadecimal digits, spaces allowed between them; a malformed text fails the test that uses it.
Bytes hex(std::string_view digits);

// Sets (or, with no value, removes) an environment variable for its lifetime.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

// An argv array (null-terminated) over its own copies of the arguments.
class Argv {
public:
    explicit Argv(std::vector<std::string> args);
    char** data() noexcept { return pointers_.data(); }
    std::vector<char*> list() const { return {pointers_.begin(), pointers_.end() - 1}; }

private:
    std::vector<std::string> storage_;
    std::vector<char*> pointers_;
};

// Runs f on a thread with a small stack, as a worker thread of the application might have; rethrows
// what it throws.
void onSmallStack(const std::function<void()>& f, std::size_t stackBytes = 512 * 1024);

} // namespace quillon::test
