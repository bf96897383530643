#include "tests/hygiene/Canary.h"

#include "kdbx/Random.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace quillon::test {

Canary::Canary(std::size_t length)
{
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    const std::vector<std::uint8_t> picks = kdbx::randomBytes(length);
    pad_ = kdbx::randomBytes(length);
    masked_.resize(length);
    for (std::size_t i = 0; i < length; ++i)
        masked_[i] = static_cast<std::uint8_t>(alphabet[picks[i] % 62] ^ pad_[i]);
}

kdbx::SecureBytes Canary::reveal() const
{
    kdbx::SecureBytes out(masked_.size());
    for (std::size_t i = 0; i < masked_.size(); ++i)
        out[i] = static_cast<std::uint8_t>(masked_[i] ^ pad_[i]);
    return out;
}

bool Canary::isAt(const std::uint8_t* text, std::size_t available) const noexcept
{
    if (available < masked_.size())
        return false;
    for (std::size_t i = 0; i < masked_.size(); ++i)
        if ((text[i] ^ pad_[i]) != masked_[i])
            return false;
    return true;
}

std::vector<std::size_t> Canary::findIn(kdbx::ByteView bytes) const
{
    std::vector<std::size_t> out;
    if (masked_.empty())
        return out;
    const int first = masked_[0] ^ pad_[0];
    const std::uint8_t* p = bytes.data();
    const std::uint8_t* end = bytes.data() + bytes.size();
    while (p < end) {
        p = static_cast<const std::uint8_t*>(std::memchr(p, first, static_cast<std::size_t>(end - p)));
        if (!p)
            break;
        if (isAt(p, static_cast<std::size_t>(end - p)))
            out.push_back(static_cast<std::size_t>(p - bytes.data()));
        ++p;
    }
    return out;
}

namespace {

// Clears the stack below the caller's frame.
__attribute__((noinline)) void burnStack() noexcept
{
    std::uint8_t area[64 * 1024];
    kdbx::secureWipe(area, sizeof area);
}

__attribute__((noinline)) std::vector<Sighting> scan(const std::vector<const Canary*>& canaries)
{
    struct Region {
        std::uintptr_t start, end;
        std::string name;
    };
    std::vector<Region> regions;
    {
        std::ifstream maps("/proc/self/maps");
        std::string line;
        while (std::getline(maps, line)) {
            std::istringstream in(line);
            std::string range, perms, offset, device, inode, name;
            in >> range >> perms >> offset >> device >> inode;
            std::getline(in >> std::ws, name);
            if (perms.size() < 2 || perms[0] != 'r' || perms[1] != 'w')
                continue;
            const auto dash = range.find('-');
            const std::uintptr_t start = std::stoull(range.substr(0, dash), nullptr, 16);
            const std::uintptr_t end = std::stoull(range.substr(dash + 1), nullptr, 16);
            // Sanitizer shadow and reserved ranges are terabytes of nothing.
            if (end - start > (std::uintptr_t{8} << 30))
                continue;
            regions.push_back({start, end, name});
        }
    }
    std::size_t longest = 0;
    for (const Canary* c : canaries)
        longest = std::max(longest, c->size());

    std::vector<Sighting> found;
    const int mem = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    if (mem < 0)
        return {{"cannot open /proc/self/mem", 0}};
    constexpr std::size_t step = std::size_t{1} << 20;
    std::vector<std::uint8_t> buffer(step + longest);
    for (const Region& r : regions) {
        for (std::uintptr_t at = r.start; at < r.end; at += step) {
            const std::size_t want = std::min<std::size_t>(buffer.size(), r.end - at);
            const ssize_t got = ::pread(mem, buffer.data(), want, static_cast<off_t>(at));
            if (got <= 0)
                continue;
            const kdbx::ByteView view(buffer.data(), static_cast<std::size_t>(got));
            for (std::size_t i = 0; i < canaries.size(); ++i)
                for (std::size_t offset : canaries[i]->findIn(view))
                    if (offset < step) {
                        char address[32];
                        std::snprintf(address, sizeof address, "%#zx", static_cast<std::size_t>(at + offset));
                        found.push_back({(r.name.empty() ? "[anonymous]" : r.name) + " at " + address, i});
                    }
        }
    }
    ::close(mem);
    kdbx::secureWipe(buffer.data(), buffer.size());
    return found;
}

} // namespace

std::vector<Sighting> scanOwnMemory(const std::vector<const Canary*>& canaries)
{
    std::vector<Sighting> found = scan(canaries);
    // The search held copies of what it found in its registers and frames; none may outlive it, or a
    // later search would find the searcher's own traces.
    burnStack();
    return found;
}

} // namespace quillon::test
