// Paths split the same way everywhere; missing directories are made on the way to a file; odd results hold.
#include "platform/multi_platform_fs.hpp"
#include "support/temp_dir.hpp"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

struct Files : testing::Test {
    Temp_dir dir;

    std::string make_file(const std::string &name, const std::string &content) {
        std::ofstream(dir / name) << content;
        return dir / name;
    }
    static mode_t mode_of(const std::string &path) {
        struct stat status {};
        stat(path.c_str(), &status);
        return status.st_mode & 07777;
    }
    static bool is_directory(const std::string &path) { return MP_GetFileType(path.c_str()) == 1; }
};

TEST_F(Files, PathsSplitAtTheLastSeparatorOfEitherKind) {
    const std::string here = dir.path();
    struct {
        std::string path, directory, name, extension;
    } cases[] = {
        {"/no/where/file.txt", "/no/where", "file", "txt"},
        {"c:\\no/where\\a.tar.gz", "c:\\no/where", "a.tar", "gz"},
        {"file", "", "file", ""},
        {".hidden", "", "", "hidden"},
        {"/file.", "", "file", ""},
        {"/no.where/file", "/no.where", "file", ""},
        {"/no/where/", "/no/where", "", ""},
        {"", "", "", ""},
        {here, here, "*", "*"},
        {here + "/", here, "*", "*"},
        {here + "//", here + "/", "*", "*"},
        {"/", "", "*", "*"},
    };
    for (const auto &[path, directory, name, extension] : cases) {
        std::string_view whole_directory, file, part_directory, part_name, part_extension;
        MP_SpliteFileName2(path.c_str(), &whole_directory, &file);
        MP_SpliteFileName1(path.c_str(), &part_directory, &part_name, &part_extension);
        EXPECT_EQ(whole_directory, directory) << path;
        EXPECT_EQ(part_directory, directory) << path;
        EXPECT_EQ(part_name, name) << path;
        EXPECT_EQ(part_extension, extension) << path;
        EXPECT_EQ(file, name + (file.find('.') == file.npos ? "" : ".") + extension) << path;
    }
    std::string_view directory = "?", file = "?";
    MP_SpliteFileName2(nullptr, &directory, &file);
    EXPECT_EQ(directory, "");
    EXPECT_EQ(file, "");
}

TEST_F(Files, TypesAndSizes) {
    const std::string file = make_file("file", "12345");
    ASSERT_EQ(symlink(file.c_str(), (dir / "link").c_str()), 0);
    EXPECT_EQ(MP_GetFileType(file.c_str()), 2);
    EXPECT_EQ(MP_GetFileType((dir / "link").c_str()), 2);
    EXPECT_EQ(MP_GetFileType(dir.path().c_str()), 1);
    EXPECT_EQ(MP_GetFileType("/dev/null"), 0);
    EXPECT_EQ(MP_GetFileType((dir / "missing").c_str()), 0);
    EXPECT_EQ(MP_GetFileSize2(file.c_str()), 5u);
    EXPECT_EQ(MP_GetFileSize2((dir / "missing").c_str()), 0u);
    EXPECT_EQ(MP_GetFileSize1(-1), 0u);
}

TEST_F(Files, OpeningToCreateMakesTheDirectoriesCloseOnExec) {
    const mode_t mask = umask(0);
    const std::string path = dir / "a/b/c.log";
    EXPECT_EQ(MP_SafeOpen(path.c_str(), O_RDWR, 0640), -1);
    EXPECT_EQ(MP_FileGetLastError(), ENOENT);
    EXPECT_FALSE(is_directory(dir / "a")) << "only when asked to create";

    const int file = MP_SafeOpen(path.c_str(), O_RDWR | O_CREAT, 0640);
    umask(mask);
    ASSERT_GE(file, 0);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(write(file, "1234567", 7), 7);
    EXPECT_EQ(MP_GetFileSize1(file), 7u);
    close(file);
    EXPECT_EQ(mode_of(path), 0640u);
    EXPECT_EQ(mode_of(dir / "a"), 0751u);
    EXPECT_EQ(mode_of(dir / "a/b"), 0751u);
    EXPECT_EQ(MP_SafeOpen(nullptr, O_CREAT, 0640), -1);
}

TEST_F(Files, DirectoriesAreMadeUpToTheLastSeparator) {
    EXPECT_EQ(MP_MkdirBeforCreateFile((dir / "one//two\\file").c_str(), 0700), 0);
    EXPECT_TRUE(is_directory(dir / "one/two"));
    EXPECT_FALSE(is_directory(dir / "one/two/file"));
    EXPECT_EQ(MP_MkdirBeforCreateFile((dir / "one/two/file").c_str(), 0700), 0) << "all there already";
    EXPECT_EQ(MP_MkdirBeforCreateFile("file", 0700), 0);

    make_file("plain", "");
    EXPECT_EQ(MP_MkdirBeforCreateFile((dir / "plain/file").c_str(), 0700), -1);
    EXPECT_EQ(MP_MkdirBeforCreateFile(nullptr, 0700), -1);
}

TEST_F(Files, PrefixesBeyondTheLimitEndTheWalk) {
    const std::string parent = dir / std::string(100, 'y');
    const std::string longest = parent + "/" + std::string(260 - parent.size() - 1, 'z');
    EXPECT_EQ(MP_MkdirBeforCreateFile((longest + "z/file").c_str(), 0700), 0);
    EXPECT_TRUE(is_directory(parent));
    EXPECT_FALSE(is_directory(longest + "z"));
    EXPECT_EQ(MP_MkdirBeforCreateFile((longest + "/file").c_str(), 0700), 0);
    EXPECT_TRUE(is_directory(longest));
}

TEST_F(Files, AShareIsWalkedFromItsDollar) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    EXPECT_EQ(MP_MkdirBeforCreateFile("\\\\host\\c$/sub/file", 0700), 0);
    EXPECT_TRUE(is_directory("\\\\host\\c$/sub"));
    EXPECT_FALSE(is_directory("\\\\host"));
    EXPECT_EQ(MP_MkdirBeforCreateFile("\\\\host/sub/file", 0700), -1);
    std::filesystem::current_path(before);
}

TEST_F(Files, ATemporaryFileIsMadeWhenTheResultIsNull) {
    std::string name = dir / "temp_XXXXXX", bad = dir / "temp";
    EXPECT_EQ(MP_TempFile(name.data()), nullptr);
    EXPECT_EQ(MP_GetFileType(name.c_str()), 2);
    EXPECT_EQ(mode_of(name), 0600u);
    EXPECT_EQ(MP_TempFile(bad.data()), bad.data());
}

TEST_F(Files, DiskCountsAreInBlocks) {
    struct statvfs status;
    ASSERT_EQ(statvfs(dir.path().c_str(), &status), 0);
    uint64_t block = 0, total = 0, unused = 0;
    EXPECT_EQ(MP_GetDiskInfo(dir.path().c_str(), &block, &total, &unused), 1);
    EXPECT_EQ(block, status.f_bsize);
    EXPECT_EQ(total, status.f_blocks);
    EXPECT_LE(unused, total);
    EXPECT_EQ(MP_GetDiskInfo((dir / "missing").c_str(), &block, &total, &unused), 0);
    EXPECT_EQ(block, status.f_bsize) << "left alone";
    EXPECT_EQ(MP_GetDiskInfo(nullptr, nullptr, nullptr, nullptr), 0);
}

} // namespace
