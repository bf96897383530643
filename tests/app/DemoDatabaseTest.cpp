// The demo file that scripts/run opens is checked in; it must still open and hold what the demo maker makes.
#include "app/DemoDatabase.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>

#include <string>

using namespace quillon;

namespace {

// Names, fields (with their protection), attachments and history, in document order; UUIDs and times differ
// between two makes and are left out.
void describe(const kdbx::KdbxFile& file, pugi::xml_node node, const std::string& path, std::string& out)
{
    for (pugi::xml_node child : node.children()) {
        const std::string name = child.name();
        if (name == "Group") {
            const std::string inner = path + "/" + child.child_value("Name");
            out += "group " + inner + "\n";
            describe(file, child, inner, out);
        } else if (name == "Entry" || name == "History") {
            out += path + " " + name + "\n";
            describe(file, child, path + " >", out);
        } else if (name == "String") {
            const pugi::xml_node value = child.child("Value");
            out += path + " " + child.child_value("Key") + (value.attribute("Protected").as_bool() ? " [p]" : "") +
                   " = " + value.text().get() + "\n";
        } else if (name == "Binary") {
            const auto ref = child.child("Value").attribute("Ref").as_uint(~0u);
            ASSERT_LT(ref, file.inner.binaries.size());
            out += path + " attachment " + child.child_value("Key") + " = " +
                   std::string(file.inner.binaries[ref].data.view()) + "\n";
        }
    }
}

std::string describe(const kdbx::KdbxFile& file)
{
    const pugi::xml_node keePassFile = file.document.child("KeePassFile");
    std::string out = std::string("name ") + keePassFile.child("Meta").child_value("DatabaseName") + "\n";
    describe(file, keePassFile.child("Root"), "", out);
    return out;
}

TEST(DemoDatabase, theBundledFileOpensWithItsPasswordAndHoldsTheDemo)
{
    const auto bytes = test::readFile(std::string(QUILLON_SOURCE_DIR) + "/resources/demo.kdbx");
    const auto opened = kdbx::KdbxFile::open(bytes, test::passwordOnly("demo"));
    const std::string made = describe(*app::makeDemoDatabase());
    EXPECT_EQ(describe(*opened), made);
    EXPECT_NE(made.find("attachment recovery-codes.txt = 1111-2222"), std::string::npos) << made;
    EXPECT_NE(made.find("Password [p] = ünïcødé-pässwörd-✓"), std::string::npos) << made;
}

} // namespace
