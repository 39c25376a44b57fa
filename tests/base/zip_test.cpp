// What the compression wrapper promises: zlib's own raw bytes, in any slicing, and no harm from damaged input.
#include "tq4/zip.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <zlib.h>

namespace {

struct Zip : testing::Test {
    Tq4_zip z = static_cast<Tq4_zip>(Tq4_zip_oitf->Create(nullptr));
    Tq4_string out = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));

    ~Zip() override {
        Tq4_zip_oitf->Delete(z);
        Tq4_string_oitf->Delete(out);
    }
    std::string output() { return {(*out)->c_str(out), static_cast<std::size_t>((*out)->length(out))}; }
    static long size(const std::string &s) { return static_cast<long>(s.size()); }

    std::string zipped(const std::string &text, std::size_t piece) {
        Tq4_string_oitf->Reset(out);
        EXPECT_EQ((*z)->zip_start(z, out), Z_OK);
        for (std::size_t at = 0; at < text.size(); at += piece) {
            const std::string part = text.substr(at, piece);
            const long length = (*z)->zip(z, part.data(), size(part));
            EXPECT_EQ(length, (*out)->length(out));
        }
        (*z)->zip_end(z);
        return output();
    }
    std::string unzipped(const std::string &bytes, std::size_t piece) {
        Tq4_string_oitf->Reset(out);
        EXPECT_EQ((*z)->unzip_start(z, out), Z_OK);
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            const std::string part = bytes.substr(at, piece);
            (*z)->unzip(z, part.data(), size(part));
        }
        (*z)->unzip_end(z);
        return output();
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
        for (std::size_t piece : {1u, 7u, 1000u, 100000000u}) {
            if (n / piece > 100000) continue;
            const std::string text = text_of(n);
            const std::string packed = zipped(text, piece);
            ASSERT_EQ(unzipped(packed, 100000000), text) << n << " by " << piece;
            ASSERT_EQ(unzipped(packed, piece), text) << n << " by " << piece;
        }
}

TEST_F(Zip, WritesZlibsOwnBytes) {
    for (std::size_t n : {100u, 1024u, 1025u, 3000u, 200000u})
        EXPECT_EQ(zipped(text_of(n), 100000000), zlib_alone(text_of(n))) << n;
}

TEST_F(Zip, FlushesOnlyFromTheThreshold) {
    const std::string marker("\0\0\xff\xff", 4); // what a full flush leaves
    EXPECT_EQ(zipped(text_of(1024), 100).find(marker), std::string::npos);
    EXPECT_NE(zipped(text_of(1025), 100).find(marker), std::string::npos);
}

TEST_F(Zip, TakesNulTerminatedTextAndIgnoresWhatWasNotStarted) {
    EXPECT_EQ((*z)->zip(z, "text", 4), 0);
    EXPECT_EQ((*z)->unzip(z, "text", 4), 0);
    (*z)->zip_end(z);
    EXPECT_EQ((*z)->zip_start(z, nullptr), Z_STREAM_ERROR);
    (*z)->zip_start(z, out);
    (*z)->zip(z, "hello", -1);
    (*z)->zip_end(z);
    EXPECT_EQ((*z)->zip(z, "more", -1), 0) << "ended";
    EXPECT_EQ(unzipped(output(), 3), "hello");
}

TEST_F(Zip, DamagedStreamsEndTheFeedAndKeepWhatCameOut) {
    const std::string text = text_of(20000);
    std::string packed = zipped(text, 100000000);
    packed[packed.size() / 2] = static_cast<char>(packed[packed.size() / 2] ^ 0x55);
    packed[packed.size() / 2 + 1] = static_cast<char>(packed[packed.size() / 2 + 1] ^ 0xff);
    const std::string kept = unzipped(packed, 100000000);
    EXPECT_GT(kept.size(), text.size() / 4);
    EXPECT_EQ(kept.substr(0, text.size() / 4), text.substr(0, text.size() / 4));
    std::mt19937 random(9);
    for (int i = 0; i < 300; ++i) {
        std::string noise(random() % 200, '\0');
        for (char &c : noise) c = static_cast<char>(random());
        unzipped(noise, 1 + random() % 50); // ends, and nothing overruns
    }
}

TEST_F(Zip, DeletingOrResettingOpenStreamsLeaksNothing) {
    (*z)->zip_start(z, out);
    (*z)->zip(z, "open", -1);
    (*z)->zip_start(z, out); // again
    (*z)->unzip_start(z, out);
    auto idle = static_cast<Tq4_zip>(Tq4_object_Dup(z));
    EXPECT_EQ((*idle)->zip(idle, "x", 1), 0) << "a duplicate is idle";
    EXPECT_EQ(Tq4_object_Equal(z, idle), 0);
    Tq4_zip_oitf->Delete(idle);
    Tq4_zip_oitf->Reset(z);
    EXPECT_EQ((*z)->zip(z, "x", 1), 0);
    (*z)->zip_start(z, out); // left open for the fixture's Delete
}

} // namespace
