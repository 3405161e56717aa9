// Placeholder host until the command-line application lands: proves the library links.
#include <cstdio>

int main(int argc, char** argv) {
    (void)argc;
    (void)argv;
    std::puts("vxcloud: the command-line host is not built yet.");
    return 0;
}
