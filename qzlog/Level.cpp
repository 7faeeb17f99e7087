//===- qzlog/Level.cpp - The level scale ----------------------------------===//
#include "qzlog/Level.h"

#include <cstdlib>
#include <cstring>

namespace qzs {
namespace qzlib {
namespace qzlog {

char Level::Undefined[] = "<undefined>";
// Constant-initialised so that a level name read before start-up is a valid,
// if empty, pointer rather than garbage.
char* Level::LevelNames[256] = {};

void Level::Initialize() {
    for (char*& entry : LevelNames)
        entry = Undefined;
    setName(Inherit, "INHERIT");
    setName(All, "ALL");
    setName(Data, "DATA");
    setName(Debug, "DEBUG");
    setName(Info, "INFO");
    setName(Warn, "WARN");
    setName(Error, "ERROR");
    setName(Fatal, "FATAL");
    setName(Off, "OFF");
}

void Level::setName(unsigned char level, const char* name) {
    char*& entry = LevelNames[level];
    if (entry && entry != Undefined)
        std::free(entry);
    entry = name ? ::strdup(name) : Undefined;
}

} // namespace qzlog
} // namespace qzlib
} // namespace qzs
