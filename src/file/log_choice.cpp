// log_choice: one file an hour, one more a quarter of an hour once a file is full, and one more at each full file.
//
// The stamp is the period of the open file, the index counts the files tried within it. An hour or a date that is
// not the stamp's always begins a new file with index 1. Within the hour the open file is kept until it is full; then
// a new quarter begins with index 1 again, and the same quarter goes on counting. A file that another run left in the
// period is continued while it is smaller than the limit. The common answer, "keep", costs four comparisons.
#include "file/log_choice.hpp"

#include <cinttypes>
#include <cstdio>

namespace {

constexpr int quarter(const std::tm &t) { return t.tm_min / 15; }

bool same_date(const std::tm &a, const std::tm &b) {
    return a.tm_mday == b.tm_mday && a.tm_mon == b.tm_mon && a.tm_year == b.tm_year;
}

// A calendar record may hold anything, so every number is given its widest form.
constexpr unsigned long Numbers_room = 128;

} // namespace

bool Tq4_log_choice::Due(const std::tm &t) {
    if (!same_date(t, m_dateStamp)) {
        Begin_day(t);
        return true;
    }
    if (t.tm_hour != m_dateStamp.tm_hour) {
        m_dateStamp.tm_hour = t.tm_hour;
        m_dateStamp.tm_min = t.tm_min;
        m_index = 1;
        return true;
    }
    if (m_filesize < m_sizeLimit) return false;
    if (quarter(t) != quarter(m_dateStamp)) {
        m_dateStamp.tm_min = t.tm_min;
        m_index = 1;
    }
    return true;
}

void Tq4_log_choice::Begin_day(const std::tm &t) {
    m_index = 1;
    m_dateStamp = t;
    const long year = t.tm_year + 1900L;
    const int month = t.tm_mon + 1;
    char day[Numbers_room];
    std::snprintf(day, sizeof day, "/logfiles-%04ld/%02d/%4.4ld-%2.2d-%2.2d", year, month, year, month, t.tm_mday);
    std::string filedir = m_maindir + day;
    m_filedir_before.swap(m_filedir);
    // Around midnight late lines go back and forth between two days; their texts stay where they are.
    if (m_filedir != filedir) m_filedir = std::move(filedir);
}

std::string Tq4_log_choice::Next(const std::tm &t, const Size_of &size_of) {
    for (;;) {
        char rest[Numbers_room];
        std::snprintf(rest, sizeof rest, "_%04ld-%02d-%02d %02d-%d[%03" PRIu64 "].log", t.tm_year + 1900L, t.tm_mon + 1,
                      t.tm_mday, t.tm_hour, quarter(t) + 1, m_index++);
        std::string name = m_pre + rest;
        if (name == m_filename) continue;
        std::string path = m_filedir + '/' + name;
        if (size_of(path.c_str()) >= uint64_t(m_sizeLimit)) continue;
        m_filename = std::move(name);
        return path;
    }
}

bool Tq4_log_choice::Look_due(uint64_t milliseconds) {
    const auto since = static_cast<int64_t>(milliseconds - m_looked);
    // Threads bring times that differ by little, in any order; a clock that was set back brings a large difference.
    if (since < Look_interval && since > -Look_interval) return false;
    m_looked = milliseconds;
    return true;
}

void Tq4_log_choice::Seen(uint64_t size) {
    m_shared |= int64_t(size) > m_filesize;
    m_filesize = m_seen = int64_t(size);
}

void Tq4_log_choice::Opened(uint64_t size) {
    m_filesize = m_seen = int64_t(size);
    m_moved = m_shared = false;
}

void Tq4_log_choice::Closed() {
    m_filename.clear();
    m_filesize = m_seen = Full;
    m_moved = m_shared = false;
}
