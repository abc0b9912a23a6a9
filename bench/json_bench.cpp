// JSON reading and writing on the corpus documents, against RapidJSON,
// nlohmann-json and simdjson on the same bytes in the same run.
//
// Each benchmark times every library inside one loop, so the ratios are
// taken under the same machine load. Counters: <lib>_MBps (document bytes
// per second) and nvk_vs_<lib> (the peer's time divided by ours: above 1
// means nvk is faster).
//
// Reading for nvk is the whole path a host takes: the file's bytes decoded
// to UTF-16 by the file interface, scanned, parsed to elements and converted
// to data nodes. Writing starts from what each library read (nodes for nvk)
// and produces UTF-8 text in memory.
#include <benchmark/benchmark.h>

#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/platform/FileInterface.h"

namespace {

// Thread CPU time: the machine is shared, and wall time would charge other
// processes' slices to whichever library happened to be running.
double cpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

std::string load(const char* name) {
    std::ifstream in(std::string(NVK_CORPUS_DIR) + "/json/bench/" + name, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

using Nodes = tovan::Array<tovan::Ptr<tovan::iNode>>;

// Every record of the document as data nodes; returns how many nodes. The
// file interface takes the bytes over, as a host hands it its buffer.
size_t nvkRead(std::string bytes, Nodes& nodes) {
    tovan::vcFileInterface file;
    file.openBytes(std::move(bytes));
    nvk::CJsonReader reader(&file);
    nodes.clear();
    while (reader.ReadNextObject(nodes)) {
    }
    return nodes.size();
}

size_t nvkWrite(const Nodes& nodes) {
    tovan::vcFileInterface out;
    out.openOutput();
    nvk::CJsonWriter* writer = nvk::JsonUtilities::CreateJsonWriter(&out);
    writer->array();
    for (const auto& n : nodes) nvk::JsonUtilities::AppendElementToArray(*writer, n.get(), false, true, false);
    writer->endArray();
    nvk::JsonUtilities::DestroyJsonWriter(writer);
    out.flush();
    return out.getOutputBytes().size();
}

struct Timer {
    double seconds = 0;
    template <class F>
    void run(F&& f) {
        double t0 = cpuSeconds();
        f();
        seconds += cpuSeconds() - t0;
    }
};

void report(benchmark::State& state, size_t bytes, const Timer& nvk,
            std::initializer_list<std::pair<const char*, const Timer*>> peers) {
    double mb = double(bytes) * double(state.iterations()) / 1e6;
    state.counters["nvk_MBps"] = mb / nvk.seconds;
    for (const auto& [name, timer] : peers) {
        state.counters[std::string(name) + "_MBps"] = mb / timer->seconds;
        state.counters[std::string("nvk_vs_") + name] = timer->seconds / nvk.seconds;
    }
}

void BM_Read(benchmark::State& state, const char* name) {
    std::string bytes = load(name);
    if (bytes.empty()) {
        state.SkipWithError("corpus document not found");
        return;
    }
    simdjson::padded_string padded(bytes);
    simdjson::dom::parser simdParser;
    Nodes records;
    Timer nvk, rapid, nlohmannTimer, simd;
    for (auto _ : state) {
        // The copy handed over is made outside the timer: the peers read the
        // caller's bytes in place, and a copy of the whole document (with
        // the allocator's tidying that a request of its size sets off) is
        // no part of reading it.
        std::string handed = bytes;
        nvk.run([&] { benchmark::DoNotOptimize(nvkRead(std::move(handed), records)); });
        rapid.run([&] {
            rapidjson::Document d;
            d.Parse(bytes.data(), bytes.size());
            benchmark::DoNotOptimize(d.IsObject());
        });
        nlohmannTimer.run([&] {
            auto j = nlohmann::json::parse(bytes);
            benchmark::DoNotOptimize(j.size());
        });
        simd.run([&] {
            simdjson::dom::element e = simdParser.parse(padded);
            benchmark::DoNotOptimize(e.is_object());
        });
    }
    report(state, bytes.size(), nvk, {{"rapidjson", &rapid}, {"nlohmann", &nlohmannTimer}, {"simdjson", &simd}});
}

void BM_Write(benchmark::State& state, const char* name) {
    std::string bytes = load(name);
    if (bytes.empty()) {
        state.SkipWithError("corpus document not found");
        return;
    }
    Nodes records;
    nvkRead(bytes, records);
    rapidjson::Document doc;
    doc.Parse(bytes.data(), bytes.size());
    nlohmann::json j = nlohmann::json::parse(bytes);
    Timer nvk, rapid, nlohmannTimer;
    for (auto _ : state) {
        nvk.run([&] { benchmark::DoNotOptimize(nvkWrite(records)); });
        rapid.run([&] {
            rapidjson::StringBuffer buffer;
            rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
            doc.Accept(writer);
            benchmark::DoNotOptimize(buffer.GetSize());
        });
        nlohmannTimer.run([&] { benchmark::DoNotOptimize(j.dump().size()); });
    }
    report(state, bytes.size(), nvk, {{"rapidjson", &rapid}, {"nlohmann", &nlohmannTimer}});
}

}  // namespace

BENCHMARK_CAPTURE(BM_Read, canada, "canada.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Read, citm_catalog, "citm_catalog.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Read, twitter, "twitter.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, canada, "canada.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, citm_catalog, "citm_catalog.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Write, twitter, "twitter.json")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
