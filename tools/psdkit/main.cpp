// psdkit: the command-line host of the psdkit library.
#include <cstdio>
#include <cstring>

#include "psdkit/Version.hpp"

int main(int argc, char** argv)
{
    if (argc >= 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("psdkit %s\n", PSDKIT_VERSION);
        return 0;
    }
    std::fprintf(stderr, "usage: psdkit --version\n");
    return 2;
}
