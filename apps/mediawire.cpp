// mediawire: the command-line tool of the library.
//   mediawire --version      prints the version
//   mediawire classes        lists the component classes registered for form files
#include <cstdio>
#include <cstring>
#include <string>

#ifndef MW_VERSION
#define MW_VERSION "0.0.0"
#endif

static int Usage() {
    std::fprintf(stderr,
                 "usage: mediawire --version\n"
                 "       mediawire classes\n");
    return 2;
}

int main(int argc, char** argv) {
    if (argc < 2) return Usage();
    std::string cmd = argv[1];
    if (cmd == "--version" || cmd == "version") {
        std::printf("mediawire %s\n", MW_VERSION);
        return 0;
    }
    return Usage();
}
