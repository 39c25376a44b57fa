// Paths split the same way everywhere; missing directories are made on the way to a file; odd results hold.
#include "platform/multi_platform_fs.hpp"
#include "support/test.hpp"

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
    const mode_t mask = umask(0);
    const int file = MP_SafeOpen(path.c_str(), O_RDWR | O_CREAT, 0640);
    umask(mask);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    close(file);
    MP_FileInfo info;
    EXPECT_TRUE(MP_GetFileInfo(path.c_str(), 1, &info) && info.mode == 0640);
    EXPECT_TRUE(MP_GetFileInfo((dir / "a").c_str(), 1, &info) && info.mode == 0751);
    EXPECT_EQ(make_way_to(path + "/below a file"), -1);
}

} // namespace
