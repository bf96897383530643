#include "tests/support/TestDb.h"

#include "kdbx/Argon2Kdf.h"
#include "kdbx/BlockStream.h"
#include "kdbx/ByteReader.h"
#include "kdbx/KdbxTime.h"

#include <sstream>
#include <stdexcept>

namespace quillon::test {

kdbx::Credentials passwordOnly(std::string_view password)
{
    kdbx::Credentials c;
    c.password = kdbx::SecureBytes::fromText(password);
    return c;
}

std::unique_ptr<kdbx::KdbxFile> tinyDatabase(const TestDbOptions& options)
{
    auto file = kdbx::KdbxFile::newDatabase();
    file->header.cipher.assign(options.cipher.begin(), options.cipher.end());
    file->header.compressed = options.compressed;
    auto& kdf = file->header.kdf.entries;
    kdf["$UUID"] = std::vector<std::uint8_t>(options.kdf.begin(), options.kdf.end());
    kdf["M"] = std::uint64_t{64 * 1024};
    kdf["I"] = std::uint64_t{1};
    kdf["P"] = std::uint32_t{1};
    pugi::xml_node group = file->document.child("KeePassFile").child("Root").child("Group");
    pugi::xml_node entry = group.append_child("Entry");
    entry.append_child("UUID").text().set(kdbx::newUuidText().c_str());
    for (auto [key, value, isProtected] : {std::tuple{"Title", "Sample", false}, {"UserName", "alice", false},
                                           {"Password", "s3cret", true}}) {
        pugi::xml_node s = entry.append_child("String");
        s.append_child("Key").text().set(key);
        pugi::xml_node v = s.append_child("Value");
        if (isProtected)
            v.append_attribute("Protected").set_value("True");
        v.text().set(value);
    }
    return file;
}

std::vector<std::uint8_t> tinyFile(const kdbx::Credentials& credentials, const TestDbOptions& options)
{
    return tinyDatabase(options)->save(credentials);
}

std::vector<std::uint8_t> withHeader(kdbx::ByteView file, const kdbx::Credentials& credentials,
                                     const std::function<void(kdbx::OuterHeader&)>& change)
{
    kdbx::ByteReader reader(file);
    kdbx::ParsedOuterHeader parsed = kdbx::parseOuterHeader(reader);
    reader.skip(64);
    change(parsed.header);
    std::vector<std::uint8_t> out = kdbx::serialiseOuterHeader(parsed.header);
    const kdbx::SecureBytes transformed = kdbx::transformKey(kdbx::compositeKey(credentials), parsed.header.kdf);
    const kdbx::DerivedKeys keys = kdbx::deriveKeys(parsed.header.masterSeed, transformed);
    const kdbx::Digest256 digest = kdbx::headerDigest(out);
    const kdbx::Digest256 mac = kdbx::headerHmac(out, keys.hmacBaseKey);
    out.insert(out.end(), digest.begin(), digest.end());
    out.insert(out.end(), mac.begin(), mac.end());
    out.insert(out.end(), reader.rest().begin(), reader.rest().end());
    return out;
}

std::vector<std::uint8_t> headerOnlyFile(const kdbx::OuterHeader& header)
{
    std::vector<std::uint8_t> file = kdbx::serialiseOuterHeader(header);
    const kdbx::Digest256 digest = kdbx::headerDigest(file);
    file.insert(file.end(), digest.begin(), digest.end());
    file.resize(file.size() + 32);
    return file;
}

std::string field(pugi::xml_node entry, std::string_view key, std::string_view missing)
{
    for (pugi::xml_node s : entry.children("String"))
        if (key == s.child_value("Key"))
            return s.child_value("Value");
    return std::string(missing);
}

std::string xmlText(const pugi::xml_node& node)
{
    std::ostringstream out;
    node.print(out, "", pugi::format_raw);
    return out.str();
}

void setDocument(kdbx::KdbxFile& file, std::string_view xml)
{
    if (!file.document.load_buffer(xml.data(), xml.size(), kdbx::xmlParseOptions, pugi::encoding_utf8))
        throw std::invalid_argument("test XML does not parse");
}

} // namespace quillon::test
