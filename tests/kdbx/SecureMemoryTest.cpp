#include "kdbx/SecureBytes.h"
#include "kdbx/WipingHeap.h"

#include <gtest/gtest.h>

#include <pugixml.hpp>

using namespace quillon::kdbx;

namespace {

// If the static initializer were dropped by the linker, documents would silently live in plain malloc memory.
TEST(WipingHeap, pugixmlDocumentsLiveInTheWipingHeap)
{
    const std::size_t before = wipingHeapInUse();
    {
        pugi::xml_document doc;
        std::string text = "<KeePassFile>";
        for (int i = 0; i < 2000; ++i)
            text += "<Entry><Value Protected=\"True\">secret</Value></Entry>";
        text += "</KeePassFile>";
        ASSERT_TRUE(doc.load_string(text.c_str()));
        EXPECT_GT(wipingHeapInUse(), before + text.size());
    }
    EXPECT_EQ(wipingHeapInUse(), before);
}

} // namespace
