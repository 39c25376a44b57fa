// Paths split the same way everywhere; missing directories are made on the way to a file; odd results hold.
#include "platform/multi_platform_fs.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/temp_dir.hpp"

namespace {

struct PlatformFiles : testing::Test {
    Temp_dir dir;

    static bool is_directory(const std::string &path) { return MP_GetFileType(path.c_str()) == 1; }
    static int make_way_to(const std::string &file) { return MP_MkdirBeforCreateFile(file.c_str(), 0700); }
};

TEST_F(PlatformFiles, PathsSplitAtTheLastSeparatorOfEitherKind) {
    const std::string here = dir.path();
    const struct {
        std::string path, directory, file, name, extension;
    } cases[] = {
        {"c:\\no/where\\a.tar.gz", "c:\\no/where", "a.tar.gz", "a.tar", "gz"},
        {"file", "", "file", "file", ""},
        {".hidden", "", ".hidden", "", "hidden"},
        {"/no.where/file", "/no.where", "file", "file", ""},
        {"", "", "", "", ""},
        {here + "//", here + "/", "*.*", "*", "*"},
        {"/", "", "*.*", "*", "*"},
    };
    for (const auto &[path, directory, file, name, extension] : cases) {
        std::string_view found_directory = "?", found_file = "?", found_name = "?", found_extension = "?";
        MP_SpliteFileName2(path.c_str(), &found_directory, &found_file);
        EXPECT_EQ(std::tuple(found_directory, found_file), std::tuple(directory, file)) << path;
        MP_SpliteFileName1(path.c_str(), &found_directory, &found_name, &found_extension);
        EXPECT_EQ(std::tuple(found_directory, found_name, found_extension), std::tuple(directory, name, extension));
    }
}

TEST_F(PlatformFiles, OpeningToCreateMakesTheDirectoriesAndIsCloseOnExec) {
    const std::string path = dir / "a/b/c.log";
    EXPECT_EQ(MP_SafeOpen(path.c_str(), O_RDWR, 0640), -1);
    EXPECT_FALSE(is_directory(dir / "a")) << "only when asked to create";
    const mode_t mask = umask(0);
    const int file = MP_SafeOpen(path.c_str(), O_RDWR | O_CREAT, 0640);
    umask(mask);
    ASSERT_GE(file, 0);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    close(file);
    MP_FileInfo info;
    EXPECT_TRUE(MP_GetFileInfo(path.c_str(), 1, &info) && info.mode == 0640);
    EXPECT_TRUE(MP_GetFileInfo((dir / "a").c_str(), 1, &info) && info.mode == 0751);
    EXPECT_EQ(make_way_to(path + "/below a file"), -1);
}

TEST_F(PlatformFiles, DirectoriesAreMadeUpToTheLastSeparatorAndTheLimit) {
    const std::string parent = dir / std::string(100, 'y');
    const std::string longest = parent + "/" + std::string(260 - parent.size() - 1, 'z');
    EXPECT_EQ(make_way_to(longest + "z/file"), 0);
    EXPECT_TRUE(is_directory(parent));
    EXPECT_FALSE(is_directory(longest + "z")) << "longer than the walk goes";
    EXPECT_EQ(make_way_to(longest + "\\file"), 0);
    EXPECT_TRUE(is_directory(longest));
    EXPECT_FALSE(is_directory(longest + "/file"));
    EXPECT_EQ(make_way_to("file"), 0);
}

TEST_F(PlatformFiles, AShareIsWalkedFromItsDollar) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    EXPECT_EQ(make_way_to("\\\\host\\c$/sub/file"), 0);
    EXPECT_TRUE(is_directory("\\\\host\\c$/sub"));
    EXPECT_FALSE(is_directory("\\\\host"));
    EXPECT_EQ(make_way_to("\\\\host/sub/file"), -1);
    std::filesystem::current_path(before);
}

TEST_F(PlatformFiles, ATemporaryFileIsMadeWhenTheResultIsNull) {
    std::string name = dir / "temp_XXXXXX", bad = dir / "temp";
    EXPECT_TRUE(MP_TempFile(name.data()) == nullptr && MP_TempFile(bad.data()) == bad.data());
}

TEST_F(PlatformFiles, DiskCountsAreInBlocks) {
    const std::filesystem::space_info space = std::filesystem::space(dir.path());
    uint64_t block = 0, total = 0, unused = 0;
    EXPECT_EQ(MP_GetDiskInfo(dir.path().c_str(), &block, &total, &unused), 1);
    EXPECT_EQ(block * total, space.capacity);
    EXPECT_LE(unused, total);
    EXPECT_EQ(MP_GetDiskInfo((dir / "missing").c_str(), &block, &total, &unused), 0);
    EXPECT_EQ(block * total, space.capacity) << "left alone";
}

} // namespace
