// logwriters: lines missing from the shared log (figure 9).
//
//   logwriters writer ID COUNT TIMES_FILE START_NS INTERVAL_US
//       sets a 64 KiB running limit (ymSetLogSizeLimit(65536)) before its first call, waits for the
//       wall-clock time START_NS (so that the writers start together), then sends audio commands
//       1..COUNT for the device "writer-ID", one every INTERVAL_US (so that they go on together to
//       the end; no meeting client runs: each answers 5, and the SDK writes its line
//       ">> -[ymSdkImplement SetAudioCmd:audioDevice:]: cmd = N"). Writes its pid and, per
//       command, the wall-clock times before and after the call to TIMES_FILE.
//   logwriters analyze TIMES_FILE...
//       reads the visible log and the writers' times. The last cut is where the first numbered line
//       of the visible file was written: every command a writer began after that line's call had
//       returned must be in the file. Prints per writer and in total
//         writer ID pid N expected N present N missing N
//         missing N of N (X %) writers_absent N
//   logwriters ymctl YMCTL COUNT
//       the default limit; sends numbered commands until the log passes 102400 bytes, runs
//       `YMCTL status` (its output and error to /dev/null), then sends COUNT more commands and
//       counts those whose line is in the visible log. Prints
//         log_bytes_before N reached N of N
//
// Lines are told apart by the process part of the log line, "name[pid:tid]".
#include <YumoClientSdk/ymSdkC.h>

#include <sys/stat.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "desktop.h"

namespace {

const std::string kMarker = ">> -[ymSdkImplement SetAudioCmd:audioDevice:]: cmd = ";

// The numbered lines of the visible log, in file order: (pid, number).
std::vector<std::pair<long, long>> numberedLines()
{
    std::vector<std::pair<long, long>> found;
    std::string log = desk::readFile(desk::logPath());
    size_t start = 0;
    while (start < log.size()) {
        size_t end = log.find('\n', start);
        if (end == std::string::npos)
            end = log.size();
        std::string line = log.substr(start, end - start);
        start = end + 1;
        size_t at = line.find(kMarker);
        if (at == std::string::npos)
            continue;
        size_t colon = line.rfind(':', at);
        size_t bracket = line.rfind('[', at);
        if (bracket == std::string::npos || colon == std::string::npos || colon < bracket)
            continue;
        long pid = std::strtol(line.c_str() + bracket + 1, nullptr, 10);
        long number = std::strtol(line.c_str() + at + kMarker.size(), nullptr, 10);
        found.emplace_back(pid, number);
    }
    return found;
}

int writer(int id, long count, const char *timesPath, long long startNs, long intervalUs)
{
    ymSetLogSizeLimit(65536);
    ymGetSDKAvailableFeatures();
    std::string name = "writer-" + std::to_string(id);
    std::vector<long long> before(static_cast<size_t>(count) + 1), after(static_cast<size_t>(count) + 1);
    for (long i = 1; i <= count; ++i) {
        long long due = startNs + (i - 1) * intervalUs * 1000LL;
        long long wait = due - desk::realtimeNs();
        if (wait > 0)
            usleep(static_cast<useconds_t>(wait / 1000));
        before[static_cast<size_t>(i)] = desk::realtimeNs();
        ymSetAudioCmd(static_cast<int32_t>(i), "1", name.c_str(), 0, 0);
        after[static_cast<size_t>(i)] = desk::realtimeNs();
    }
    FILE *file = std::fopen(timesPath, "w");
    if (!file)
        return 1;
    std::fprintf(file, "%d %ld %ld\n", id, static_cast<long>(getpid()), count);
    for (long i = 1; i <= count; ++i)
        std::fprintf(file, "%lld %lld\n", before[static_cast<size_t>(i)], after[static_cast<size_t>(i)]);
    std::fclose(file);
    return 0;
}

struct Writer {
    int id = 0;
    long pid = 0;
    long count = 0;
    std::vector<long long> before, after;
};

int analyze(int argc, char **argv)
{
    std::vector<Writer> writers;
    for (int i = 0; i < argc; ++i) {
        FILE *file = std::fopen(argv[i], "r");
        if (!file)
            continue;
        Writer w;
        if (std::fscanf(file, "%d %ld %ld", &w.id, &w.pid, &w.count) == 3) {
            w.before.resize(static_cast<size_t>(w.count) + 1);
            w.after.resize(static_cast<size_t>(w.count) + 1);
            for (long n = 1; n <= w.count; ++n)
                if (std::fscanf(file, "%lld %lld", &w.before[static_cast<size_t>(n)], &w.after[static_cast<size_t>(n)]) != 2)
                    break;
            writers.push_back(std::move(w));
        }
        std::fclose(file);
    }
    std::map<long, const Writer *> byPid;
    for (const Writer &w : writers)
        byPid[w.pid] = &w;
    std::vector<std::pair<long, long>> lines = numberedLines();
    // The first numbered line of a writer in the file marks the last cut.
    long long cut = -1;
    std::map<long, std::set<long>> present;
    for (const auto &[pid, number] : lines) {
        auto w = byPid.find(pid);
        if (w == byPid.end() || number < 1 || number > w->second->count)
            continue;
        if (cut < 0)
            cut = w->second->after[static_cast<size_t>(number)];
        present[pid].insert(number);
    }
    long totalExpected = 0, totalMissing = 0, absent = 0;
    for (const Writer &w : writers) {
        const std::set<long> &seen = present[w.pid];
        long expected = 0, missing = 0;
        for (long n = 1; n <= w.count; ++n) {
            bool isPresent = seen.count(n) > 0;
            bool afterCut = cut >= 0 && w.before[static_cast<size_t>(n)] > cut;
            if (!isPresent && !afterCut)
                continue;
            ++expected;
            if (!isPresent)
                ++missing;
        }
        if (seen.empty())
            ++absent;
        totalExpected += expected;
        totalMissing += missing;
        std::printf("writer %d pid %ld written %ld expected %ld present %zu missing %ld\n", w.id, w.pid, w.count, expected,
                    seen.size(), missing);
    }
    std::printf("missing %ld of %ld (%.1f %%) writers_absent %ld\n", totalMissing, totalExpected,
                totalExpected ? 100.0 * static_cast<double>(totalMissing) / static_cast<double>(totalExpected) : 0.0, absent);
    return 0;
}

int besideYmctl(const char *ymctl, long count)
{
    ymGetSDKAvailableFeatures();
    long number = 0;
    struct stat status;
    std::string path = desk::logPath();
    while (number < 100000) {
        ++number;
        ymSetAudioCmd(static_cast<int32_t>(number), "1", "companion", 0, 0);
        if (number % 20 == 0 && stat(path.c_str(), &status) == 0 && status.st_size > 102400)
            break;
    }
    long long sizeBefore = stat(path.c_str(), &status) == 0 ? static_cast<long long>(status.st_size) : -1;
    pid_t child = fork();
    if (child == 0) {
        int null = open("/dev/null", O_RDWR);
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execl(ymctl, ymctl, "status", static_cast<char *>(nullptr));
        _exit(127);
    }
    int childStatus = 0;
    waitpid(child, &childStatus, 0);
    long first = number + 1;
    for (long i = 0; i < count; ++i) {
        ++number;
        ymSetAudioCmd(static_cast<int32_t>(number), "1", "companion", 0, 0);
    }
    long reached = 0;
    long self = static_cast<long>(getpid());
    for (const auto &[pid, n] : numberedLines())
        if (pid == self && n >= first && n <= number)
            ++reached;
    std::printf("log_bytes_before %lld reached %ld of %ld ymctl_exit %d\n", sizeBefore, reached, count,
                WIFEXITED(childStatus) ? WEXITSTATUS(childStatus) : -1);
    std::fflush(stdout);
    _exit(0);
}

}  // namespace

int main(int argc, char **argv)
{
    std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "writer" && argc == 7)
        return writer(std::atoi(argv[2]), std::atol(argv[3]), argv[4], std::atoll(argv[5]), std::atol(argv[6]));
    if (mode == "analyze" && argc > 2)
        return analyze(argc - 2, argv + 2);
    if (mode == "ymctl" && argc == 4)
        return besideYmctl(argv[2], std::atol(argv[3]));
    std::fprintf(stderr, "usage: logwriters writer ID COUNT TIMES_FILE START_NS INTERVAL_US | analyze TIMES_FILE... | ymctl YMCTL COUNT\n");
    return 64;
}
