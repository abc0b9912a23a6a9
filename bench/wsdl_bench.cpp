// Loading a WSDL and walking all of it (every service, port, binding,
// operation, message, part and the custom types the parts use), for each
// WSDL of the corpus, against python3-zeep doing the same on the same files
// in the same run (bench/wsdl_zeep.py, run once before the benchmarks; its
// best of 3 per file). Counter speedup_vs_zeep is zeep's time / ours (CPU
// time both, so that other jobs on the machine weigh on neither);
// bytes_per_second counts the WSDL and the files it imports.
//
// BM_ExpatAlone runs libexpat over the same files with no handler at all, for
// every file zeep loads: its counter zeep_vs_expat is zeep's time / that
// time, the most any reader built on libexpat could be faster than zeep.
#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "nvk/platform/Exception.h"
#include "nvk/services/CWsdlParser.h"
#include "nvk/services/WsdlReport.h"

namespace {

const std::string kCorpus = NVK_CORPUS_DIR "/wsdl/";

std::vector<std::string> corpusWsdls() {
    std::ifstream manifest(kCorpus + "MANIFEST.tsv");
    std::vector<std::string> files;
    for (std::string line; std::getline(manifest, line);) {
        std::istringstream fields(line);
        std::string file, role;
        std::getline(fields, file, '\t');
        std::getline(fields, role, '\t');
        if (role == "wsdl") files.push_back(file);
    }
    return files;
}

// zeep's seconds per file; absent when it did not load the file.
std::map<std::string, double> runZeep(const std::vector<std::string>& files) {
    std::string command = "cd '" + kCorpus + "' && /usr/bin/python3 -W ignore '" NVK_BENCH_DIR "/wsdl_zeep.py' 3 '" +
                          kCorpus + "wellknown/soap-encoding.xsd'";
    for (const std::string& f : files) command += " '" + f + "'";
    std::map<std::string, double> seconds;
    FILE* out = popen(command.c_str(), "r");
    if (!out) return seconds;
    char line[4096];
    while (std::fgets(line, sizeof line, out)) {
        std::string text(line);
        size_t tab = text.find('\t');
        if (tab == std::string::npos) continue;
        std::string file = text.substr(0, tab), result = text.substr(tab + 1);
        if (result.rfind("error", 0) == 0)
            std::fprintf(stderr, "zeep does not load %s: %s", file.c_str(), result.c_str() + 7);
        else
            seconds[file] = std::stod(result);
    }
    pclose(out);
    return seconds;
}

void loadAndWalk(benchmark::State& state, const std::string& file, double zeepSeconds) {
    const tovan::WString path = tovan::toWide(kCorpus + file);
    size_t bytes = 0;
    {
        nvk::CWsdlParser wsdl;
        wsdl.Parse(path);
        for (const auto& [name, size] : wsdl.GetLoadedDocuments()) bytes += size;
    }
    for (auto _ : state) {
        nvk::CWsdlParser wsdl;
        wsdl.Parse(path);
        try {
            nvk::WsdlReport report = nvk::WsdlReport::Build(wsdl);
            benchmark::DoNotOptimize(report.types.size());
        } catch (const tovan::Exception&) {
            // the file's own failure ("Unable to find soap addresses"): timed all the same
        }
    }
    state.SetBytesProcessed(int64_t(bytes) * state.iterations());
    if (zeepSeconds > 0)
        state.counters["speedup_vs_zeep"] = benchmark::Counter(zeepSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
}

void expatAlone(benchmark::State& state, const std::string& file, double zeepSeconds) {
    std::vector<std::string> docs;
    {
        nvk::CWsdlParser wsdl;
        wsdl.Parse(tovan::toWide(kCorpus + file));
        for (const auto& [path, size] : wsdl.GetLoadedDocuments()) {
            std::ifstream in(path, std::ios::binary);
            std::ostringstream bytes;
            bytes << in.rdbuf();
            docs.push_back(bytes.str());
        }
    }
    size_t bytes = 0;
    for (const std::string& d : docs) bytes += d.size();
    for (auto _ : state) {
        for (const std::string& d : docs) {
            XML_Parser p = XML_ParserCreate(nullptr);  // as the library's XML reader makes it
            if (XML_Parse(p, d.data(), int(d.size()), 1) != XML_STATUS_OK) state.SkipWithError("not well-formed");
            XML_ParserFree(p);
        }
    }
    state.SetBytesProcessed(int64_t(bytes) * state.iterations());
    state.counters["zeep_vs_expat"] = benchmark::Counter(zeepSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
    tovan::DiagnosticCapture quiet;  // shared-binding warnings, once per iteration
    benchmark::Initialize(&argc, argv);
    std::vector<std::string> files = corpusWsdls();
    std::map<std::string, double> zeep = runZeep(files);
    for (const std::string& f : files) {
        double z = zeep.count(f) ? zeep[f] : 0;
        benchmark::RegisterBenchmark(("BM_LoadAndWalk/" + f).c_str(), [f, z](benchmark::State& s) { loadAndWalk(s, f, z); })
            ->Unit(benchmark::kMillisecond);
    }
    for (const std::string& f : files)
        if (zeep.count(f))
            benchmark::RegisterBenchmark(("BM_ExpatAlone/" + f).c_str(),
                                         [f, z = zeep[f]](benchmark::State& s) { expatAlone(s, f, z); })
                ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
