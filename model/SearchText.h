// model/SearchText.h: the lower-cased text that a search scope covers in one entry.
#pragma once

#include "kdbx/SecureBytes.h"
#include "model/Entry.h"
#include "model/Search.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstddef>
#include <future>
#include <thread>
#include <vector>

namespace quillon::model {

// Reusable: keeps its scratch space between entries.
class SearchText {
public:
    // Appends the scope's texts, in their fixed order, joined with single spaces and lower-cased.
    void append(pugi::xml_node entry, SearchScope scope, kdbx::SecureBytes& out);

    // Starts loading an entry's elements ahead of append(), so that walking many entries overlaps
    // their memory latency instead of paying it element by element. Only a hint: nothing is read.
    static void prefetch(pugi::xml_node entry) noexcept;

private:
    void add(std::string_view text, kdbx::SecureBytes& out);

    std::vector<CustomField> custom_;
    bool first_ = true;
};

// Gathering every entry's texts is bound by memory latency, not arithmetic, so a large tree is cut into
// contiguous parts, one per core (partCount), each gathered on its own thread into its own state.
// work(part, begin, end) runs once per part, the first on the calling thread; pugixml is only read
// meanwhile. Returns when every part is done.
inline std::size_t partCount(std::size_t count) noexcept
{
    constexpr std::size_t perPart = 1024;
    const std::size_t cores = std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 8);
    return std::clamp<std::size_t>(count / perPart, 1, cores);
}

template <class Work>
void inParts(std::size_t count, std::size_t parts, Work&& work)
{
    std::vector<std::future<void>> others;
    // Deferred when no thread can be had: that part then runs here, at the end.
    for (std::size_t i = 1; i < parts; ++i)
        others.push_back(std::async(std::launch::async | std::launch::deferred, [&work, i, parts, count] {
            work(i, count * i / parts, count * (i + 1) / parts);
        }));
    work(std::size_t{0}, std::size_t{0}, count / parts);
    for (auto& other : others)
        other.get();
}

} // namespace quillon::model
