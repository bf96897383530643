// app/make_demo_main.cpp: writes the bundled demo database: quillon-make-demo <output path>.
#include "app/DemoDatabase.h"

#include <cstdio>
#include <fstream>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: quillon-make-demo <output.kdbx>\n", stderr);
        return 2;
    }
    quillon::kdbx::Credentials credentials;
    credentials.password = quillon::kdbx::SecureBytes::fromText("demo");
    const auto bytes = quillon::app::makeDemoDatabase()->save(credentials);
    std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return out ? 0 : 1;
}
