// A main for a fuzz harness without libFuzzer: runs the harness over the empty input and every file in the
// directories (or files) named on the command line, so fixed crashes stay fixed in any build.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& file, std::size_t& count)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        std::exit(2);
    }
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++count;
}

} // namespace

int main(int argc, char** argv)
{
    std::size_t count = 0;
    LLVMFuzzerTestOneInput(nullptr, 0);
    ++count;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            std::vector<std::filesystem::path> files;
            for (const auto& e : std::filesystem::recursive_directory_iterator(path))
                if (e.is_regular_file())
                    files.push_back(e.path());
            std::sort(files.begin(), files.end());
            for (const auto& f : files)
                replay(f, count);
        } else if (std::filesystem::exists(path)) {
            replay(path, count);
        }
    }
    std::printf("replayed %zu inputs\n", count);
    return 0;
}
