// Compression beside zlib itself with the same parameters: raw deflate at level 9, memory level 9, the same flushes.
// The text comes in pieces, as a file that is read does; both sides append to an output that starts empty each time,
// and make the same bytes.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include <zlib.h>

#include "tq4/zip.h"

namespace {

constexpr std::size_t Piece = 65536;

const std::string &log_text() {
    static const std::string text = [] {
        std::mt19937 random(1);
        std::string lines;
        while (lines.size() < 1u << 20)
            lines += "[2026-11-15 14:37:08 " + std::to_string(100 + random() % 900) + " 1a2b] session " +
                     std::to_string(random() % 10000) + " of user zhang sent message " + std::to_string(random()) +
                     ", 1472 bytes\n";
        return lines;
    }();
    return text;
}

// zlib driven by hand: what the wrapper decides once a step, without the wrapper.
class Zlib {
public:
    std::string compressed(const std::string &text) {
        deflateInit2(&m_stream, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
        std::string out;
        for (std::size_t at = 0; at < text.size(); at += Piece) {
            const std::size_t n = std::min(Piece, text.size() - at);
            m_stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data() + at));
            m_stream.avail_in = static_cast<uInt>(n);
            m_fed += n;
            Run(&out, false);
        }
        Run(&out, true);
        deflateEnd(&m_stream);
        return out;
    }
    static std::string decompressed(const std::string &bytes) {
        z_stream stream{};
        inflateInit2(&stream, -15);
        stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.data()));
        stream.avail_in = static_cast<uInt>(bytes.size());
        std::string out;
        Bytef step[1024];
        do {
            stream.next_out = step;
            stream.avail_out = sizeof step;
            inflate(&stream, Z_NO_FLUSH);
            out.append(reinterpret_cast<char *>(step), sizeof step - stream.avail_out);
        } while (stream.avail_out == 0);
        inflateEnd(&stream);
        return out;
    }

private:
    z_stream m_stream{};
    std::size_t m_fed = 0; // since the last forced flush

    void Run(std::string *out, bool finish) {
        Bytef step[512];
        do {
            int flush = finish ? Z_FINISH : Z_NO_FLUSH;
            if (!finish && m_fed >= 1025) {
                flush = Z_FULL_FLUSH;
                m_fed -= 1024;
            }
            m_stream.next_out = step;
            m_stream.avail_out = sizeof step;
            deflate(&m_stream, flush);
            out->append(reinterpret_cast<char *>(step), sizeof step - m_stream.avail_out);
        } while (m_stream.avail_out == 0);
    }
};

class Zip {
public:
    ~Zip() {
        Tq4_zip_oitf->Delete(m_zip);
        Tq4_string_oitf->Delete(m_out);
    }
    std::string_view compressed(const std::string &text) {
        Tq4_string_oitf->Reset(m_out);
        (*m_zip)->zip_start(m_zip, m_out);
        for (std::size_t at = 0; at < text.size(); at += Piece)
            (*m_zip)->zip(m_zip, text.data() + at, static_cast<long>(std::min(Piece, text.size() - at)));
        (*m_zip)->zip_end(m_zip);
        return output();
    }
    std::string_view decompressed(const std::string &bytes) {
        Tq4_string_oitf->Reset(m_out);
        (*m_zip)->unzip_start(m_zip, m_out);
        (*m_zip)->unzip(m_zip, bytes.data(), static_cast<long>(bytes.size()));
        (*m_zip)->unzip_end(m_zip);
        return output();
    }

private:
    Tq4_zip m_zip = static_cast<Tq4_zip>(Tq4_zip_oitf->Create(nullptr));
    Tq4_string m_out = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));

    std::string_view output() const {
        return {(*m_out)->c_str(m_out), static_cast<std::size_t>((*m_out)->length(m_out))};
    }
};

template <class Subject> void compress(benchmark::State &state) {
    const std::string expected = Zlib().compressed(log_text());
    for (auto _ : state)
        if (Subject().compressed(log_text()) != expected) state.SkipWithError("other bytes than zlib's");
    state.SetBytesProcessed(state.iterations() * static_cast<long>(log_text().size()));
}
BENCHMARK(compress<Zip>)->Name("compress/tq4")->Unit(benchmark::kMillisecond);
BENCHMARK(compress<Zlib>)->Name("compress/zlib")->Unit(benchmark::kMillisecond);

template <class Subject> void decompress(benchmark::State &state) {
    const std::string packed = Zlib().compressed(log_text());
    for (auto _ : state)
        if (Subject().decompressed(packed) != log_text()) state.SkipWithError("other bytes than were compressed");
    state.SetBytesProcessed(state.iterations() * static_cast<long>(log_text().size()));
}
BENCHMARK(decompress<Zip>)->Name("decompress/tq4")->Unit(benchmark::kMillisecond);
BENCHMARK(decompress<Zlib>)->Name("decompress/zlib")->Unit(benchmark::kMillisecond);

} // namespace
