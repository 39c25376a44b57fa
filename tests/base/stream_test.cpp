// What a stream promises: bytes come out as they went in, in either order, over files, pipes and refusing descriptors;
// a line is whole, too long or the end, and the caller can tell which.
#include "support/test.hpp"

namespace {

struct Stream : testing::Test {
    Temp_dir dir;
    Tq4_own<Tq4_stream> owned = Tq4_make<Tq4_stream>(Tq4_stream_oitf);
    Tq4_stream s = owned.get();
    std::vector<int> descriptors;

    ~Stream() override {
        (*s)->Detach(s);
        for (int descriptor : descriptors) close(descriptor);
    }
    int attach(int descriptor) {
        descriptors.push_back(descriptor);
        return (*s)->Attach(s, descriptor);
    }
    int attach_file(const std::string &content = "") {
        std::ofstream(dir / "file") << content;
        return attach(open((dir / "file").c_str(), O_RDWR | O_CLOEXEC));
    }
    std::string file() const { return content(dir / "file"); }
    std::string line(unsigned long maximum = 0, int mode = 1) {
        const char *text = (*s)->ReadLine(s, mode, maximum);
        if (text) return {text, (*s)->LineLength(s)};
        return std::string("<") + "oelx"[state()] + ">"; // <e> end, <l> too long, <x> error
    }
    long write(std::string_view text) { return (*s)->Write(s, text.data(), text.size()); }
    Tq4_stream_state state() const { return (*s)->State(s); }
    bool flush() { return (*s)->Flush(s); }
};

TEST_F(Stream, TextReachesTheDescriptorAtFlush) {
    attach_file();
    EXPECT_EQ((*s)->Printf(s, "%d-%s", 42, "泉") + (*s)->Printf(s, nullptr) + (*s)->Write(s, nullptr, 5), 6);
    EXPECT_EQ((*s)->WriteChar(s, '=', 3), 3);
    EXPECT_EQ((*s)->Write(s, "end\n", TQ4_ALL_ONES), 4);
    EXPECT_EQ(file(), "");
    EXPECT_TRUE(flush());
    EXPECT_EQ(file(), "42-泉===end\n");
    EXPECT_EQ((*s)->last_char(s), '\n') << "also after it has left the buffer";
}

TEST_F(Stream, LinesEndAtALineFeedOrTheEndOfTheData) {
    attach_file("  two\t\none \t\r\n\nnul:" + std::string(1, '\0') + "x\nlast");
    EXPECT_EQ(line(0, 0), "  two\t\n");
    for (const std::string &expected :
         {std::string("one"), std::string(), std::string("nul:\0x", 6), std::string("last"), std::string("<e>")})
        EXPECT_EQ(line(), expected);
    attach_file("12345\n" + std::string(50000, 'x') + "\n1234\n");
    for (const char *expected : {"<l>", "<l>", "1234"}) EXPECT_EQ(line(4), expected);
    attach(open(dir.path().c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY));
    EXPECT_EQ(line(), "<x>") << "a descriptor that cannot be read is an error, not an end";
}

TEST_F(Stream, NumbersKeepTheirBytesInEitherOrder) {
    for (auto [order, bytes] : {std::pair{ByteOrder_BigEndians, "\1\2\3\4"}, {ByteOrder_LittleEndians, "\4\3\2\1"}}) {
        attach_file();
        EXPECT_TRUE((*s)->SetByteOrder(s, order));
        EXPECT_EQ((*s)->Write_int(s, 0x01020304) + (*s)->Write_double(s, 0.1), 12);
        flush();
        EXPECT_EQ(file().substr(0, 4), bytes);
        lseek((*s)->Handle(s), 0, SEEK_SET);
        int i = 0;
        double d = 0;
        EXPECT_EQ((*s)->Read_int(s, &i) + (*s)->Read_double(s, &d), 12);
        EXPECT_TRUE(i == 0x01020304 && d == 0.1);
    }
    EXPECT_FALSE((*s)->SetByteOrder(s, ByteOrder_MiddleEndians));
}

TEST_F(Stream, APromptIsSeenBeforeItsAnswerIsAwaited) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    attach(ends[0]), descriptors.push_back(ends[1]);
    write("name? ");
    Parallel reader([&] { return line() == "zhang"; });
    char prompt[7] = "";
    EXPECT_EQ(recv(ends[1], prompt, 6, MSG_WAITALL), 6);
    EXPECT_STREQ(prompt, "name? ");
    EXPECT_EQ(send(ends[1], "zhang\n", 6, 0), 6);
    EXPECT_TRUE(reader.result());
}

TEST_F(Stream, ADescriptorThatDoesNotBlockIsWaitedFor) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string block(1 << 20, 'x'); // more than a pipe holds
    attach(ends[1]);
    Parallel writer([&] { return write(block) == static_cast<long>(block.size()) && flush(); });
    writer.await_sleep();
    auto reader = Tq4_make<Tq4_stream>(Tq4_stream_oitf);
    (*reader)->Attach(reader.get(), ends[0]);
    descriptors.push_back(ends[0]);
    std::string came(block.size(), 0);
    EXPECT_EQ((*reader)->Read(reader.get(), came.data(), came.size()), came.size());
    EXPECT_TRUE(writer.result());
    EXPECT_EQ(came, block);
}

TEST_F(Stream, WhatIsRefusedIsKeptUntilThereIsRoom) {
    attach(open("/dev/full", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(write("kept"), 4);
    EXPECT_FALSE(flush());
    EXPECT_EQ(write(std::string(20000, 'x')), 8188) << "as much as fits";
    EXPECT_EQ((*s)->Write_int(s, 1), -1);
    std::ofstream(dir / "file");
    const int descriptor = open((dir / "file").c_str(), O_WRONLY | O_CLOEXEC);
    dup2(descriptor, (*s)->Handle(s));
    close(descriptor);
    EXPECT_TRUE(flush());
    EXPECT_EQ(file(), "kept" + std::string(8188, 'x'));
}

} // namespace
