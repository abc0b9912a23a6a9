// Does reading JSON records into data trees cost the same per megabyte at
// 1, 10 and 100 MB? Generates a top-level array of records of each size,
// reads each file into trees that are all kept (as a DOM keeps its document)
// with nvk and with nlohmann-json, and prints CPU seconds and peak memory per
// MB side by side.
//
//   linear_growth [DIR [SIZES_MB...]]        DIR defaults to /tmp/nvk-linear, sizes to 1 10 100
//
// Each read runs in a process of its own (this program again, with --read), so
// that the peak resident size the kernel reports belongs to that read alone;
// the memory column is that peak less the process's size before the read.
// Timing stops once the trees are complete: neither side's teardown counts.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "nvk/interchange/CJsonReader.h"
#include "nvk/platform/FileInterface.h"

namespace {

double cpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

long residentKb() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Records shaped like the platform's: scalars of every kind, a nested
// object, an array of numbers and an array of small objects, names repeated
// from record to record. A fixed generator, so every run reads the same text.
void generate(const std::string& path, size_t bytes) {
    std::ofstream out(path, std::ios::binary);
    uint64_t state = 0x9e3779b97f4a7c15ull;
    auto next = [&] {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    static const char* const kinds[] = {"assay", "compound", "sample", "plate"};
    size_t written = 1;
    out << '[';
    char buf[768];
    for (uint64_t id = 0; written < bytes; ++id) {
        uint64_t r = next();
        int n = std::snprintf(
            buf, sizeof buf,
            "%s\n{\"id\":%" PRIu64 ",\"kind\":\"%s\",\"name\":\"record %" PRIu64 " of the run\",\"score\":%.6f,"
            "\"active\":%s,\"note\":null,\"site\":{\"lat\":%.5f,\"lon\":%.5f,\"label\":\"site-%u\"},"
            "\"readings\":[%u,%u,%u,%u,%u],\"steps\":[{\"step\":1,\"ok\":true},{\"step\":2,\"ok\":%s}]}",
            id ? "," : "", id, kinds[r % 4], id, double(r % 100000) / 997.0, (r >> 8) % 2 ? "true" : "false",
            double(r % 18000) / 100.0 - 90.0, double((r >> 16) % 36000) / 100.0 - 180.0, unsigned(r >> 40) % 500,
            unsigned(r >> 3) % 1000, unsigned(r >> 13) % 1000, unsigned(r >> 23) % 1000, unsigned(r >> 33) % 1000,
            unsigned(r >> 43) % 1000, (r >> 50) % 3 ? "true" : "false");
        out.write(buf, n);
        written += size_t(n);
    }
    out << "]\n";
}

// The child's side: one library reads one file; prints records, CPU seconds
// and the resident size before reading.
int readOne(const std::string& library, const std::string& path) {
    long before = residentKb();
    double t0 = cpuSeconds();
    size_t records = 0;
    if (library == "nvk") {
        tovan::WString wide(tovan::utf8ToUtf16(path));
        tovan::vcFileInterface file(wide, tovan::FileMode::Read);
        nvk::CJsonReader reader(&file);
        reader.ResetStream();
        static tovan::Array<tovan::Ptr<tovan::iNode>> nodes;  // kept to the end, never torn down
        while (reader.ReadNextObject(nodes)) {
        }
        records = nodes.size();
    } else {
        std::ifstream in(path, std::ios::binary);
        static nlohmann::json doc = nlohmann::json::parse(in);
        records = doc.size();
    }
    double t = cpuSeconds() - t0;
    std::printf("%zu %.6f %ld\n", records, t, before);
    std::fflush(stdout);
    _exit(0);  // the kept trees are not torn down
}

struct Run {
    size_t records = 0;
    double seconds = 0;
    long peakKb = 0, startKb = 0;
};

Run spawn(const std::string& library, const std::string& path) {
    int fds[2];
    if (pipe(fds) != 0) std::exit(2);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], 1);
        close(fds[0]);
        close(fds[1]);
        execl("/proc/self/exe", "linear_growth", "--read", library.c_str(), path.c_str(), (char*)nullptr);
        _exit(127);
    }
    close(fds[1]);
    std::string text;
    char buf[256];
    for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) text.append(buf, size_t(n));
    close(fds[0]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Run run;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
        std::sscanf(text.c_str(), "%zu %lf %ld", &run.records, &run.seconds, &run.startKb) != 3) {
        std::fprintf(stderr, "reading %s with %s failed\n", path.c_str(), library.c_str());
        std::exit(1);
    }
    run.peakKb = usage.ru_maxrss;
    return run;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "--read") return readOne(argv[2], argv[3]);
    std::string dir = argc > 1 ? argv[1] : "/tmp/nvk-linear";
    std::vector<size_t> sizes;
    for (int i = 2; i < argc; ++i) sizes.push_back(std::strtoul(argv[i], nullptr, 10));
    if (sizes.empty()) sizes = {1, 10, 100};
    if (std::system(("mkdir -p '" + dir + "'").c_str()) != 0) return 2;
    std::printf("| MB | records | nvk s/MB | nlohmann s/MB | nvk vs nlohmann (time) | nvk MB/MB | nlohmann MB/MB |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    for (size_t mb : sizes) {
        std::string path = dir + "/records-" + std::to_string(mb) + "MB.json";
        if (std::ifstream(path).peek() == EOF) generate(path, mb * 1000000);
        std::ifstream probe(path, std::ios::binary | std::ios::ate);
        double size = double(probe.tellg()) / 1e6;
        Run ours = spawn("nvk", path), peer = spawn("nlohmann", path);
        if (ours.records == 0 || peer.records != ours.records) {
            std::fprintf(stderr, "%s: nvk read %zu records, nlohmann %zu\n", path.c_str(), ours.records, peer.records);
            return 1;
        }
        auto perMb = [&](const Run& r) { return double(r.peakKb - r.startKb) / 1024.0 / size; };
        std::printf("| %zu | %zu | %.4f | %.4f | %.2f | %.1f | %.1f |\n", mb, ours.records, ours.seconds / size,
                    peer.seconds / size, peer.seconds / ours.seconds, perMb(ours), perMb(peer));
        std::fflush(stdout);
    }
    return 0;
}
