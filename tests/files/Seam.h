// tests/files/Seam.h: drives the file seam in tests: counts its calls, fails one, or acts before one.
#pragma once

#include "files/Posix.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"

#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace quillon::test {

// Installed for its lifetime. The action sees the 1-based index of each call and its kind, and returns an
// errno to fail that call or zero to let it through.
class Interception {
public:
    using Action = std::function<int(int index, files::posix::Call call)>;
    explicit Interception(Action action = {})
        : action_(std::move(action)),
          previous_(files::posix::setInterceptor([this](files::posix::Call call) {
              calls_.push_back(call);
              return action_ ? action_(static_cast<int>(calls_.size()), call) : 0;
          }))
    {
    }
    ~Interception() { files::posix::setInterceptor(std::move(previous_)); }
    Interception(const Interception&) = delete;
    Interception& operator=(const Interception&) = delete;

    const std::vector<files::posix::Call>& calls() const noexcept { return calls_; }

private:
    Action action_;
    files::posix::Interceptor previous_;
    std::vector<files::posix::Call> calls_;
};

// Temporary files of SafeWrite left in a folder: "." + name + "." + upper-case UUID + ".tmp".
inline std::vector<std::string> leftovers(const std::filesystem::path& folder)
{
    static const std::regex pattern(R"(\..+\.[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\.tmp)");
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (std::regex_match(name, pattern))
            found.push_back(name);
    }
    return found;
}

inline bool exists(const std::filesystem::path& path)
{
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

} // namespace quillon::test
