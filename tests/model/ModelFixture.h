// tests/model/ModelFixture.h: a small database tree with a fixed clock for the model's tests.
#pragma once

#include "kdbx/Encoding.h"
#include "kdbx/KdbxFile.h"
#include "model/Document.h"
#include "model/Entry.h"
#include "model/Group.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <regex>
#include <sstream>
#include <string>

namespace quillon::model::test {

inline constexpr std::int64_t fixedUnixSeconds = 1'700'000'000;

// A readable tag padded to 16 bytes, as base64: "@mail@" in fixture text stands for uuidOf("mail").
inline std::string uuidOf(std::string_view tag)
{
    std::string bytes(tag);
    bytes.resize(16, '-');
    return kdbx::base64Encode(kdbx::ByteView(reinterpret_cast<const std::uint8_t*>(bytes.data()), 16));
}

inline std::string expandUuids(std::string text)
{
    static const std::regex token("@([A-Za-z0-9-]+)@");
    std::string out;
    auto it = std::sregex_iterator(text.begin(), text.end(), token);
    std::size_t last = 0;
    for (; it != std::sregex_iterator(); ++it) {
        out.append(text, last, static_cast<std::size_t>(it->position()) - last);
        out += uuidOf((*it)[1].str());
        last = static_cast<std::size_t>(it->position() + it->length());
    }
    out.append(text, last);
    return out;
}

inline std::string serialise(const pugi::xml_document& xml) { return quillon::test::xmlText(xml); }

// The tree: Root { entry "Bank login"; Email { entry "Mail" }; Work { Projects { entry "Wiki" } } }
inline constexpr const char* sampleXml = R"(<?xml version="1.0" encoding="utf-8" standalone="yes"?>
<KeePassFile>
	<Meta>
		<Generator>Test</Generator>
		<HistoryMaxItems>10</HistoryMaxItems>
		<CustomData><Item><Key>k</Key><Value>v</Value></Item></CustomData>
	</Meta>
	<Root>
		<Group>
			<UUID>@root@</UUID>
			<Name>Root</Name>
			<Times><CreationTime>AAAAAAAAAAA=</CreationTime><LastModificationTime>AAAAAAAAAAA=</LastModificationTime></Times>
			<Entry>
				<UUID>@bank@</UUID>
				<Times><CreationTime>gO8w2w4AAAA=</CreationTime><LastModificationTime>gO8w2w4AAAA=</LastModificationTime><LastAccessTime>gO8w2w4AAAA=</LastAccessTime><Expires>False</Expires></Times>
				<String><Key>Title</Key><Value>Bank login</Value></String>
				<String><Key>UserName</Key><Value>alice</Value></String>
				<String><Key>Password</Key><Value Protected="True">s3cret</Value></String>
				<String><Key>URL</Key><Value>https://bank.example</Value></String>
				<String><Key>Notes</Key><Value>branch code 42</Value></String>
				<String><Key>PIN</Key><Value Protected="True">9876</Value></String>
				<AutoType><Enabled>True</Enabled><DataTransferObfuscation>0</DataTransferObfuscation></AutoType>
				<Tags>money;bank</Tags>
				<CustomData><Item><Key>x</Key><Value>y</Value></Item></CustomData>
				<Binary><Key>a.txt</Key><Value Ref="0"/></Binary>
				<Unknown flavour="odd">kept</Unknown>
			</Entry>
			<Group>
				<UUID>@email@</UUID>
				<Name>Email</Name>
				<Times><CreationTime>AAAAAAAAAAA=</CreationTime><LastModificationTime>AAAAAAAAAAA=</LastModificationTime></Times>
				<Entry>
					<UUID>@mail@</UUID>
					<Times><CreationTime>gO8w2w4AAAA=</CreationTime><LastModificationTime>gO8w2w4AAAA=</LastModificationTime><Expires>False</Expires></Times>
					<String><Key>Title</Key><Value>Mail</Value></String>
				</Entry>
			</Group>
			<Group>
				<UUID>@work@</UUID>
				<Name>Work</Name>
				<Times><CreationTime>AAAAAAAAAAA=</CreationTime><LastModificationTime>AAAAAAAAAAA=</LastModificationTime></Times>
				<Group>
					<UUID>@projects@</UUID>
					<Name>Projects</Name>
					<Times><CreationTime>AAAAAAAAAAA=</CreationTime></Times>
					<Entry>
						<UUID>@wiki@</UUID>
						<Times><CreationTime>gO8w2w4AAAA=</CreationTime><LastModificationTime>gO8w2w4AAAA=</LastModificationTime><Expires>False</Expires></Times>
						<String><Key>Title</Key><Value>Wiki</Value></String>
					</Entry>
				</Group>
			</Group>
		</Group>
	</Root>
</KeePassFile>
)";

// The options that opening a file uses, so that the model is tested on the documents it will really see.
inline constexpr unsigned parseFlags = kdbx::xmlParseOptions;

// Parses fixture text (after expanding @tag@ UUIDs) into a document viewed with a fixed clock.
class ModelFixture : public ::testing::Test {
protected:
    explicit ModelFixture(const char* text = sampleXml) { load(text); }

    void load(const std::string& text)
    {
        document_.reset();
        const auto result = xml.load_string(expandUuids(text).c_str(), parseFlags);
        ASSERT_TRUE(result) << result.description();
        document_ = std::make_unique<Document>(xml, [this] { return now; });
    }

    Document& doc() const { return *document_; }
    Group group(std::string_view tag) const
    {
        auto g = doc().findGroup(uuidOf(tag));
        if (!g)
            missing(tag);
        return *g;
    }
    Entry entry(std::string_view tag) const
    {
        auto e = doc().findEntry(uuidOf(tag));
        if (!e)
            missing(tag);
        return *e;
    }
    static Time fixedTime(std::int64_t offset = 0) { return Time(std::chrono::seconds(fixedUnixSeconds + offset)); }
    void advanceClock(std::int64_t seconds) { now += std::chrono::seconds(seconds); }

    pugi::xml_document xml;
    kdbx::SystemTime now{std::chrono::seconds(fixedUnixSeconds)};

private:
    // A missing fixture item is a broken test, not a result.
    [[noreturn]] static void missing(std::string_view tag)
    {
        std::fprintf(stderr, "fixture item %.*s is missing\n", int(tag.size()), tag.data());
        std::abort();
    }
    std::unique_ptr<Document> document_;
};

} // namespace quillon::model::test
