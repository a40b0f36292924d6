// What an application in C++20 does outside the tree: loads a picture with the installed library, and makes it smaller.
// CONFIGFILE is what the build system said about the installation; PICTRA_CFGFILE of the environment goes before it.
#include <pictra/pictra.hpp>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) try {
    if (argc < 2) return 2;
    setenv("PICTRA_CFGFILE", CONFIGFILE, 0);
    const pictra::library library = pictra::library::attach().value();
    const pictra::image small = pictra::resize(library.load(argv[1]).value(), {.width = 120}).value();
    printf("%u x %u pixels\n", small.width(), small.height());
} catch (const pictra::bad_result &failure) {
    return fprintf(stderr, "%s\n", failure.error().text.c_str()), 1;
}
