// log_choice.hpp: which file a log line goes to, decided from the line's calendar time alone.
//
// It touches neither files nor clocks: sizes are asked through a function, and its owner opens and closes. Two steps
// make a choice. Due() tells whether another file must follow the one that is open, and stamps the new period; then
// Next() names that file, or the owner leaves it to the next line by Closed().
//
// Others may move the open file away, cut it, or write to it as well. Look_due() and Size_due() tell the owner when to
// look; it says what it has found by m_moved and Seen(). A file that was moved is followed by a new one of its name.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

struct Tq4_log_choice {
    // The size of the file at a path in bytes; 0 when there is none.
    using Size_of = std::function<uint64_t(const char *path)>;

    static constexpr int64_t Default_size_limit = 2097152;
    static constexpr int64_t Least_size_limit = 1048576;

    std::string m_pre;      // file-name prefix
    std::string m_filename; // the open file, without directory; empty when none is open
    std::string m_filedir;  // directory of the stamped day; empty before the first line
    std::string m_maindir;  // root of all days; a change is seen at the next change of date
    int64_t m_sizeLimit = Default_size_limit;
    int64_t m_filesize = 0; // bytes in the open file, all of them; Full when none could be opened
    std::tm m_dateStamp{};  // date, hour and minute of the open file
    uint64_t m_index = 1;   // number of the next file within the period
    bool m_moved = false;   // the path of the open file leads elsewhere: Path() is to be opened, unless Due()

    Tq4_log_choice() { m_dateStamp.tm_year = Never; }

    // Whether a line of time t needs another file than the one that is open. When it does, the stamp, the index and
    // the directory are those of the new file, and the owner closes the open one.
    bool Due(const std::tm &t);

    // The path of the file that follows: the first one of the period, from the index on, that is smaller than the
    // limit or absent. m_filename is its name.
    std::string Next(const std::tm &t, const Size_of &size_of);

    // The path of the open file.
    std::string Path() const { return m_filedir + '/' + m_filename; }

    // Whether the owner should look for the open file at its path, at a time in milliseconds of a clock that may be
    // set: once a second.
    bool Look_due(uint64_t milliseconds);
    // Whether the owner should ask for the true size of the open file: rarely, until others are seen to write to it.
    bool Size_due() const { return m_shared || m_filesize - m_seen >= Unseen_most; }
    // The true size; all that was written by the owner is in it.
    void Seen(uint64_t size);

    // What became of the choice: the file is open and holds size bytes, or none is and the next line chooses again.
    void Opened(uint64_t size);
    void Closed();

private:
    static constexpr int Never = -1900;        // tm_year of the year 0: no line has been written
    static constexpr int64_t Full = INT64_MAX; // at the limit, whatever limit is set meanwhile
    static constexpr int64_t Look_interval = 1000;
    static constexpr int64_t Unseen_most = 65536; // bytes: a sixteenth of the least limit

    uint64_t m_looked = 0;        // when the path was last looked at
    int64_t m_seen = 0;           // the size when it was last asked
    bool m_shared = false;        // others write to the open file
    std::string m_filedir_before; // kept so that a borrowed m_filedir text outlives one change of date

    void Begin_day(const std::tm &t);
};
