// Launch links with 20 parameters, against libcurl's URL API building the same URL; series
// parameter names parsed per second.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <string>
#include <vector>

#include "nvk/platform/String.h"
#include "nvk/protocol/CPropertyUtils.h"
#include "nvk/protocol/CProtocolLinkBuilder.h"

namespace {

using nvk::CProtocolLinkBuilder;
using tovan::WString;

struct Param {
    std::string name, value;
};

// Twenty parameters as a launch form sends them: short names, numbers, paths, a few texts
// with spaces, reserved characters and non-ASCII letters.
const std::vector<Param>& params() {
    static const std::vector<Param> list = [] {
        std::vector<Param> out;
        for (int i = 0; i < 20; ++i) {
            std::string value;
            switch (i % 4) {
                case 0: value = std::to_string(i * 37 + 0.5); break;
                case 1: value = "/data/run " + std::to_string(i) + "/input.csv"; break;
                case 2: value = "Gr\xc3\xbc\xc3\x9f" "e & Co: " + std::to_string(i); break;
                default: value = "true"; break;
            }
            out.push_back({"Parameter" + std::to_string(i), value});
        }
        return out;
    }();
    return list;
}

const std::string kServer = "workflows.example:9943";
const std::string kProtocol = "Protocols/Demo/Clean and Score";

void BM_Link20_Construct(benchmark::State& state) {
    CProtocolLinkBuilder b(tovan::toWide(kServer), tovan::toWide(kProtocol));
    for (const Param& p : params()) b.SetParameter(tovan::toWide(p.name), tovan::toWide(p.value));
    size_t length = 0;
    for (auto _ : state) {
        const WString& link = b.Construct();
        length = link.length();
        benchmark::DoNotOptimize(link.c_str());
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["link_chars"] = double(length);
}
BENCHMARK(BM_Link20_Construct);

// From nothing: the builder, its 20 parameters (wide texts made beforehand) and the link.
void BM_Link20_BuildAndConstruct(benchmark::State& state) {
    std::vector<std::pair<WString, WString>> wide;
    for (const Param& p : params()) wide.emplace_back(tovan::toWide(p.name), tovan::toWide(p.value));
    const WString server = tovan::toWide(kServer), protocol = tovan::toWide(kProtocol);
    for (auto _ : state) {
        CProtocolLinkBuilder b(server, protocol);
        for (const auto& [name, value] : wide) b.SetParameter(name, value);
        benchmark::DoNotOptimize(b.Construct().c_str());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Link20_BuildAndConstruct);

// The peer: the same scheme, host, port, path and query pairs through curl_url_set
// (each pair appended and encoded by libcurl), then the whole URL from curl_url_get.
void BM_Link20_LibcurlUrlApi(benchmark::State& state) {
    std::vector<std::string> pairs = {"$protocol=" + kProtocol, "$streamdata=*"};
    for (const Param& p : params()) pairs.push_back(p.name + "=" + p.value);
    size_t length = 0;
    for (auto _ : state) {
        CURLU* u = curl_url();
        curl_url_set(u, CURLUPART_SCHEME, "https", 0);
        curl_url_set(u, CURLUPART_HOST, "workflows.example", 0);
        curl_url_set(u, CURLUPART_PORT, "9943", 0);
        curl_url_set(u, CURLUPART_PATH, "/auth/launchjob", 0);
        for (const std::string& pair : pairs)
            curl_url_set(u, CURLUPART_QUERY, pair.c_str(), CURLU_APPENDQUERY | CURLU_URLENCODE);
        char* url = nullptr;
        curl_url_get(u, CURLUPART_URL, &url, 0);
        length = std::char_traits<char>::length(url);
        benchmark::DoNotOptimize(url);
        curl_free(url);
        curl_url_cleanup(u);
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["link_chars"] = double(length);
}
BENCHMARK(BM_Link20_LibcurlUrlApi);

void BM_SeriesParse(benchmark::State& state) {
    std::vector<WString> names;
    for (int i = 0; i < 256; ++i) {
        switch (i % 4) {
            case 0: names.push_back(tovan::toWide("Item " + std::to_string(i))); break;
            case 1: names.push_back(tovan::toWide("Output File " + std::to_string(i) + " (copy)")); break;
            case 2: names.push_back(tovan::toWide("Step " + std::to_string(i) + " of 300")); break;
            default: names.push_back(tovan::toWide("Threshold" + std::to_string(i))); break;  // does not parse
        }
    }
    WString prefix, suffix;
    int index = 0;
    size_t k = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(nvk::CPropertyUtils::parseSeriesParameterName(names[k], prefix, index, suffix));
        k = (k + 1) & 255;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SeriesParse);

}  // namespace

BENCHMARK_MAIN();
