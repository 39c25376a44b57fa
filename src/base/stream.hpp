// stream.hpp: the stream's record, for the modules in src/ that own a stream.
#pragma once

#include "base/rbuf.hpp"
#include "base/wbuf.hpp"
#include "own.hpp"
#include "tq4/stream.h"
#include "tq4/string.h"

struct Tq4_stream_obj {
    static constexpr long Buffer_size = 8192; // of each direction

    int m_handle = -1;       // borrowed
    bool m_seekable = false; // the descriptor has a position, which both directions share
    int m_order_flag = 1;    // of the buffers: 1 network order, 0 host order
    Tq4_stream_state m_state = Tq4_stream_ok;
    int m_last = -1;          // the last byte that left m_out
    unsigned long m_sent = 0; // bytes at the front of m_out that the system has taken
    Tq4_wbuf m_out;           // no storage until the first write
    struct Input : Tq4_rbuf {
        Tq4_stream_obj *stream = nullptr; // borrowed; whose input this is
    } m_in;                               // no storage until the first read
    Tq4_hooked<Tq4_string> m_line;        // null until the first ReadLine

    Tq4_stream_obj() = default;
    ~Tq4_stream_obj();
    Tq4_stream_obj(const Tq4_stream_obj &) = delete;
    Tq4_stream_obj &operator=(const Tq4_stream_obj &) = delete;
    void Reset();
    void Copy(const Tq4_stream_obj *source);
    bool Equal(const Tq4_stream_obj &other) const { return this == &other; }

    int Handle() const { return m_handle; }
    int Attach(int descriptor);
    int Detach();
    bool SetByteOrder(Tq4_ByteOrder order);

    long vPrintf(const char *format, va_list args);
    long WriteChar(char c, unsigned long count);
    long Write(const void *bytes, unsigned long n);
    int last_char() const { return Tq4_wbuf_size(&m_out) ? m_out.m_ptr[-1] : m_last; }
    bool Flush();

    const char *ReadLine(int mode, unsigned long maximum);
    unsigned long LineLength() const;
    unsigned long Read(void *room, unsigned long n);
    int ReadChar();
    unsigned long Buffered() const { return static_cast<unsigned long>(Tq4_rbuf_data_size(&m_in)); }
    Tq4_stream_state State() const { return m_state; }

    template <class Number> int Write_number(Number value) {
        if (!prepare_output() || !has_room(sizeof value)) return -1;
        return Tq4_wbuf_write_number(&m_out, value);
    }
    template <class Number> int Read_number(Number *value) {
        if (!value || !gather(sizeof *value)) return -1;
        return Tq4_rbuf_get_value(&m_in, value, sizeof *value);
    }

    // For the owner of an open file. Both flush first and give -1 when that fails.
    long Seek(long offset, int whence);
    long Tell();

    unsigned long Pending() const { return Tq4_wbuf_size(&m_out) - m_sent; } // not sent yet

private:
    bool prepare_output();
    void empty_output();
    static int refill(Tq4_rbuf *input);
    void prepare_input();
    bool has_room(unsigned long n);
    bool gather(unsigned long n);
    void give_back();
    void skip_line();
};
