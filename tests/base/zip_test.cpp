// What the compression wrapper promises: zlib's own raw bytes, in any slicing, and no harm from damaged input.
#include <zlib.h>

#include "support/test.hpp"

namespace {

struct Zip : testing::Test {
    Tq4_own<Tq4_string> output = Tq4_make<Tq4_string>(Tq4_string_oitf);
    Tq4_own<Tq4_zip> own = Tq4_make<Tq4_zip>(Tq4_zip_oitf);
    Tq4_zip z = own.get();
    Tq4_string out = output.get();

    template <class Start, class Feed, class End>
    std::string run(Start start, Feed feed, End end, const std::string &in, std::size_t piece) {
        Tq4_string_oitf->Reset(out);
        EXPECT_EQ(start(z, out), Z_OK);
        for (std::size_t at = 0; at < in.size(); at += piece) {
            const long length = feed(z, in.data() + at, static_cast<long>(std::min(piece, in.size() - at)));
            EXPECT_EQ(length, (*out)->length(out));
        }
        end(z);
        return text_of(out);
    }
    std::string zipped(const std::string &text, std::size_t piece) {
        return run((*z)->zip_start, (*z)->zip, (*z)->zip_end, text, piece);
    }
    std::string unzipped(const std::string &bytes, std::size_t piece) {
        return run((*z)->unzip_start, (*z)->unzip, (*z)->unzip_end, bytes, piece);
    }
};

std::string text_of(std::size_t n) {
    std::mt19937 random(5);
    std::string text;
    while (text.size() < n) text += "line " + std::to_string(random() % 5000) + (random() % 3 ? " ok\n" : " failed\n");
    text.resize(n);
    return text;
}

// zlib itself, driven by the same rule: one flush decision an output step of 512 bytes.
std::string zlib_alone(const std::string &text) {
    z_stream strm{};
    deflateInit2(&strm, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
    std::string result;
    strm.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
    strm.avail_in = static_cast<uInt>(text.size());
    std::size_t fed = text.size();
    Bytef step[512];
    const auto run = [&](bool finish) {
        do {
            int flush = finish ? Z_FINISH : fed >= 1025 ? Z_FULL_FLUSH : Z_NO_FLUSH;
            if (flush == Z_FULL_FLUSH) fed -= 1024;
            strm.next_out = step;
            strm.avail_out = sizeof step;
            deflate(&strm, flush);
            result.append(reinterpret_cast<char *>(step), sizeof step - strm.avail_out);
        } while (strm.avail_out == 0);
    };
    run(false);
    run(true);
    deflateEnd(&strm);
    return result;
}

TEST_F(Zip, RoundTripsInAnySlicing) {
    for (std::size_t n : {0u, 1u, 511u, 1024u, 1025u, 5000u, 300000u})
        for (std::size_t piece : {n / 50000 + 1, std::size_t{1000}, std::size_t{100000000}})
            ASSERT_EQ(unzipped(zipped(text_of(n), piece), piece), text_of(n)) << n << " by " << piece;
}

TEST_F(Zip, WritesZlibsOwnBytes) {
    for (std::size_t n : {100u, 1024u, 1025u, 3000u, 200000u})
        EXPECT_EQ(zipped(text_of(n), 100000000), zlib_alone(text_of(n))) << n;
}

TEST_F(Zip, TakesNulTerminatedTextAndIgnoresWhatWasNotStarted) {
    EXPECT_EQ((*z)->zip(z, "text", 4) + (*z)->unzip(z, "text", 4), 0);
    EXPECT_EQ((*z)->zip_start(z, nullptr), Z_STREAM_ERROR);
    (*z)->zip_start(z, out);
    (*z)->zip(z, "hello", -1);
    (*z)->zip_end(z);
    EXPECT_EQ((*z)->zip(z, "more", -1), 0) << "ended";
    EXPECT_EQ(unzipped(text_of(out), 3), "hello");
}

TEST_F(Zip, DamagedStreamsEndTheFeedAndKeepWhatCameOut) {
    const std::string text = text_of(20000);
    std::string packed = zipped(text, 100000000);
    for (char *damaged : {&packed[packed.size() / 2], &packed[packed.size() / 2 + 1]})
        *damaged = static_cast<char>(*damaged ^ 0x55);
    const std::string kept = unzipped(packed, 100000000);
    EXPECT_GT(kept.size(), text.size() / 4);
    EXPECT_EQ(kept.substr(0, text.size() / 4), text.substr(0, text.size() / 4));
    std::mt19937 random(9);
    for (int i = 0; i < 300; ++i) {
        packed[random() % packed.size()] ^= 1;
        unzipped(packed, 1 + random() % 5000); // ends, and nothing overruns
    }
}

TEST_F(Zip, DeletingOrResettingOpenStreamsLeaksNothing) {
    (*z)->zip_start(z, out);
    (*z)->zip(z, "open", -1);
    (*z)->zip_start(z, out); // again
    (*z)->unzip_start(z, out);
    Tq4_zip_oitf->Reset(z);
    EXPECT_EQ((*z)->zip(z, "x", 1), 0);
    (*z)->zip_start(z, out); // left open for the fixture's Delete
}

} // namespace
