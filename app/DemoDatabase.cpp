#include "app/DemoDatabase.h"

#include "kdbx/KdbxTime.h"

#include <chrono>
#include <string>

namespace quillon::app {
namespace {

struct Field {
    const char* key;
    const char* value;
    bool isProtected = false;
};

class DemoBuilder {
public:
    explicit DemoBuilder(std::int64_t now) : now_(now) {}

    pugi::xml_node group(pugi::xml_node parent, const char* name, int icon)
    {
        pugi::xml_node g = parent.append_child("Group");
        g.append_child("UUID").text().set(kdbx::newUuidText().c_str());
        g.append_child("Name").text().set(name);
        g.append_child("IconID").text().set(icon);
        times(g, 0);
        return g;
    }

    // An entry whose earlier states (oldest first) are kept in its history.
    pugi::xml_node entry(pugi::xml_node group, std::initializer_list<Field> fields,
                         std::initializer_list<std::initializer_list<Field>> history = {})
    {
        pugi::xml_node e = group.append_child("Entry");
        e.append_child("UUID").text().set(kdbx::newUuidText().c_str());
        times(e, static_cast<std::int64_t>(history.size()));
        strings(e, fields);
        if (history.size() != 0) {
            pugi::xml_node h = e.append_child("History");
            std::int64_t age = static_cast<std::int64_t>(history.size());
            for (const auto& version : history) {
                pugi::xml_node v = h.append_child("Entry");
                v.append_child("UUID").text().set(e.child_value("UUID"));
                times(v, age--);
                strings(v, version);
            }
        }
        return e;
    }

private:
    void times(pugi::xml_node item, std::int64_t daysAgo)
    {
        const std::string created = kdbx::encodeKdbxTime(now_ - 30 * 86400);
        const std::string modified = kdbx::encodeKdbxTime(now_ - daysAgo * 86400);
        pugi::xml_node t = item.append_child("Times");
        t.append_child("CreationTime").text().set(created.c_str());
        t.append_child("LastModificationTime").text().set(modified.c_str());
        t.append_child("LastAccessTime").text().set(modified.c_str());
        t.append_child("Expires").text().set("False");
    }
    static void strings(pugi::xml_node e, std::initializer_list<Field> fields)
    {
        for (const Field& f : fields) {
            pugi::xml_node s = e.append_child("String");
            s.append_child("Key").text().set(f.key);
            pugi::xml_node v = s.append_child("Value");
            if (f.isProtected)
                v.append_attribute("Protected").set_value("True");
            v.text().set(f.value);
        }
    }
    std::int64_t now_;
};

} // namespace

std::unique_ptr<kdbx::KdbxFile> makeDemoDatabase()
{
    auto file = kdbx::KdbxFile::newDatabase();
    pugi::xml_node meta = file->document.child("KeePassFile").child("Meta");
    meta.child("DatabaseName").text().set("Demo");
    pugi::xml_node root = file->document.child("KeePassFile").child("Root").child("Group");
    root.child("Name").text().set("Demo");

    DemoBuilder b(kdbx::kdbxSeconds(std::chrono::system_clock::now()));
    pugi::xml_node web = b.group(root, "Web", 1);
    pugi::xml_node email = b.group(root, "Email", 19);
    pugi::xml_node banking = b.group(root, "Banking", 37);

    b.entry(web, {{"Title", "Example Forum"}, {"UserName", "demo.user"}, {"Password", "correct-horse-battery", true},
                  {"URL", "https://forum.example.org"}, {"Notes", "Signed up for the newsletter too."}},
            {{{"Title", "Example Forum"}, {"UserName", "demo"}, {"Password", "hunter2", true},
              {"URL", "http://forum.example.org"}, {"Notes", ""}},
             {{"Title", "Example Forum"}, {"UserName", "demo.user"}, {"Password", "hunter2", true},
              {"URL", "https://forum.example.org"}, {"Notes", ""}}});
    pugi::xml_node code = b.entry(web, {{"Title", "Code Host"}, {"UserName", "demo@example.com"},
                                        {"Password", "v9#Lq2!mZp7@Rt", true}, {"URL", "https://code.example.com"},
                                        {"Notes", "Two-factor login is on; the code is in the otp field."},
                                        {"otp", "otpauth://totp/Code%20Host:demo@example.com?secret="
                                                "JBSWY3DPEHPK3PXP&issuer=Code%20Host", true}});
    (void)code;
    pugi::xml_node mail = b.entry(email, {{"Title", "Mail"}, {"UserName", "demo@example.com"},
                                          {"Password", "ünïcødé-pässwörd-✓", true}, {"URL", "https://mail.example.com"},
                                          {"Notes", "Recovery codes are attached."},
                                          {"Recovery phrase", "apple banana cherry delta", true}});
    pugi::xml_node binary = mail.append_child("Binary");
    binary.append_child("Key").text().set("recovery-codes.txt");
    binary.append_child("Value").append_attribute("Ref").set_value("0");
    file->inner.binaries.push_back(
        {1, kdbx::SecureBytes::fromText("1111-2222\n3333-4444\n5555-6666\n7777-8888\n")});
    b.entry(banking, {{"Title", "Savings Bank"}, {"UserName", "12345678"}, {"Password", "4821", true},
                      {"URL", "https://bank.example.net"}, {"Notes", "PIN for the card, not the app."},
                      {"Customer number", "CN-000-111"}});
    return file;
}

} // namespace quillon::app
