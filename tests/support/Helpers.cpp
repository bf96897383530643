#include "tests/support/Helpers.h"

#include "kdbx/Encoding.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstdlib>
#include <exception>

namespace quillon::test {

Bytes hex(std::string_view digits)
{
    std::string compact(digits);
    std::erase(compact, ' ');
    auto bytes = kdbx::hexDecode(compact);
    EXPECT_TRUE(bytes) << "not hexadecimal: " << digits;
    return bytes ? std::move(*bytes) : Bytes{};
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name)
{
    if (const char* old = std::getenv(name))
        previous_ = old;
    value ? ::setenv(name, value, 1) : ::unsetenv(name);
}

ScopedEnv::~ScopedEnv() { previous_ ? ::setenv(name_.c_str(), previous_->c_str(), 1) : ::unsetenv(name_.c_str()); }

Argv::Argv(std::vector<std::string> args) : storage_(std::move(args))
{
    for (auto& s : storage_)
        pointers_.push_back(s.data());
    pointers_.push_back(nullptr);
}

void onSmallStack(const std::function<void()>& f, std::size_t stackBytes)
{
    pthread_attr_t attr;
    ASSERT_EQ(pthread_attr_init(&attr), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, stackBytes), 0);
    struct Call {
        const std::function<void()>* f;
        std::exception_ptr error;
    } call{&f, nullptr};
    pthread_t thread;
    const int made = pthread_create(
        &thread, &attr,
        [](void* p) -> void* {
            auto* c = static_cast<Call*>(p);
            try {
                (*c->f)();
            } catch (...) {
                c->error = std::current_exception();
            }
            return nullptr;
        },
        &call);
    pthread_attr_destroy(&attr);
    ASSERT_EQ(made, 0);
    pthread_join(thread, nullptr);
    if (call.error)
        std::rethrow_exception(call.error);
}

} // namespace quillon::test
