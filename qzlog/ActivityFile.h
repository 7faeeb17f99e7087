//===- qzlog/ActivityFile.h - Reading activity files back ------*- C++ -*-===//
//
// An activity file is a concatenation of sessions, each the token area of one
// thread's log buffer: a 16-byte start marker, the thread's record, events
// with their details, and '>'. ActivityFile maps a file and replays it: each
// stored event is rebuilt as a live LoggingEvent under a reader-side thread
// context and offered to the logger of the same name in this process, so
// that the ordinary appenders write it out as text.
//
// The reader never reads outside the mapped file, whatever its bytes: a
// token or a string cut off by the end of the map ends the session there.
//
//===----------------------------------------------------------------------===//
#ifndef QZLOG_ACTIVITYFILE_H
#define QZLOG_ACTIVITYFILE_H

#include "qzstd/Export.h"

#include "qzlog/LoggingEvent.h"

#include <cstdint>
#include <map>
#include <string>

namespace qzs {
namespace qzlib {
namespace qzlog {

class Logger;

/// A read-only private mapping of a whole file.
struct QZ_API mmapFile {
    int descriptor = -1;
    const unsigned char* address = nullptr;
    uint32_t size = 0; ///< the low 32 bits of the file size: 4 GiB and more read short

    /// Maps `name`; false (with the failure text in `error`) when it cannot be
    /// opened, is under 17 bytes, or cannot be mapped.
    bool Open(const char* name, std::string& error, bool& openFailed);
    void Close();
};

/// Replays an activity file through the live loggers.
///
/// Use: construct, Open(), then ProcessSession() while it returns true and
/// the offset is below the file size. One thread only. Strings and thread
/// names stay pointers into the map, which lives as long as the object.
/// Failures are reported (message 1239, or 1091 for a file that cannot be
/// opened) and their text kept in lastError().
class QZ_API ActivityFile {
public:
    explicit ActivityFile(const char* fileName);
    ~ActivityFile();
    ActivityFile(const ActivityFile&) = delete;
    ActivityFile& operator=(const ActivityFile&) = delete;

    /// Maps the file and goes to its first session.
    bool Open();
    /// Whether a valid start marker stands at the session offset.
    bool ValidateLogStartData() const;
    /// Replays one session and moves the offset behind it. False, with the
    /// offset unchanged, when the session is malformed.
    bool ProcessSession();

    uint64_t getOffset() const { return offset; }
    uint32_t getSize() const { return map.size; }
    const std::string& getFileName() const { return fileName; }
    /// The text of the last failure, "" when there was none.
    const std::string& lastError() const { return error; }
    /// Events replayed so far (offered to a logger, at its level or not).
    uint64_t eventsReplayed() const { return replayed; }
    /// Whether the last ProcessSession() met the end of the file inside a
    /// session (or inside the start marker of one): the file was cut short,
    /// by a crash or by a copy taken while it was written. The events before
    /// the cut were replayed; nothing says how many were lost.
    bool endedEarly() const { return cutShort; }

    struct Session;

private:
    bool fail(const std::string& text) const;

    std::string fileName;
    mmapFile map;
    uint64_t offset;
    std::map<unsigned short, Logger*> loggers;
    mutable std::string error;
    uint64_t replayed;
    bool cutShort;

    friend struct Session;
};

} // namespace qzlog
} // namespace qzlib
} // namespace qzs

#endif // QZLOG_ACTIVITYFILE_H
