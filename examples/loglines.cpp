// loglines: several threads write through one log until its files rotate by size; then the files are read back and
// every line is accounted for, and each is compressed and decompressed to the same bytes.
//
//   loglines DIRECTORY [THREADS [LINES]]
//
// DIRECTORY becomes the log's main directory; LINES are written in all. Exits 1 when a line is lost, torn or out of
// order, or a file does not come back the same.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <tq4/tq4.h>

#include "object.hpp"

namespace {

constexpr int File_size = 4 << 20;
constexpr std::size_t Piece_size = 65536;

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void write_lines(const char *directory, int threads, long lines_each) {
    const Object<Tq4_log> log(Tq4_log_oitf, "for several threads");
    log->Init(log, "loglines", 0);
    log->MainDir(log, directory);
    log->SizeLimit(log, File_size);
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> running;
    for (int thread = 0; thread < threads; ++thread)
        running.emplace_back([&, thread] {
            for (long number = 0; number < lines_each; ++number)
                log->Printf(log, 0, "thread %d line %ld of %ld: 各个线程写同一个日志", thread, number, lines_each);
        });
    for (std::thread &thread : running) thread.join();
    const double seconds = seconds_since(start);
    std::printf("   %d threads wrote %ld lines in %.2f s, each returned when its line was with the system\n", threads,
                threads * lines_each, seconds);
}

// What was found in the files, against what was written.
struct Account {
    std::vector<long> next; // of each thread, the line expected next
    long lines = 0, torn = 0, disordered = 0;

    void add(const char *line) {
        ++lines;
        int thread, end = 0;
        long number, all;
        const char *message = std::string_view(line).starts_with('[') ? std::strstr(line, "] ") : nullptr;
        if (!message ||
            std::sscanf(message, "] thread %d line %ld of %ld: 各个线程写同一个日志%n", &thread, &number, &all, &end) !=
                3 ||
            end == 0 || message[end] || thread < 0 || static_cast<std::size_t>(thread) >= next.size()) {
            ++torn;
        } else {
            disordered += number != next[static_cast<std::size_t>(thread)];
            next[static_cast<std::size_t>(thread)] = number + 1;
        }
    }
};

bool read_back(Tq4_finder files, int threads, long lines_each) {
    Account account{std::vector<long>(static_cast<std::size_t>(threads))};
    const Object<Tq4_file> file(Tq4_file_oitf);
    for (unsigned long i = 0; i < (*files)->Count(files); ++i) {
        file->Open(file, (*files)->Path(files, i), Tq4_file_read);
        while (const char *line = file->ReadLine(file, 1, 0)) account.add(line);
    }
    std::printf("   %ld lines read back: %ld lost, %ld torn, %ld out of their thread's order\n", account.lines,
                threads * lines_each - account.lines, account.torn, account.disordered);
    return account.lines == threads * lines_each && account.torn == 0 && account.disordered == 0;
}

std::string content(const char *path) {
    const Object<Tq4_file> file(Tq4_file_oitf);
    file->Open(file, path, Tq4_file_read);
    std::string bytes(static_cast<std::size_t>(std::max(file->Size(file), 0l)), '\0');
    bytes.resize(file->Read(file, bytes.data(), bytes.size()));
    return bytes;
}

// Compresses each file in pieces and decompresses the result.
bool compress_and_compare(Tq4_finder files) {
    const Object<Tq4_zip> zip(Tq4_zip_oitf);
    const Object<Tq4_string> packed(Tq4_string_oitf), back(Tq4_string_oitf);
    unsigned long before = 0, after = 0, same = 0;
    const auto start = std::chrono::steady_clock::now();
    for (unsigned long i = 0; i < (*files)->Count(files); ++i) {
        const std::string bytes = content((*files)->Path(files, i));
        packed->truncate(packed, 0);
        back->truncate(back, 0);
        zip->zip_start(zip, packed);
        for (std::size_t at = 0; at < bytes.size(); at += Piece_size)
            zip->zip(zip, bytes.data() + at, static_cast<long>(std::min(Piece_size, bytes.size() - at)));
        zip->zip_end(zip);
        zip->unzip_start(zip, back);
        zip->unzip(zip, packed->c_str(packed), packed->length(packed));
        zip->unzip_end(zip);
        before += bytes.size();
        after += static_cast<unsigned long>(packed->length(packed));
        same += bytes == std::string_view(back->c_str(back), static_cast<std::size_t>(back->length(back)));
    }
    std::printf("   compressed %lu bytes to %lu and back in %.2f s: %lu of %lu files are the same\n", before, after,
                seconds_since(start), same, (*files)->Count(files));
    return same == (*files)->Count(files);
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "Usage: loglines DIRECTORY [THREADS [LINES]]\n");
        return 2;
    }
    const int threads = std::max(argc > 2 ? std::atoi(argv[2]) : 4, 1);
    const long lines_each = (argc > 3 ? std::atol(argv[3]) : 300000) / threads;
    write_lines(argv[1], threads, lines_each);

    const Object<Tq4_finder> files(Tq4_finder_oitf);
    files->Find(files, (std::string(argv[1]) + "/loglines_*.log").c_str(), Tq4_finder_files | Tq4_finder_recursive);
    for (unsigned long i = 0; i < files->Count(files); ++i)
        std::printf("   %s  %lu bytes, %ld lines\n", files->Name(files, i), files->Size(files, i),
                    Tq4_file_api->LineCount(files->Path(files, i)));
    const bool all_there = read_back(files, threads, lines_each);
    return compress_and_compare(files) && all_there ? 0 : 1;
}
