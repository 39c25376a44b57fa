// log: a choice of file, the output to the open one, and a queue of threads with lines.
//
// A caller formats its message on its own stack, without a lock. Then it enters the queue. The thread that leads takes
// the lock and writes the lines of those behind it too. For each line the file is chosen and the bytes are counted, as
// if it had come alone; the lines gather in the output until one write sends them. A line costs one write when it comes
// alone and less in company, and nothing is allocated for one that fits on the stack. The calendar is asked once a
// second.
//
// What the system refuses is lost at once, so that nothing piles up behind a full disk, and the file's size counts what
// is really there. The first failure with a file is told on standard error, by a thread that holds nothing.
//
// Others move the open file, write to it, or die in the middle of a line: the leader looks at the file from time to
// time, before it writes. A fork waits for the leader, so that a child has the log whole; there the first line opens
// the file again, for a position of its own.
#include "tq4/log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <utility>

#include "base/charset/conversion.hpp"
#include "base/debug.hpp"
#include "base/print.hpp"
#include "file/commit_queue.hpp"
#include "file/log_choice.hpp"
#include "file/log_line.hpp"
#include "file/log_output.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"
#include "thread/fork.hpp"
#include "thread/lock.hpp"

namespace {

constexpr int Least_line_limit = 5120;
constexpr int Default_line_limit = 524288;
constexpr unsigned File_mode = 0660;
constexpr unsigned Directory_mode = 0770;

// How much one leader writes for others before it lets the next one lead.
constexpr int Group_lines = 64;
constexpr unsigned long Group_bytes = 65536;

struct Moment {
    time_t seconds; // the line's
    uint64_t tick;  // the clock's, in milliseconds
};

Moment now() {
    const uint64_t tick = MP_THREAD_GetTickCount();
    return {static_cast<time_t>(tick / 1000), tick};
}

// A message on its way: formatted on the stack of its thread, on the heap when it is long.
class Text {
public:
    Text() {
        Tq4_wbuf_InitFixed(&m_buffer, m_room, sizeof m_room);
        m_buffer.fflush = Tq4_wbuf_flush_nothing;
    }
    ~Text() { Tq4_wbuf_Release(&m_buffer); }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;

    void Add_line(const char *format, va_list args) {
        if (format) Tq4_wbuf_print(&m_buffer, format, args);
        if (Tq4_wbuf_size(&m_buffer) == 0 || m_buffer.m_ptr[-1] != '\n') Tq4_wbuf_putch(&m_buffer, '\n');
    }
    Tq4_wbuf *buffer() { return &m_buffer; }
    operator Tq4_bytes() const { return {m_buffer.m_data, Tq4_wbuf_size(&m_buffer)}; }

private:
    Tq4_wbuf m_buffer;
    uint8_t m_room[2048];
};

// What a thread brings to the queue.
struct Line : Tq4_commit_queue::Entry {
    Tq4_bytes text; // borrowed from the thread's stack or caller; ends in a line feed if it is a line
    Moment moment;
    int thread;
    bool is_line; // gets a prefix
};

// What is told about a file that cannot be written.
struct Trouble {
    std::string path;
    int error; // the system's number
};

std::string default_main_directory() {
    char path[4096];
    const bool is_known = *MP_GetExeFullName(path, sizeof path) != 0; // the directory may be the root, which is ""
    const std::string directory = is_known ? MP_GetExePath(path, sizeof path) : ".";
    return MP_AbsolutePath((directory + "/log_files").c_str());
}

} // namespace

struct Tq4_log_obj {
    Tq4_own<Tq4_lock> m_lock; // constant after creation; null when the log belongs to one thread
    std::atomic<int> m_level{0};
    std::atomic<Trouble *> m_trouble{nullptr}; // owned; not told yet
    Tq4_commit_queue m_writers;

    // Under m_lock.
    Tq4_log_output m_output TQ4_GUARDED_BY(m_lock);
    // m_pre, m_filename, m_filedir, m_maindir, m_sizeLimit, m_filesize, m_dateStamp and m_index.
    Tq4_log_choice m_choice TQ4_GUARDED_BY(m_lock);
    int m_lineLimit TQ4_GUARDED_BY(m_lock) = Default_line_limit;
    int64_t m_filelines TQ4_GUARDED_BY(m_lock) = 0; // lines written to the open file
    time_t m_lastTime TQ4_GUARDED_BY(m_lock) = 0;   // time of the last message
    std::tm m_calendar TQ4_GUARDED_BY(m_lock){};    // m_lastTime as local time
    Tq4_log_prefix m_prefix TQ4_GUARDED_BY(m_lock); // of m_calendar
    bool m_told TQ4_GUARDED_BY(m_lock) = false;     // a failure since a file was last opened

    Tq4_fork_member m_at_fork{this, At_fork}; // last: from here on forks come upon the log

    explicit Tq4_log_obj(const void *for_threads) : m_lock(for_threads ? Tq4_make<Tq4_lock>(Tq4_lock_oitf) : nullptr) {
        m_choice.m_maindir = default_main_directory();
        Set_time(now().seconds);
    }
    ~Tq4_log_obj() {
        Close_file();
        delete m_trouble;
    }
    void Reset();
    void Copy(const Tq4_log_obj *source) TQ4_NO_THREAD_ANALYSIS;
    void Duplicate(const Tq4_log_obj &source);
    bool Equal(const Tq4_log_obj &other) const TQ4_NO_THREAD_ANALYSIS;

    void Init(const char *prefix, int level);
    void SizeLimit(int bytes);
    void LineLimit(int lines);
    void vPrintf(int level, const char *format, va_list args);
    void vPrintf_t(time_t time, int level, const char *format, va_list args);
    void HexPrint(int level, const void *data, unsigned long length, const char *format, va_list args);
    void Write(const char *text);
    void Level(int level) { m_level.store(level, std::memory_order_relaxed); }
    void MainDir(const char *directory);
    const char *DirInfo();
    void FFlush();
    void CheckFile();

private:
    bool Drops(int level) const { return level > m_level.load(std::memory_order_relaxed); }
    void Commit(Tq4_bytes text, Moment moment, bool is_line);
    Line *Lead(Line *first);
    void Add(const Line &line) TQ4_REQUIRES(m_lock);
    void Set_time(time_t time) TQ4_REQUIRES(m_lock);
    void Choose_file(time_t time, bool may_open) TQ4_REQUIRES(m_lock);
    void Look_for_file() TQ4_REQUIRES(m_lock);
    bool Open_file(const std::string &path) TQ4_REQUIRES(m_lock);
    void Make_directory() TQ4_REQUIRES(m_lock);
    void Close_file() TQ4_REQUIRES(m_lock);
    void Send() TQ4_REQUIRES(m_lock);
    void Note_trouble(const std::string &path) TQ4_REQUIRES(m_lock);
    void Tell_trouble();
    static void At_fork(void *log, Tq4_fork_moment moment) TQ4_NO_THREAD_ANALYSIS;
};

void Tq4_log_obj::Reset() {
    const Tq4_guard guard(m_lock);
    Close_file();
    m_choice = {};
    Copy(nullptr);
    Set_time(now().seconds);
}

// The settings; null stands for those of a new log.
void Tq4_log_obj::Copy(const Tq4_log_obj *source) {
    m_choice.m_pre = source ? source->m_choice.m_pre : "";
    m_choice.m_maindir = source ? source->m_choice.m_maindir : default_main_directory();
    m_choice.m_sizeLimit = source ? source->m_choice.m_sizeLimit : Tq4_log_choice::Default_size_limit;
    m_lineLimit = source ? source->m_lineLimit : Default_line_limit;
    Level(source ? source->m_level.load() : 0);
}

void Tq4_log_obj::Duplicate(const Tq4_log_obj &source) {
    if (source.m_lock) {
        const Tq4_no_fork while_it_changes;
        m_lock = Tq4_make<Tq4_lock>(Tq4_lock_oitf);
    }
    Copy(&source);
}

bool Tq4_log_obj::Equal(const Tq4_log_obj &other) const {
    return m_choice.m_pre == other.m_choice.m_pre && m_choice.m_maindir == other.m_choice.m_maindir &&
           m_choice.m_sizeLimit == other.m_choice.m_sizeLimit && m_lineLimit == other.m_lineLimit &&
           m_level.load() == other.m_level.load();
}

// --- Settings ---

void Tq4_log_obj::Init(const char *prefix, int level) {
    const Tq4_guard guard(m_lock);
    m_choice.m_pre = prefix ? prefix : "";
    Level(level);
}

void Tq4_log_obj::SizeLimit(int bytes) {
    const Tq4_guard guard(m_lock);
    m_choice.m_sizeLimit = std::max<int64_t>(bytes, Tq4_log_choice::Least_size_limit);
}

void Tq4_log_obj::LineLimit(int lines) {
    const Tq4_guard guard(m_lock);
    m_lineLimit = std::max(lines, Least_line_limit);
}

void Tq4_log_obj::MainDir(const char *directory) {
    if (!directory || !*directory) return;
    const Tq4_guard guard(m_lock);
    m_choice.m_maindir = MP_AbsolutePath(directory);
}

const char *Tq4_log_obj::DirInfo() {
    const Tq4_guard guard(m_lock);
    return m_choice.m_filedir.c_str();
}

// --- What threads bring ---

void Tq4_log_obj::vPrintf(int level, const char *format, va_list args) {
    if (Drops(level)) return;
    const Tq4_cancel_held held;
    Text text;
    text.Add_line(format, args);
    Commit(text, now(), true);
}

void Tq4_log_obj::vPrintf_t(time_t time, int level, const char *format, va_list args) {
    if (Drops(level)) return;
    const Tq4_cancel_held held;
    Text text;
    text.Add_line(format, args);
    Commit(text, {time, now().tick}, true);
}

void Tq4_log_obj::HexPrint(int level, const void *data, unsigned long length, const char *format, va_list args) {
    if (Drops(level)) return;
    const Tq4_cancel_held held;
    Text text;
    text.Add_line(format, args);
    if (data)
        Tq4_log_dump(text.buffer(), data,
                     length == TQ4_ALL_ONES ? std::strlen(static_cast<const char *>(data)) : length);
    Commit(text, now(), true);
}

void Tq4_log_obj::Write(const char *text) {
    if (!text) return;
    const Tq4_cancel_held held;
    Commit({reinterpret_cast<const uint8_t *>(text), std::strlen(text)}, now(), false);
}

// Returns when the text is written or lost. The caller's system error number stays.
void Tq4_log_obj::Commit(Tq4_bytes text, Moment moment, bool is_line) {
    const int error = errno;
    Line line{{}, text, moment, MP_THREAD_GetLWP(), is_line};
    if (!m_lock || m_writers.Enter(&line)) {
        Line *const last = Lead(&line);
        if (m_lock) m_writers.Leave(&line, last);
        Tell_trouble();
    }
    errno = error;
}

// --- Under the lock ---

// Writes the leader's line and those behind it, and returns the last one written.
Line *Tq4_log_obj::Lead(Line *first) {
    const Tq4_guard guard(m_lock);
    if (m_choice.Look_due(first->moment.tick)) Look_for_file();
    if (m_choice.Size_due()) m_choice.Seen(MP_GetFileSize1(m_output.Descriptor()));
    Line *last = first;
    Add(*first);
    for (int lines = 1; lines < Group_lines && m_output.Pending() < Group_bytes; ++lines) {
        auto *next = static_cast<Line *>(Tq4_commit_queue::Behind(last));
        if (!next) break;
        Add(*next);
        last = next;
    }
    Send();
    return last;
}

void Tq4_log_obj::Add(const Line &line) {
    if (m_choice.m_filesize >= m_choice.m_sizeLimit) Send(); // the choice needs the true size
    Choose_file(line.moment.seconds, true);
    if (m_output.Descriptor() < 0) return; // none could be opened: the line is lost
    const unsigned long before = m_output.Pending();
    Tq4_wbuf *const out = m_output.Buffer();
    if (line.is_line) {
        m_prefix.Append(out, static_cast<unsigned>(line.moment.tick % 1000), line.thread);
        ++m_filelines;
    }
    Tq4_wbuf_memcat(out, line.text.data, line.text.size);
    m_choice.m_filesize += static_cast<int64_t>(m_output.Pending() - before);
}

void Tq4_log_obj::Set_time(time_t time) {
    m_lastTime = time;
    if (!MP_localtime(&time, &m_calendar)) m_calendar = {};
    m_prefix.Set(m_calendar);
}

void Tq4_log_obj::Choose_file(time_t time, bool may_open) {
    if (time != m_lastTime) Set_time(time);
    if (m_choice.Due(m_calendar)) {
        Close_file();
        if (!may_open) Make_directory();
        if (!may_open || !Open_file(m_choice.Next(m_calendar, MP_GetFileSize2))) m_choice.Closed();
    } else if (m_choice.m_moved && !Open_file(m_choice.Path())) {
        m_choice.m_moved = false; // the file that was moved is better than none
    }
}

void Tq4_log_obj::Make_directory() {
    const std::string &directory = m_choice.m_filedir;
    MP_MkdirBeforCreateFile(directory.c_str(), Directory_mode);
    MP_DirMake(directory.c_str(), Directory_mode);
}

// False when it cannot be opened; then the file that is open stays so.
bool Tq4_log_obj::Open_file(const std::string &path) {
    const int descriptor = MP_SafeOpen(path.c_str(), O_RDWR | O_CREAT | O_APPEND, File_mode);
    if (descriptor < 0) {
        Note_trouble(path);
        return false;
    }
    Close_file();
    m_choice.Opened(MP_GetFileSize1(descriptor));
    m_output.Open(descriptor);
    m_told = false;
    m_filelines = 0;
    return true;
}

void Tq4_log_obj::Look_for_file() {
    const int descriptor = m_output.Descriptor();
    if (descriptor < 0) return;
    if (MP_FileHasMoved(descriptor, m_choice.Path().c_str())) m_choice.m_moved = true;
    m_choice.Seen(MP_GetFileSize1(descriptor));
}

void Tq4_log_obj::Close_file() {
    Send();
    m_output.Close();
}

void Tq4_log_obj::Send() {
    const unsigned long lost = m_output.Send();
    if (lost == 0) return;
    Note_trouble(m_choice.Path());
    m_choice.m_filesize -= static_cast<int64_t>(lost);
}

void Tq4_log_obj::FFlush() {
    const Tq4_cancel_held held;
    const Tq4_guard guard(m_lock);
    Send();
}

void Tq4_log_obj::CheckFile() {
    const Tq4_cancel_held held;
    {
        const Tq4_guard guard(m_lock);
        Look_for_file();
        Choose_file(now().seconds, false);
    }
    Tell_trouble();
}

// --- Trouble ---

// Follows a system call that failed.
void Tq4_log_obj::Note_trouble(const std::string &path) {
    if (!std::exchange(m_told, true)) delete m_trouble.exchange(new Trouble{path, MP_FileGetLastError()});
}

// Without the lock: the reader of standard error may be slow.
void Tq4_log_obj::Tell_trouble() {
    if (!m_trouble.load(std::memory_order_relaxed)) return;
    const std::unique_ptr<Trouble> trouble(m_trouble.exchange(nullptr));
    if (!trouble) return; // another thread tells it
    errno = trouble->error;
    Tq4_debug_tell_error("日志文件%s无法写入：%m\n", trouble->path.c_str());
}

// --- A fork ---

void Tq4_log_obj::At_fork(void *log, Tq4_fork_moment moment) {
    auto *l = static_cast<Tq4_log_obj *>(log);
    if (moment == Tq4_fork_moment::before) {
        if (l->m_lock) (*l->m_lock)->Lock(l->m_lock.get());
        return;
    }
    if (l->m_lock) (*l->m_lock)->Unlock(l->m_lock.get());
    if (moment == Tq4_fork_moment::in_parent) return;
    if (l->m_lock) l->m_lock = Tq4_make<Tq4_lock>(Tq4_lock_oitf); // the old one has the parent's thread as its holder
    l->m_writers.Forget_all();
    l->m_choice.m_moved = true; // the open file's position is shared with the parent: open it again
}

// --- The table ---

static void Tq4_log_itf_Printf(Tq4_log log, int level, const char *format, ...) {
    if (!log) return;
    va_list args;
    va_start(args, format);
    Tq4_record<Tq4_log_obj>(log)->vPrintf(level, format, args);
    va_end(args);
}

static void Tq4_log_itf_Printf_t(Tq4_log log, time_t time, int level, const char *format, ...) {
    if (!log) return;
    va_list args;
    va_start(args, format);
    Tq4_record<Tq4_log_obj>(log)->vPrintf_t(time, level, format, args);
    va_end(args);
}

static void Tq4_log_itf_HexLog(Tq4_log log, int level, const void *data, unsigned long length, const char *format,
                               ...) {
    if (!log) return;
    va_list args;
    va_start(args, format);
    Tq4_record<Tq4_log_obj>(log)->HexPrint(level, data, length, format, args);
    va_end(args);
}

const Tq4_log_ Tq4_log_itf = {
    .Init = Tq4_op<&Tq4_log_obj::Init>,
    .SizeLimit = Tq4_op<&Tq4_log_obj::SizeLimit>,
    .LineLimit = Tq4_op<&Tq4_log_obj::LineLimit>,
    .Printf = Tq4_log_itf_Printf,
    .vPrintf = Tq4_op<&Tq4_log_obj::vPrintf>,
    .Printf_t = Tq4_log_itf_Printf_t,
    .vPrintf_t = Tq4_op<&Tq4_log_obj::vPrintf_t>,
    .HexLog = Tq4_log_itf_HexLog,
    .HexPrint = Tq4_op<&Tq4_log_obj::HexPrint>,
    .Write = Tq4_op<&Tq4_log_obj::Write>,
    .Level = Tq4_op<&Tq4_log_obj::Level>,
    .MainDir = Tq4_op<&Tq4_log_obj::MainDir>,
    .DirInfo = Tq4_op<&Tq4_log_obj::DirInfo>,
    .FFlush = Tq4_op<&Tq4_log_obj::FFlush>,
    .CheckFile = Tq4_op<&Tq4_log_obj::CheckFile>,
};
TQ4_MODULE(log)
