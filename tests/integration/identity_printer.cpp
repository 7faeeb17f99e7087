// A host that prints what the library knows of it, one "name=value" line per
// context item asked on the command line. The identity test runs it under
// different environments: the directory map is a process singleton, built
// from the environment the process starts with.
#include <qzlib.h>

#include <cstdio>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        std::printf("%s=%s\n", argv[i], qzs::qzlib::getAppContextText(argv[i]).c_str());
    return 0;
}
