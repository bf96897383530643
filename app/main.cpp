// app/main.cpp: program entry.
#include <cstdio>

int main()
{
    std::puts("usage: quillon --verify <path> [password] | --self-test");
    return 2;
}
