// file: a descriptor of its own behind a stream of its own. All that moves bytes is the stream's; the file adds opening
// and closing, the position, the size and the medium.
#include "tq4/file.h"

#include <cstdarg>
#include <string>

#include "base/stream.hpp"
#include "platform/multi_platform_fs.hpp"

struct Tq4_file_obj {
    std::string m_name;
    Tq4_own<Tq4_stream> m_stream = Tq4_make<Tq4_stream>(Tq4_stream_oitf); // attached while the file is open

    ~Tq4_file_obj() { Close(); }
    Tq4_stream_obj &stream() const { return *Tq4_record<Tq4_stream_obj>(m_stream.get()); }
    void Reset();
    void Copy(const Tq4_file_obj *source) { stream().Copy(source ? &source->stream() : nullptr); }
    bool Equal(const Tq4_file_obj &other) const { return this == &other; }

    bool Open(const char *path, int mode);
    bool Close();
    bool IsOpen() const { return stream().m_handle >= 0; }
    const char *Name() const { return m_name.c_str(); }
    Tq4_stream Stream() const { return m_stream.get(); }
    long Seek(long offset, Tq4_file_whence whence);
    long Tell() { return stream().Tell(); }
    long Size() const;
    bool Truncate(unsigned long size);
    bool Sync() { return stream().Flush() && MP_FileSync(stream().m_handle); }
};

namespace {

constexpr mode_t Created_mode = 0660;

struct Flag {
    int mode, flag;
};
constexpr Flag Flags[] = {
    {Tq4_file_create, O_CREAT},
    {Tq4_file_truncate, O_TRUNC},
    {Tq4_file_append, O_APPEND},
    {Tq4_file_exclusive, O_EXCL},
};

int open_flags(int mode) {
    const bool reads = mode & Tq4_file_read, writes = mode & Tq4_file_write;
    int flags = writes ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY;
    for (const Flag &f : Flags)
        if (mode & f.mode) flags |= f.flag;
    return flags;
}

} // namespace

void Tq4_file_obj::Reset() {
    Close();
    m_name.clear();
    stream().Reset();
}

bool Tq4_file_obj::Open(const char *path, int mode) {
    Close();
    m_name = path ? path : "";
    return stream().Attach(MP_SafeOpen(path, open_flags(mode), Created_mode));
}

bool Tq4_file_obj::Close() {
    const bool whole = stream().Flush();
    const int descriptor = stream().Detach();
    return descriptor >= 0 && MP_FileClose(descriptor) && whole;
}

long Tq4_file_obj::Seek(long offset, Tq4_file_whence whence) {
    static_assert(Tq4_file_begin == SEEK_SET && Tq4_file_current == SEEK_CUR && Tq4_file_end == SEEK_END);
    return stream().Seek(offset, whence);
}

long Tq4_file_obj::Size() const {
    MP_FileInfo info;
    stream().Flush();
    return MP_GetOpenFileInfo(stream().m_handle, &info) ? static_cast<long>(info.size + stream().Pending()) : -1;
}

bool Tq4_file_obj::Truncate(unsigned long size) {
    // What was read ahead may be cut away, so the position moves back to the reader first.
    const long position = stream().Seek(0, SEEK_CUR);
    return position >= 0 && MP_FileTruncate(stream().m_handle, size);
}

// An operation of the stream as one of the file.
template <auto Method> struct Stream_op_of {
    template <class R, class... A> using slot = R (*)(Tq4_file, A...);
    template <class R, class... A> constexpr operator slot<R, A...>() const {
        return [](Tq4_file f, A... args) -> R {
            return f ? (Tq4_record<Tq4_file_obj>(f)->stream().*Method)(args...) : R();
        };
    }
};
template <auto Method> inline constexpr Stream_op_of<Method> Stream_op{};

static long Tq4_file_itf_Printf(Tq4_file f, const char *format, ...) {
    if (!f) return 0;
    va_list args;
    va_start(args, format);
    const long written = Tq4_record<Tq4_file_obj>(f)->stream().vPrintf(format, args);
    va_end(args);
    return written;
}

const Tq4_file_ Tq4_file_itf = {.Open = Tq4_op<&Tq4_file_obj::Open>,
                                .Close = Tq4_op<&Tq4_file_obj::Close>,
                                .IsOpen = Tq4_op<&Tq4_file_obj::IsOpen>,
                                .Name = Tq4_op<&Tq4_file_obj::Name>,
                                .Stream = Tq4_op<&Tq4_file_obj::Stream>,
                                .Seek = Tq4_op<&Tq4_file_obj::Seek>,
                                .Tell = Tq4_op<&Tq4_file_obj::Tell>,
                                .Size = Tq4_op<&Tq4_file_obj::Size>,
                                .Truncate = Tq4_op<&Tq4_file_obj::Truncate>,
                                .Sync = Tq4_op<&Tq4_file_obj::Sync>,
                                .Handle = Stream_op<&Tq4_stream_obj::Handle>,
                                .SetByteOrder = Stream_op<&Tq4_stream_obj::SetByteOrder>,
                                .Printf = Tq4_file_itf_Printf,
                                .vPrintf = Stream_op<&Tq4_stream_obj::vPrintf>,
                                .WriteChar = Stream_op<&Tq4_stream_obj::WriteChar>,
                                .Write = Stream_op<&Tq4_stream_obj::Write>,
                                .Flush = Stream_op<&Tq4_stream_obj::Flush>,
                                .ReadLine = Stream_op<&Tq4_stream_obj::ReadLine>,
                                .LineLength = Stream_op<&Tq4_stream_obj::LineLength>,
                                .Read = Stream_op<&Tq4_stream_obj::Read>,
                                .ReadChar = Stream_op<&Tq4_stream_obj::ReadChar>,
                                .State = Stream_op<&Tq4_stream_obj::State>,
#define TQ4_FILE_WRITE(name, type) .Write_##name = Stream_op<&Tq4_stream_obj::Write_number<type>>,
                                TQ4_STREAM_NUMBERS(TQ4_FILE_WRITE)
#undef TQ4_FILE_WRITE
#define TQ4_FILE_READ(name, type) .Read_##name = Stream_op<&Tq4_stream_obj::Read_number<type>>,
                                    TQ4_STREAM_NUMBERS(TQ4_FILE_READ)
#undef TQ4_FILE_READ
};
TQ4_MODULE(file)
