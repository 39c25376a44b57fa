// log_output.hpp: the open file of a log, and the bytes that gather for it until one write sends them.
//
// What the system refuses is lost, and so is the line that was cut in two: its beginning is taken back from the file,
// if nobody has written behind it. A file that ends inside a line, whoever left it so, gets a line feed before what
// follows.
#pragma once

#include "base/wbuf.hpp"

class Tq4_log_output {
public:
    Tq4_log_output() = default;
    ~Tq4_log_output();
    Tq4_log_output(const Tq4_log_output &) = delete;
    Tq4_log_output &operator=(const Tq4_log_output &) = delete;

    int Descriptor() const { return m_descriptor; } // -1: no file is open
    // Takes over an open file while none is.
    void Open(int descriptor);
    // Closes the file, if there is one. What was not sent is dropped.
    void Close();

    // Where bytes for the open file are appended, by Tq4_wbuf_memcat, which makes room by growing.
    Tq4_wbuf *Buffer();
    unsigned long Pending() const { return Tq4_wbuf_size(&m_buffer); }
    // Sends what is pending; nothing is then. The result is how much less the file has grown by: what was refused and
    // what was taken back. Unless it is 0, errno tells why.
    unsigned long Send();

private:
    static constexpr uint64_t Buffer_size = 8192;
    static constexpr uint64_t Buffer_kept_size = 65536; // a larger one is not kept once it is empty

    int m_descriptor = -1; // owned
    bool m_torn = false;   // the file ends inside a line
    Tq4_wbuf m_buffer{};   // no storage until the first line

    unsigned long TakeBack(unsigned long sent);
    void Empty();
};
