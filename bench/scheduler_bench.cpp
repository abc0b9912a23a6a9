// Scheduled tasks: next-run calculations per second for each shape, against
// the PCRE2 search that splits the trigger text (the part every shape pays); the
// scheduler service's requests per second with 1 and 8 clients, against a
// cpp-httplib server answering the same bytes from memory; and XML reading
// MB/s against expat alone on the same document.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <httplib.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

#include "nvk/interchange/XmlReader.h"
#include "nvk/platform/Http.h"
#include "nvk/services/CSchedulerService.h"
#include "nvk/services/CSchedulerServiceClient.h"

using namespace nvk;
using tovan::DateTimeValue;
using tovan::WString;

namespace {

const char16_t* const kShapes[] = {u"0 30 2 * * ? *", u"0 0 9 ? * 2,4 *", u"0 0 0 29 2 ? *", u"0 0 12 1 1 ? 2031"};
const char* const kShapeNames[] = {"daily", "weekly", "monthly (29 February)", "once"};

void BM_NextRun(benchmark::State& state) {
    SchedulerTask task;
    task.setTriggerSpec(kShapes[state.range(0)]);
    tovan::vcRegex regex;  // compiled once, as a caller that computes many runs would
    DateTimeValue now(2024, 3, 14, 3, 0, 0), next;
    SchedulerTask::TaskFrequency frequency;
    for (auto _ : state) {
        bool found = task.getNextRunTimeFrom(now, next, frequency, 0, &regex);
        benchmark::DoNotOptimize(found);
    }
    state.SetLabel(kShapeNames[state.range(0)]);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NextRun)->DenseRange(0, 3);

void BM_Peer_Pcre2Split(benchmark::State& state) {
    tovan::vcRegex regex(WString(SchedulerTask::CronExpression));
    WString spec(kShapes[state.range(0)]);
    tovan::Array<WString> fields;
    for (auto _ : state) benchmark::DoNotOptimize(regex.search(spec, &fields));
    state.SetLabel(kShapeNames[state.range(0)]);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Peer_Pcre2Split)->DenseRange(0, 3);

// ---- the service -----------------------------------------------------------------

struct Services {
    std::filesystem::path root = std::filesystem::temp_directory_path() / ("nvk-bench-" + std::to_string(::getpid()));
    std::unique_ptr<CSchedulerService> service;
    std::string url, listing;
    httplib::Server peer;
    std::thread peerThread;
    int peerPort = 0;

    Services() {
        std::filesystem::create_directories(root);
        service = std::make_unique<CSchedulerService>(tovan::toWide(root.string()), u"bench");
        url = "http://127.0.0.1:" + std::to_string(service->start());
        CSchedulerServiceClient client(tovan::toWide(url), u"bench", u"bench");
        for (int i = 0; i < 10; ++i) {
            SchedulerTask t;
            t.setName(tovan::toWide("task " + std::to_string(i)));
            t.setTaskSpec(u"Protocols/clean-and-score.json");
            t.setTriggerSpec(u"0 30 2 * * ? *");
            client.addTask(t);
        }
        listing = service->listTasks();
        // The peer serves the same bytes, from memory, with the same options.
        peer.set_tcp_nodelay(true);
        peer.Get("/schedulercrud/tasks", [this](const httplib::Request&, httplib::Response& res) {
            res.set_content(listing, "application/xml; charset=utf-8");
        });
        peerPort = peer.bind_to_any_port("127.0.0.1");
        peerThread = std::thread([this] { peer.listen_after_bind(); });
    }
    ~Services() {
        while (!peer.is_running()) std::this_thread::yield();
        peer.stop();
        peerThread.join();
        service.reset();
        std::filesystem::remove_all(root);
    }
};

Services& services() {
    static Services s;
    return s;
}

void BM_ServiceList(benchmark::State& state) {
    CSchedulerServiceClient client(tovan::toWide(services().url), u"bench", u"bench");
    tovan::Array<SchedulerTask> tasks;
    for (auto _ : state) client.getTasks(tasks);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ServiceList)->Threads(1)->Threads(8)->UseRealTime();

void BM_ServiceAddDelete(benchmark::State& state) {
    CSchedulerServiceClient client(tovan::toWide(services().url), u"bench", tovan::toWide("user" + std::to_string(state.thread_index())));
    SchedulerTask t;
    t.setName(u"churn");
    t.setTaskSpec(u"Protocols/clean-and-score.json");
    t.setTriggerSpec(u"0 30 2 * * ? *");
    for (auto _ : state) {
        client.addTask(t);
        client.deleteTask(u"churn");
    }
    state.SetItemsProcessed(2 * state.iterations());
}
BENCHMARK(BM_ServiceAddDelete)->Threads(1)->Threads(8)->UseRealTime();

// The same request and answer bytes through the same HTTP client, from memory.
void BM_Peer_HttplibFromMemory(benchmark::State& state) {
    tovan::CHttp http;
    http.setHeader(tovan::NVK_SessionHeader, u"bench");
    WString url = tovan::toWide("http://127.0.0.1:" + std::to_string(services().peerPort) + "/schedulercrud/tasks");
    for (auto _ : state) benchmark::DoNotOptimize(http.get(url));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Peer_HttplibFromMemory)->Threads(1)->Threads(8)->UseRealTime();

// ---- XML reading -----------------------------------------------------------------

const std::string& document() {
    static const std::string text = [] {
        std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<tf:tasks xmlns:tf=\"urn:nvk:scheduler\">\n";
        for (int i = 0; i < 4000; ++i)
            out += "<tf:item id=\"" + std::to_string(i) + "\"><tf:TaskName>task " + std::to_string(i) +
                   " &amp; co</tf:TaskName><tf:TaskType>Protocol</tf:TaskType><tf:TaskSpec>Protocols/clean-and-"
                   "score.json</tf:TaskSpec><tf:TriggerType>Cron</tf:TriggerType><tf:TriggerSpec>0 30 2 * * ? "
                   "*</tf:TriggerSpec><tf:Properties>Input%20folder=%2Fdata%2Fin</tf:Properties><tf:Disabled>NONE"
                   "</tf:Disabled></tf:item>\n";
        return out + "</tf:tasks>\n";
    }();
    return text;
}

void BM_XmlReader(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(XmlReader::ReadBytes(document()));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(document().size()));
}
BENCHMARK(BM_XmlReader)->Unit(benchmark::kMillisecond);

// expat with handlers that only count, so that the scan itself is measured.
void BM_Peer_ExpatAlone(benchmark::State& state) {
    long events = 0;
    for (auto _ : state) {
        XML_Parser p = XML_ParserCreate(nullptr);
        XML_SetUserData(p, &events);
        XML_SetElementHandler(
            p, [](void* d, const XML_Char*, const XML_Char**) { ++*static_cast<long*>(d); },
            [](void* d, const XML_Char*) { ++*static_cast<long*>(d); });
        XML_SetCharacterDataHandler(p, [](void* d, const XML_Char*, int) { ++*static_cast<long*>(d); });
        if (XML_Parse(p, document().data(), int(document().size()), 1) != XML_STATUS_OK) state.SkipWithError("expat failed");
        XML_ParserFree(p);
    }
    benchmark::DoNotOptimize(events);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(document().size()));
}
BENCHMARK(BM_Peer_ExpatAlone)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
