#include "app/VerifyReport.h"

#include "files/DatabaseFile.h"
#include "kdbx/KdbxFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace quillon::app {
namespace {

// Characters are counted as Unicode code points. Returns the byte offset at which each one starts.
std::vector<std::size_t> characterOffsets(std::string_view text)
{
    std::vector<std::size_t> offsets;
    offsets.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80)
            offsets.push_back(i);
    return offsets;
}

std::size_t characterCount(std::string_view text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// A copy of the document's root with every protected value replaced by its length.
std::string maskedText(const pugi::xml_document& document)
{
    pugi::xml_document copy;
    copy.append_copy(document.document_element());
    kdbx::forEachProtectedValue(copy, [](pugi::xml_node value) {
        const std::string mask = "[" + std::to_string(characterCount(value.text().get())) + " characters]";
        value.text().set(mask.c_str());
    });
    const kdbx::SecureBytes text = kdbx::serialiseXml(copy.document_element());
    return std::string(text.view());
}

std::filesystem::path temporaryDirectory()
{
    const char* tmp = std::getenv("TMPDIR");
    std::string dir = tmp && *tmp ? tmp : "/tmp";
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    return dir;
}

// Replaces any existing file, and never follows a link someone else planted in the shared folder.
void writePrivateFile(const std::filesystem::path& path, std::string_view text)
{
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw std::system_error(errno, std::generic_category(), "Could not replace " + path.string());
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "Could not create " + path.string());
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            throw std::system_error(error, std::generic_category(), "Could not write " + path.string());
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0)
        throw std::system_error(errno, std::generic_category(), "Could not write " + path.string());
}

std::string_view slice(std::string_view text, const std::vector<std::size_t>& offsets, std::size_t from,
                       std::size_t to)
{
    from = std::min(from, offsets.size());
    to = std::min(to, offsets.size());
    const std::size_t begin = from < offsets.size() ? offsets[from] : text.size();
    const std::size_t end = to < offsets.size() ? offsets[to] : text.size();
    return text.substr(begin, end - begin);
}

int reportDifference(const kdbx::SecureBytes& before, const kdbx::SecureBytes& after,
                     const pugi::xml_document& first, const pugi::xml_document& second, std::ostream& out)
{
    out << "round-trip: XML DIFFERS\n";
    const std::string maskedBefore = maskedText(first);
    const std::string maskedAfter = maskedText(second);
    const std::filesystem::path dir = temporaryDirectory();
    writePrivateFile(dir / "kdbx-before.xml", maskedBefore);
    writePrivateFile(dir / "kdbx-after.xml", maskedAfter);
    out << "  wrote kdbx-before.xml and kdbx-after.xml to " << dir.string() << ", protected values masked\n";
    out << "  lengths: " << characterCount(before.view()) << " -> " << characterCount(after.view()) << "\n";
    if (maskedBefore == maskedAfter) {
        out << "  the difference is inside a protected value, which is not shown\n";
        return 1;
    }
    const auto b = characterOffsets(maskedBefore);
    const auto a = characterOffsets(maskedAfter);
    std::size_t i = 0;
    const std::size_t shorter = std::min(b.size(), a.size());
    while (i < shorter) {
        const std::string_view cb = slice(maskedBefore, b, i, i + 1);
        const std::string_view ca = slice(maskedAfter, a, i, i + 1);
        if (cb != ca)
            break;
        ++i;
    }
    const std::size_t from = i >= 60 ? i - 60 : 0;
    out << "  first difference at character " << i << ":\n";
    out << "    before: ..." << slice(maskedBefore, b, from, i + 60) << "\n";
    out << "    after:  ..." << slice(maskedAfter, a, from, i + 60) << "\n";
    return 1;
}

} // namespace

int reportRoundTrip(const pugi::xml_document& first, const pugi::xml_document& second, std::ostream& out)
{
    const kdbx::SecureBytes before = kdbx::serialiseXml(first.document_element());
    const kdbx::SecureBytes after = kdbx::serialiseXml(second.document_element());
    if (before.view() == after.view()) {
        out << "round-trip: XML identical\n";
        return 0;
    }
    return reportDifference(before, after, first, second, out);
}

int runVerify(const std::filesystem::path& path, const kdbx::SecureBytes& password, std::ostream& out)
{
    try {
        const std::vector<std::uint8_t> bytes = files::readDiskBytes(path).bytes;
        kdbx::Credentials credentials;
        credentials.password = password.copy();

        std::unique_ptr<kdbx::KdbxFile> first = kdbx::KdbxFile::open(bytes, credentials);
        const pugi::xml_node root = first->document.document_element();
        out << "opened: " << (root ? root.name() : "?") << "\n";
        const kdbx::DocumentCounts counts = kdbx::countDocument(first->document);
        out << "entries: " << counts.entries << ", protected values: " << counts.protectedValues
            << ", binaries: " << first->inner.binaries.size() << "\n";

        const std::vector<std::uint8_t> saved = first->save(credentials);
        std::unique_ptr<kdbx::KdbxFile> second = kdbx::KdbxFile::open(saved, credentials);

        return reportRoundTrip(first->document, second->document, out);
    } catch (const std::system_error& e) {
        out << "failed: " << e.code().message() << "\n";
        return 1;
    } catch (const std::exception& e) {
        out << "failed: " << e.what() << "\n";
        return 1;
    }
}

} // namespace quillon::app
